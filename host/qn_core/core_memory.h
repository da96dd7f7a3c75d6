// Storage of arrays.
//
// The first touch of a page costs as much as filling it several times over: a build's arrays spend a third of its time
// there. Storage of one and a half megabytes and more therefore asks the system for pages of two, the last of which is
// filled by three quarters at least, or stays in small ones. A system without such pages is no worse off.
//
// For the same reason storage of 64 KB to 256 MB that is freed is kept for the next array of its size: 64 MB of blocks
// up to 8 MB, 512 MB of larger ones, where what was freed first goes first. So a surface that is built again, or
// another one like it, finds its pages there. The pages of the larger blocks are the system's to take while they wait
// (MADV_FREE): they count as the process's until it needs memory. Without such a call larger blocks are not kept. Any
// thread may call. Where the system refuses storage, all that is kept goes back to it before it is asked again.
#pragma once

#include <cstddef>

#include "qn_core/core_export.h"

struct QN_EXPORT CoreMemory {
    // At least `size` bytes, aligned to `alignment` or more. Throws std::bad_alloc.
    static void* allocate(const size_t& size, const size_t& alignment);
    // `size` and `alignment` as they were for allocate; `block` may be null.
    static void free(void* block, const size_t& size, const size_t& alignment) noexcept;

    static constexpr size_t max_kept_size = size_t{64} << 20, max_lent_size = size_t{512} << 20;
    // Freed storage that waits for its next use, in bytes.
    static size_t get_kept_size() noexcept;
    // Gives it back to the system.
    static void release_kept() noexcept;
};

// Storage of arrays.
//
// The first touch of a page costs as much as filling it several times over: a build's arrays spend a third of its time
// there. Storage of one and a half megabytes and more therefore asks the system for pages of two, the last of which is
// filled by three quarters at least, or stays in small ones. A system without such pages is no worse off. Any
// thread may call.
#pragma once

#include <cstddef>

#include "qn_core/core_export.h"

struct QN_EXPORT CoreMemory {
    // At least `size` bytes, aligned to `alignment` or more. Throws std::bad_alloc.
    static void* allocate(const size_t& size, const size_t& alignment);
    // `size` and `alignment` as they were for allocate; `block` may be null.
    static void free(void* block, const size_t& size, const size_t& alignment) noexcept;
};

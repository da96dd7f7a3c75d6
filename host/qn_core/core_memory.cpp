#include "qn_core/core_memory.h"

#include <algorithm>
#include <new>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace {

#ifdef MADV_HUGEPAGE
constexpr size_t large_page = size_t{1} << 21;

// Whole large pages; a last one that is filled by three quarters counts.
size_t get_large_size(size_t size) { return (size + large_page / 4) / large_page * large_page; }

void ask_for_large_pages(void* block, size_t size) { madvise(block, size, MADV_HUGEPAGE); }
#else
constexpr size_t large_page = 1;

size_t get_large_size(size_t) { return 0; }

void ask_for_large_pages(void*, size_t) {}
#endif

std::align_val_t get_alignment(size_t large_size, size_t alignment) {
    return std::align_val_t{large_size != 0 ? std::max(large_page, alignment) : alignment};
}

}  // namespace

void* CoreMemory::allocate(const size_t& size, const size_t& alignment) {
    const size_t large_size = get_large_size(size);
    void* block = ::operator new(std::max(size, large_size), get_alignment(large_size, alignment));
    if (large_size != 0) ask_for_large_pages(block, large_size);
    return block;
}

void CoreMemory::free(void* block, const size_t& size, const size_t& alignment) noexcept {
    ::operator delete(block, get_alignment(get_large_size(size), alignment));
}

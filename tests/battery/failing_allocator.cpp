#include "battery/failing_allocator.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

std::atomic<std::size_t> bytes{0};
std::atomic<std::size_t> to_go{0};
std::atomic<bool> failed{false};

std::atomic<unsigned int> rounds{0};

// What this thread was refused just now: it may try again.
struct Refusal {
    std::size_t size = 0;
    unsigned int round = 0;
};
thread_local Refusal refusal;

void* allocate(std::size_t size, std::size_t alignment) noexcept {
    const Refusal last = std::exchange(refusal, Refusal{});
    if (last.round != 0 && last.round == rounds && last.size == size) return nullptr;
    std::size_t left = to_go.load();
    while (left != 0 && !to_go.compare_exchange_weak(left, left - 1)) {
    }
    if (left == 1) {
        failed = true;
        refusal = {size, rounds};
        return nullptr;
    }
    void* p = nullptr;
    if (posix_memalign(&p, alignment < sizeof(void*) ? sizeof(void*) : alignment, size) != 0) return nullptr;
    bytes += malloc_usable_size(p);
    return p;
}

void* allocate_or_throw(std::size_t size, std::size_t alignment) {
    if (void* p = allocate(size, alignment)) return p;
    throw std::bad_alloc();
}

void release(void* p) noexcept {
    if (p != nullptr) bytes -= malloc_usable_size(p);
    std::free(p);
}

}  // namespace

std::size_t sds_test::live_bytes() { return bytes; }
void sds_test::fail_allocation(std::size_t k) {
    failed = false;
    to_go = k;
    ++rounds;
}
bool sds_test::has_failed() { return failed; }

void* operator new(std::size_t size) { return allocate_or_throw(size, alignof(std::max_align_t)); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }

// Arrays that a build leaves to the next one of its thread. The first touch of memory costs as much as filling it
// several times over, and a refinement's arrays on the way are as large as what comes out.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>

namespace sds {

// What a thread keeps at most of each kind. Arrays far above it get large pages, whose first touch is cheap.
inline constexpr size_t max_kept_bytes = size_t{8} << 20;

// A thread's arrays while this lives, whatever they last held. T is default constructible and movable; its
// get_memory_size() tells at the end the most that it held. Another one of the same thread meanwhile begins with an
// empty T.
template <class T>
class KeptScratch {
public:
    KeptScratch() : m_bytes(slot().bytes), m_scratch(std::exchange(slot().scratch, T())) {}
    KeptScratch(const KeptScratch&) = delete;
    KeptScratch& operator=(const KeptScratch&) = delete;
    ~KeptScratch() {
        const size_t bytes = std::max(m_bytes, m_scratch.get_memory_size());
        if (bytes > max_kept_bytes) return;
        slot().scratch = std::move(m_scratch);
        slot().bytes = bytes;
    }

    T& operator*() { return m_scratch; }
    T* operator->() { return &m_scratch; }

private:
    struct Slot {
        T scratch;
        size_t bytes = 0;  // arrays keep what they once took
    };
    static Slot& slot() {
        static thread_local Slot kept;
        return kept;
    }

    size_t m_bytes;
    T m_scratch;
};

}  // namespace sds

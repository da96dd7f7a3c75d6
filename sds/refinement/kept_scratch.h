// Arrays that a build leaves to the next one of its thread. The first touch of memory costs as much as filling it
// several times over, and a refinement's arrays on the way are as large as what comes out.
#pragma once

#include <cstddef>
#include <utility>

namespace sds {

// What a thread keeps at most of each kind. Arrays far above it get large pages, whose first touch is cheap.
inline constexpr size_t max_kept_bytes = size_t{8} << 20;

// A thread's arrays while this lives, whatever they last held. T is default constructible and movable; its
// get_memory_size() tells what it holds at the end. Another one of the same thread meanwhile begins with an empty T.
template <class T>
class KeptScratch {
public:
    KeptScratch() : m_scratch(std::exchange(slot(), T())) {}
    KeptScratch(const KeptScratch&) = delete;
    KeptScratch& operator=(const KeptScratch&) = delete;
    ~KeptScratch() {
        if (m_scratch.get_memory_size() <= max_kept_bytes) slot() = std::move(m_scratch);
    }

    T& operator*() { return m_scratch; }
    T* operator->() { return &m_scratch; }

private:
    static T& slot() {
        static thread_local T kept;
        return kept;
    }

    T m_scratch;
};

}  // namespace sds

// Walks over what has a child in the next level.
#pragma once

namespace sds {

// body(i) in increasing order for the i in [0, count) whose child is not none. They are listed first, some at a time:
// which have one is hard to foretell. A template of the including source's type, so that kernels of all instruction
// sets may use it.
template <class Body>
inline void for_each_with_child(const unsigned int* children, unsigned int count, const Body& body) {
    constexpr unsigned int most = 64, no_child = 0xFFFFFFFF;
    unsigned int found[most];
    for (unsigned int begin = 0; begin < count; begin += most) {
        const unsigned int end = begin + most < count ? begin + most : count;
        unsigned int found_count = 0;
        for (unsigned int i = begin; i < end; ++i) {
            found[found_count] = i;
            found_count += children[i] != no_child ? 1 : 0;
        }
        for (unsigned int i = 0; i < found_count; ++i) body(found[i]);
    }
}

}  // namespace sds

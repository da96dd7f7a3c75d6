// Walks over some of many, where which ones is hard to foretell.
#pragma once

namespace sds {

// body(i) in increasing order for the i in [0, count) for which condition(i) holds. They are listed first, some at a
// time and without a branch, so a condition must not depend on what bodies do shortly before. A template of the
// including source's types, so that kernels of all instruction sets may use it.
template <class Condition, class Body>
inline void for_each_where(unsigned int count, const Condition& condition, const Body& body) {
    constexpr unsigned int most = 64;
    unsigned int found[most];
    for (unsigned int begin = 0; begin < count; begin += most) {
        const unsigned int end = begin + most < count ? begin + most : count;
        unsigned int found_count = 0;
        for (unsigned int i = begin; i < end; ++i) {
            found[found_count] = i;
            found_count += condition(i) ? 1 : 0;
        }
        for (unsigned int i = 0; i < found_count; ++i) body(found[i]);
    }
}

// The same for those whose child is not none.
template <class Body>
inline void for_each_with_child(const unsigned int* children, unsigned int count, const Body& body) {
    constexpr unsigned int no_child = 0xFFFFFFFF;
    for_each_where(
        count, [children](unsigned int i) { return children[i] != no_child; }, body);
}

}  // namespace sds

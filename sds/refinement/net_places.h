// Where the derivative nets of patches stand when most have none: a bit for every patch, and a number for those with
// nets.
#pragma once

namespace sds {

// A view, which kernels read too.
struct NetPlaces {
    struct Word {
        unsigned int has_nets;      // a bit for each of 32 patches
        unsigned int first_offset;  // in offsets, of the first of these that has nets
    };
    const Word* words = nullptr;
    const unsigned int* offsets = nullptr;

    // Where the 24 vectors of a patch begin, or 0xFFFFFFFF.
    [[gnu::always_inline]] unsigned int find(unsigned int patch) const {
        const Word& word = words[patch / 32];
        const unsigned int bit = patch % 32;
        if (((word.has_nets >> bit) & 1u) == 0) return 0xFFFFFFFFu;
        const auto before = static_cast<unsigned int>(__builtin_popcount(word.has_nets & ((1u << bit) - 1u)));
        return offsets[word.first_offset + before];
    }
};

}  // namespace sds

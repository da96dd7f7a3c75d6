// Well-spread sample points per pixel, a function of pixel and sample index only.
#pragma once

#include <cstdint>

namespace sds_render {

struct SamplePoint {
    double x;  // both in [0, 1)
    double y;
};

// The first two dimensions of Sobol's sequence under nested uniform (Owen) scrambling, by the hash of Laine and Karras
// ("Stratified Sampling for Stochastic Transparency", 2011). Every power of two of samples puts one into each
// elementary interval of that size. Further dimensions are pairs with their own scrambling and order.
class PixelSampler {
public:
    PixelSampler(std::uint32_t x, std::uint32_t y) : m_seed(hash(x + hash(y + 0x9e3779b9u))) {}

    SamplePoint get(std::uint32_t sample, std::uint32_t dimension_pair) const {
        const std::uint32_t seed = hash(m_seed ^ (dimension_pair * 0x85ebca6bu));
        const std::uint32_t index = scramble(sample, seed);
        return {to_unit(scramble(reverse_bits(index), hash(seed ^ 0x5bd1e995u))),
                to_unit(scramble(sobol_second(index), hash(seed ^ 0x1b873593u)))};
    }

private:
    // Full avalanche (C. Wellons, "Prospecting for Hash Functions").
    static constexpr std::uint32_t hash(std::uint32_t x) {
        x = (x ^ (x >> 16)) * 0x7feb352du;
        x = (x ^ (x >> 15)) * 0x846ca68bu;
        return x ^ (x >> 16);
    }
    static constexpr std::uint32_t reverse_bits(std::uint32_t x) {
        x = (x << 16) | (x >> 16);
        x = ((x & 0x00ff00ffu) << 8) | ((x & 0xff00ff00u) >> 8);
        x = ((x & 0x0f0f0f0fu) << 4) | ((x & 0xf0f0f0f0u) >> 4);
        x = ((x & 0x33333333u) << 2) | ((x & 0xccccccccu) >> 2);
        return ((x & 0x55555555u) << 1) | ((x & 0xaaaaaaaau) >> 1);
    }
    static constexpr std::uint32_t sobol_second(std::uint32_t index) {
        std::uint32_t out = 0;
        for (std::uint32_t direction = 0x80000000u; index != 0; index >>= 1, direction ^= direction >> 1)
            if ((index & 1u) != 0) out ^= direction;
        return out;
    }
    static constexpr std::uint32_t scramble(std::uint32_t x, std::uint32_t seed) {
        x = reverse_bits(x) + seed;
        x ^= x * 0x6c50b47cu;
        x ^= x * 0xb82f1e52u;
        x ^= x * 0xc7afe638u;
        x ^= x * 0x8d22f6e6u;
        return reverse_bits(x);
    }
    static constexpr double to_unit(std::uint32_t x) { return x * 0x1p-32; }

    std::uint32_t m_seed;
};

}  // namespace sds_render

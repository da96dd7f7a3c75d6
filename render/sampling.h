// Well-spread sample points per pixel, a function of pixel and sample index only.
#pragma once

#include <bit>
#include <cstdint>

namespace sds_render {

struct SamplePoint {
    double x;  // both in [0, 1)
    double y;
};

// The first two dimensions of Sobol's sequence under nested uniform (Owen) scrambling, by the hash of Laine and Karras
// ("Stratified Sampling for Stochastic Transparency", 2011). Every power of two of samples puts one into each
// elementary interval of that size. Further dimensions are pairs with their own scrambling and order.
//
// All pixels draw from one sequence, along a curve that visits blocks of 2 x 1, 2 x 2, 4 x 2, ... pixels one after the
// other, shuffled within every such block (Ahmed and Wonka, "Screen-Space Blue-Noise Diffusion of Monte Carlo Sampling
// Error via Hierarchical Ordering of Pixels", 2020). A block's samples are then as well spread as a pixel's, so that
// errors of neighbors cancel, where independent pixels would show grain.
class PixelSampler {
public:
    // `count` is the number of samples that the pixel takes.
    PixelSampler(std::uint32_t x, std::uint32_t y, std::uint32_t count)
        : m_place(spread_bits(x) | spread_bits(y) << 1), m_count(count), m_bits(get_bits(count)) {}

    std::uint32_t get_count() const { return m_count; }

    // Point `sample` of a pair of dimensions; `share` of them belong to each of the pixel's samples.
    SamplePoint get(std::uint32_t sample, std::uint32_t dimension_pair, std::uint32_t share = 1) const {
        const std::uint32_t seed = hash(dimension_pair * 0x85ebca6bu + 0x9e3779b9u);
        const std::uint32_t index = scramble((m_place << (m_bits + get_bits(share))) | sample, seed);
        const std::uint32_t reversed = reverse_bits(index);
        return {to_unit(scramble(reversed, hash(seed ^ 0x5bd1e995u))),
                to_unit(scramble(sobol_second(reversed), hash(seed ^ 0x1b873593u)))};
    }

private:
    // How many bits number `count` things.
    static constexpr std::uint32_t get_bits(std::uint32_t count) {
        return static_cast<std::uint32_t>(std::bit_width(count - 1));
    }
    // The lower half of the bits, each followed by a zero.
    static constexpr std::uint32_t spread_bits(std::uint32_t x) {
        x &= 0xffffu;
        x = (x | (x << 8)) & 0x00ff00ffu;
        x = (x | (x << 4)) & 0x0f0f0f0fu;
        x = (x | (x << 2)) & 0x33333333u;
        return (x | (x << 1)) & 0x55555555u;
    }
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
    // Bit j of the index brings (1 + S)^j, S the shift by one place, of the highest bit. Modulo 2, (1 + S)^m is 1 + S^m
    // for m a power of 2, so that pairs of blocks of m bits are joined by one shift.
    static constexpr std::uint32_t sobol_second(std::uint32_t reversed_index) {
        std::uint32_t out = reversed_index;
        out ^= (out & 0x55555555u) << 1;
        out ^= (out & 0x33333333u) << 2;
        out ^= (out & 0x0f0f0f0fu) << 4;
        out ^= (out & 0x00ff00ffu) << 8;
        return out ^ (out << 16);
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

    std::uint32_t m_place;  // along the curve
    std::uint32_t m_count;
    std::uint32_t m_bits;
};

}  // namespace sds_render

#include "cli/cage_edges.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace sds_cli {
namespace {

/// Random polygons over few vertices, so that edges are shared by one, two and many of them.
ControlCage random_polygons(unsigned seed) {
    std::mt19937 engine(seed);
    const auto random = [&engine] { return static_cast<std::uint32_t>(engine()); };
    ControlCage cage;
    const std::uint32_t vertex_count = 5 + seed % 20;
    cage.positions.resize(3 * vertex_count);
    for (unsigned p = 0; p < 30; ++p) {
        const std::uint32_t count = 3 + random() % 3, first = random() % vertex_count, step = 1 + random() % 2;
        cage.polygon_counts.push_back(count);
        for (std::uint32_t k = 0; k < count; ++k) cage.polygon_indices.push_back((first + k * step) % vertex_count);
    }
    return cage;
}

TEST(CageEdges, GroupsFaceCornersAsAMapOfVertexPairsDoes) {
    for (unsigned seed = 0; seed < 50; ++seed) {
        SCOPED_TRACE(seed);
        const ControlCage cage = random_polygons(seed);
        std::map<std::pair<std::uint32_t, std::uint32_t>, std::vector<std::uint32_t>> expected;
        std::uint32_t first = 0;
        for (const std::uint32_t count : cage.polygon_counts) {
            for (std::uint32_t k = 0; k < count; ++k) {
                const std::uint32_t a = cage.polygon_indices[first + k],
                                    b = cage.polygon_indices[first + (k + 1) % count];
                expected[std::minmax(a, b)].push_back(first + k);
            }
            first += count;
        }
        const CageEdges edges(cage);
        auto next = expected.begin();
        edges.for_each_edge([&](std::span<const std::uint32_t> sides) {
            ASSERT_NE(next, expected.end());
            EXPECT_EQ(std::vector(sides.begin(), sides.end()), next->second);
            ++next;
        });
        EXPECT_EQ(next, expected.end());
        for (std::uint32_t a = 0; a < cage.vertex_count(); ++a)
            for (std::uint32_t b = 0; b < cage.vertex_count(); ++b) {
                const auto sides = edges.sides(a, b);
                const auto known = expected.find(std::minmax(a, b));
                EXPECT_EQ(std::vector(sides.begin(), sides.end()),
                          known == expected.end() ? std::vector<std::uint32_t>{} : known->second);
            }
    }
}

TEST(CageEdges, AnEmptyCageHasNone) {
    const ControlCage cage;
    const CageEdges edges(cage);
    EXPECT_TRUE(edges.sides(0, 1).empty());
    edges.for_each_edge([](auto) { FAIL(); });
}

}  // namespace
}  // namespace sds_cli

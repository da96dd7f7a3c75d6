#include "qn_poly/poly_neighbourhood.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "qn_poly/poly_crease_scope.h"
#include "qn_sys/sys_thread.h"
#include "support/mesh_zoo.h"

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr unsigned int none = 0xFFFFFFFF;

CoreBasicArray<unsigned int> view(std::vector<unsigned int>& items) {
    return {static_cast<unsigned int>(items.size()), items.data()};
}

struct Neighbourhood {
    std::vector<unsigned int> polygons, edges, offsets;
    std::vector<unsigned char> smooth;

    Neighbourhood(std::vector<unsigned int> counts, std::vector<unsigned int> indices, unsigned int vertex_count) {
        for (unsigned int offset = 0; const unsigned int count : counts) {
            offsets.push_back(offset);
            offset += count;
        }
        CoreArray<unsigned int> p, e;
        CoreArray<unsigned char> s;
        compute_polygons_neighbourhood(p, e, s, view(indices), view(counts), view(offsets), vertex_count, nullptr);
        polygons.assign(p.begin(), p.end());
        edges.assign(e.begin(), e.end());
        smooth.assign(s.begin(), s.end());
    }
    // The face-corner across c.
    unsigned int opposite(unsigned int c) const { return polygons[c] == none ? none : offsets[polygons[c]] + edges[c]; }
    std::vector<unsigned int> opposites() const {
        std::vector<unsigned int> all;
        for (unsigned int c = 0; c < polygons.size(); ++c) all.push_back(opposite(c));
        return all;
    }
};

TEST(PolyNeighbourhood, AgreesWithBruteForceOnTheZoo) {
    for (const sds_test::ZooMesh& cage : sds_test::mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const sds_test::CageAdjacency expected(cage);
        CoreArray<unsigned char> creases(static_cast<unsigned int>(cage.corner_creases.size()));
        std::copy(cage.corner_creases.begin(), cage.corner_creases.end(), creases.begin());
        const PolyCreaseScope scope(creases);
        const Neighbourhood found(cage.counts, cage.indices, static_cast<unsigned int>(cage.positions.size()));
        for (unsigned int c = 0; c < cage.indices.size(); ++c) {
            EXPECT_EQ(found.opposite(c), expected.opposite(c)) << c;
            EXPECT_EQ(found.edges[c] == none, found.polygons[c] == none) << c;
            const unsigned int o = expected.opposite(c);
            const bool crease = cage.corner_creases[c] != 0 || (o != none && cage.corner_creases[o] != 0);
            EXPECT_EQ(found.smooth[c] == 0, crease) << c;
        }
    }
}

TEST(PolyNeighbourhood, PairsWhateverTheDirection) {
    const Neighbourhood same({3, 3}, {0, 1, 2, 0, 1, 3}, 4);
    EXPECT_THAT(same.opposites(), ElementsAre(3, none, none, 0, none, none));
    const Neighbourhood against({3, 3}, {0, 1, 2, 1, 0, 3}, 4);
    EXPECT_THAT(against.opposites(), ElementsAre(3, none, none, 0, none, none));
}

TEST(PolyNeighbourhood, EdgesOfThreeOrMoreAreBorders) {
    for (unsigned int pages = 3; pages <= 6; ++pages) {
        std::vector<unsigned int> indices;
        for (unsigned int i = 0; i < pages; ++i)
            for (const unsigned int v : {i % 2, 1 - i % 2, i + 2}) indices.push_back(v);
        const Neighbourhood found(std::vector<unsigned int>(pages, 3), indices, pages + 2);
        EXPECT_THAT(found.polygons, Each(none)) << pages;
        EXPECT_THAT(found.edges, Each(none)) << pages;
    }
}

TEST(PolyNeighbourhood, VoidPolygonsAndEdgesToThemselvesAreBorders) {
    // The quad in the middle is void, so its neighbours stand at a border.
    const Neighbourhood with_void({4, 4, 4}, {0, 1, 2, 3, 1, none, 5, 2, 4, 6, 7, 5}, 8);
    EXPECT_THAT(with_void.polygons, Each(none));
    // Corners 1 and 2 are one vertex; the other edges of the polygon still pair.
    const Neighbourhood repeated({4, 3}, {0, 1, 1, 2, 2, 1, 3}, 4);
    EXPECT_THAT(repeated.opposites(), ElementsAre(none, none, 4, none, 2, none, none));
    const Neighbourhood nothing({}, {}, 0);
    EXPECT_TRUE(nothing.polygons.empty());
    const Neighbourhood all_void({3}, {none, none, none}, 0);
    EXPECT_THAT(all_void.polygons, ElementsAre(none, none, none));
}

TEST(PolyNeighbourhood, CreasesHoldForBothSides) {
    const CoreArray<unsigned char> smooth(8, 0);
    CoreArray<unsigned char> creases(8, 0);
    creases[1] = 1;  // the shared edge, flagged on one side
    creases[2] = 1;  // a border
    std::vector<unsigned int> counts{4, 4}, indices{0, 1, 2, 3, 1, 4, 5, 2};
    {
        const PolyCreaseScope scope(creases);
        EXPECT_THAT(Neighbourhood(counts, indices, 6).smooth, ElementsAre(1, 0, 0, 1, 1, 1, 1, 0));
        {
            const PolyCreaseScope inner(smooth);
            EXPECT_THAT(Neighbourhood(counts, indices, 6).smooth, Each(1));
        }
        EXPECT_THAT(Neighbourhood(counts, indices, 6).smooth, ElementsAre(1, 0, 0, 1, 1, 1, 1, 0));
        // Flags of another mesh's length are not meant for this one.
        EXPECT_THAT(Neighbourhood({3}, {0, 1, 2}, 3).smooth, Each(1));
    }
    EXPECT_THAT(Neighbourhood(counts, indices, 6).smooth, Each(1));
}

// The order of the polygons changes numbers, never who is whose neighbour.
TEST(PolyNeighbourhood, DoesNotDependOnPolygonOrder) {
    for (const sds_test::ZooMesh& cage : sds_test::mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const auto vertex_count = static_cast<unsigned int>(cage.positions.size());
        const Neighbourhood straight(cage.counts, cage.indices, vertex_count);
        std::vector<unsigned int> order(cage.counts.size());
        std::iota(order.begin(), order.end(), 0u);
        std::shuffle(order.begin(), order.end(), std::mt19937(1));
        std::vector<unsigned int> counts, indices, corner_of;  // corner_of[new corner] = old corner
        for (const unsigned int p : order) {
            counts.push_back(cage.counts[p]);
            for (unsigned int j = 0; j < cage.counts[p]; ++j) {
                corner_of.push_back(straight.offsets[p] + j);
                indices.push_back(cage.indices[straight.offsets[p] + j]);
            }
        }
        const Neighbourhood shuffled(counts, indices, vertex_count);
        for (unsigned int c = 0; c < indices.size(); ++c) {
            const unsigned int o = shuffled.opposite(c);
            EXPECT_EQ(o == none ? none : corner_of[o], straight.opposite(corner_of[c]));
        }
    }
}

// Quadratic work in the valence would take minutes here.
TEST(PolyNeighbourhood, PoleOfHundredThousandTriangles) {
    const unsigned int n = 100000;
    std::vector<unsigned int> indices;
    for (unsigned int i = 0; i < n; ++i)
        for (const unsigned int v : {0u, 1 + i, 1 + (i + 1) % n}) indices.push_back(v);
    const Neighbourhood found(std::vector<unsigned int>(n, 3), indices, n + 1);
    for (unsigned int i = 0; i < n; ++i) {
        ASSERT_EQ(found.opposite(3 * i + 2), 3 * ((i + 1) % n));
        ASSERT_EQ(found.opposite(3 * i + 1), none);
    }
}

// Large meshes are sorted in slices, on many threads.
TEST(PolyNeighbourhood, SlicesOfALargeMeshAreOneMesh) {
    constexpr unsigned int n = 300;
    std::vector<unsigned int> counts, indices;
    for (unsigned int i = 0; i < n * n; ++i) {
        const unsigned int a = i / n * (n + 1) + i % n, b = a + 1, c = b + n + 1, d = a + n + 1;
        if (i % 7 == 3) {
            counts.insert(counts.end(), {3, 3});
            indices.insert(indices.end(), {a, b, c, a, c, d});
        } else {
            counts.push_back(4);
            indices.insert(indices.end(), {a, b, i % 11 == 5 ? none : c, d});
        }
    }
    // Corners of each edge, in order; void polygons have none.
    std::map<std::pair<unsigned int, unsigned int>, std::vector<unsigned int>> edges;
    for (unsigned int p = 0, offset = 0; p < counts.size(); offset += counts[p++]) {
        const auto begin = indices.begin() + offset;
        if (std::count(begin, begin + counts[p], none) != 0) continue;
        for (unsigned int j = 0; j < counts[p]; ++j)
            edges[std::minmax(begin[j], begin[(j + 1) % counts[p]])].push_back(offset + j);
    }
    std::vector<unsigned int> expected(indices.size(), none);
    for (const auto& [edge, corners] : edges) {
        if (corners.size() != 2) continue;
        expected[corners[0]] = corners[1];
        expected[corners[1]] = corners[0];
    }
    for (const unsigned int threads : {1u, 2u, 5u})
        SysThreadArena(threads).execute(
            [&] { EXPECT_EQ(Neighbourhood(counts, indices, (n + 1) * (n + 1)).opposites(), expected) << threads; });
}

TEST(PolyNeighbourhood, ReportsProgressToTheEnd) {
    AppProgressBar bar;
    std::vector<unsigned int> counts{3}, indices{0, 1, 2}, offsets{0};
    CoreArray<unsigned int> p, e;
    CoreArray<unsigned char> s;
    compute_polygons_neighbourhood(p, e, s, view(indices), view(counts), view(offsets), 3, &bar);
    EXPECT_EQ(bar.get_position(), 1.0f);
}

}  // namespace

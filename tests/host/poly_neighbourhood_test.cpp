#include "qn_poly/poly_neighbourhood.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "oracles/mesh_zoo.h"
#include "qn_poly/poly_crease_scope.h"
#include "qn_sys/sys_thread.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using Indices = std::vector<unsigned int>;

constexpr unsigned int none = 0xFFFFFFFF;

CoreBasicArray<unsigned int> view(Indices& items) { return {static_cast<unsigned int>(items.size()), items.data()}; }

struct Neighbourhood {
    Indices polygons, edges, offsets;
    std::vector<unsigned char> smooth;

    Neighbourhood(Indices counts, Indices indices, size_t vertex_count) {
        for (unsigned int offset = 0; const unsigned int count : counts) {
            offsets.push_back(offset);
            offset += count;
        }
        // As a former mesh leaves them.
        const auto corner_count = static_cast<unsigned int>(indices.size());
        CoreArray<unsigned int> p(corner_count, 7u), e(corner_count, 7u);
        CoreArray<unsigned char> s(corner_count, static_cast<unsigned char>(7));
        AppProgressBar bar;
        compute_polygons_neighbourhood(p, e, s, view(indices), view(counts), view(offsets),
                                       static_cast<unsigned int>(vertex_count), &bar);
        EXPECT_EQ(bar.get_position(), 1.0f);
        polygons.assign(p.begin(), p.end());
        edges.assign(e.begin(), e.end());
        smooth.assign(s.begin(), s.end());
    }
    // The face-corner across each.
    Indices opposites() const {
        Indices all;
        for (unsigned int c = 0; c < polygons.size(); ++c) {
            EXPECT_EQ(edges[c] == none, polygons[c] == none) << c;
            all.push_back(polygons[c] == none ? none : offsets[polygons[c]] + edges[c]);
        }
        return all;
    }
};

// By the corners of each edge, in order; void polygons and edges from a vertex to itself have no neighbors.
Indices find_opposites(const Indices& counts, const Indices& indices) {
    std::map<std::pair<unsigned int, unsigned int>, Indices> edges;
    for (unsigned int p = 0, offset = 0; p < counts.size(); offset += counts[p++]) {
        const auto begin = indices.begin() + offset;
        if (std::count(begin, begin + counts[p], none) != 0) continue;
        for (unsigned int j = 0; j < counts[p]; ++j)
            edges[std::minmax(begin[j], begin[(j + 1) % counts[p]])].push_back(offset + j);
    }
    Indices opposites(indices.size(), none);
    for (const auto& [edge, corners] : edges) {
        if (corners.size() != 2 || edge.first == edge.second) continue;
        opposites[corners[0]] = corners[1];
        opposites[corners[1]] = corners[0];
    }
    return opposites;
}

TEST(PolyNeighbourhood, AgreesWithBruteForceOnTheZoo) {
    for (const sds_test::ZooMesh& cage : sds_test::mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        CoreArray<unsigned char> creases(static_cast<unsigned int>(cage.corner_creases.size()));
        std::copy(cage.corner_creases.begin(), cage.corner_creases.end(), creases.begin());
        const PolyCreaseScope scope(creases);
        const Neighbourhood found(cage.counts, cage.indices, cage.positions.size());
        const Indices expected = find_opposites(cage.counts, cage.indices);
        EXPECT_EQ(found.opposites(), expected);
        for (unsigned int c = 0; c < cage.indices.size(); ++c) {
            const unsigned int o = expected[c];
            const bool crease = cage.corner_creases[c] != 0 || (o != none && cage.corner_creases[o] != 0);
            EXPECT_EQ(found.smooth[c] == 0, crease) << c;
        }
    }
}

// Edges of one, two and many polygons in either direction, at vertices of few and of many edges; polygons that pass a
// vertex twice or are void.
TEST(PolyNeighbourhood, AgreesWithBruteForceOnRandomPolygons) {
    for (unsigned int seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const unsigned int vertex_count = 3 + seed % 40;
        Indices counts, indices;
        for (unsigned int p = 0; p < seed % 64; ++p) {
            counts.push_back(seed % 3 == 0 ? 4 : 3 + static_cast<unsigned int>(random()) % 3);
            for (unsigned int j = 0; j < counts.back(); ++j) {
                const auto v = static_cast<unsigned int>(random()) % vertex_count;
                indices.push_back(random() % 64 == 0 ? none : seed % 2 == 0 ? v : v * v / vertex_count);
            }
        }
        EXPECT_EQ(Neighbourhood(counts, indices, vertex_count).opposites(), find_opposites(counts, indices));
    }
}

// Large meshes are paired by several threads, which share the polygons where these come in an order, and the vertices
// where not. A strip of polygons comes again at the end, so that its edges have more than two sides; a pole has more
// edges than most vertices.
TEST(PolyNeighbourhood, PartsOfALargeMeshAreOneMesh) {
    constexpr unsigned int n = 300, vertex_count = (n + 1) * (n + 1);
    std::vector<Indices> polygons;
    for (unsigned int i = 0; i < n * n; ++i) {
        const unsigned int a = i / n * (n + 1) + i % n, b = a + 1, c = b + n + 1, d = a + n + 1;
        if (i % 7 == 3)
            polygons.insert(polygons.end(), {{a, b, c}, {a, c, d}});
        else
            polygons.push_back({a, b, i % 11 == 5 ? none : c, d});
        if (i % 3000 == 1) polygons.push_back({0, c, b});
    }
    for (unsigned int p = 0; p < 500; ++p) polygons.push_back({polygons[p].rbegin(), polygons[p].rend()});
    for (const bool is_ordered : {true, false}) {
        if (!is_ordered) std::shuffle(polygons.begin(), polygons.end(), std::mt19937(7));
        Indices counts, indices;
        for (const Indices& polygon : polygons) {
            counts.push_back(static_cast<unsigned int>(polygon.size()));
            indices.insert(indices.end(), polygon.begin(), polygon.end());
        }
        const Indices expected = find_opposites(counts, indices);
        for (const unsigned int threads : {1u, 2u, 5u})
            SysThreadArena(threads).execute([&] {
                EXPECT_EQ(Neighbourhood(counts, indices, vertex_count).opposites(), expected) << threads << is_ordered;
            });
    }
}

TEST(PolyNeighbourhood, CreasesHoldForBothSides) {
    const CoreArray<unsigned char> smooth(8, 0);
    CoreArray<unsigned char> creases(8, 0);
    creases[1] = 1;  // the shared edge, flagged on one side
    creases[2] = 1;  // a border
    const Indices counts{4, 4}, indices{0, 1, 2, 3, 1, 4, 5, 2};
    {
        const PolyCreaseScope scope(creases);
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

}  // namespace

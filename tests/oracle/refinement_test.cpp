// Local refinement against OpenSubdiv's limit surface.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "oracles/refined_surface.h"
#include "sds/refinement/value_rules.h"

using namespace sds_test;

namespace {

constexpr unsigned int not_comparable = opposite_winding | corner_tags;
// Shares of the diagonal; degrees.
constexpr double single_bound = 2e-6;
constexpr double double_bound = 1e-13;
constexpr double normal_bound = 1e-6;

RefinedErrors expect_limit(const TaggedCage& cage, const OpenSubdivOracle& oracle, unsigned int depth,
                           double error = 0.0) {
    SCOPED_TRACE(cage.mesh.name + " at depth " + std::to_string(depth));
    const RefinedErrors errors = measure_refined(RefinedSurface(cage, depth, error), oracle, 4);
    EXPECT_LE(errors.regular, double_bound);
    EXPECT_LE(errors.regular_normal, normal_bound);
    EXPECT_LE(errors.regular_single, single_bound);
    return errors;
}

TEST(Refinement, RegularPatchesAreTheLimitOfEveryCage) {
    for (const ZooMesh* cage : cages_in(0, not_comparable)) {
        TaggedCage tagged = tag_cage(*cage);
        tagged.smooth_triangles = cage->name.find("smoothtris") != std::string::npos;
        const OpenSubdivOracle oracle(tagged, 9);
        for (const unsigned int depth : {1u, 2u, 4u}) expect_limit(tagged, oracle, depth);
    }
}

TEST(Refinement, BorderRulesHolesAndTrianglesKeepRegularPatchesExact) {
    std::vector<TaggedCage> cages;
    for (const char* name : {"sheet", "strip", "quad_fan5", "lone_pentagon"}) {
        cages.push_back(tag_cage(zoo_mesh(name)));
        cages.back().boundary = OpenSubdivBoundary::edge_only;
    }
    cages.push_back(tag_cage(zoo_mesh("sheet")));
    cages.back().boundary = OpenSubdivBoundary::none;
    cages.push_back(tag_cage(zoo_mesh("cube_two_darts")));
    cages.back().holes = {0, 1, 0, 0, 0, 0};
    cages.push_back(tag_cage(zoo_mesh("tetrahedron_dart")));
    cages.back().smooth_triangles = true;
    cages.push_back(tag_cage(make_pole(9)));
    cages.back().smooth_triangles = true;
    for (const TaggedCage& cage : cages) {
        const OpenSubdivOracle oracle(cage, 9);
        for (const unsigned int depth : {1u, 3u}) expect_limit(cage, oracle, depth);
    }
}

// Cages without irregular vertices whose sharpness is resolved by the depth have no leaves, so all of them is exact.
TEST(Refinement, ResolvedSharpnessIsExactEverywhere) {
    const unsigned int n = 8, m = 6;
    const ZooMesh torus = make_torus(n, m);
    const auto along = [&](unsigned int row, unsigned int from, unsigned int to) {
        std::vector<unsigned int> path;
        for (unsigned int i = from; i <= to; ++i) path.push_back(m * (i % n) + row);
        return path;
    };
    const auto across = [&](unsigned int column) {
        std::vector<unsigned int> path;
        for (unsigned int i = 0; i <= m; ++i) path.push_back(m * column + i % m);
        return path;
    };
    std::vector<std::pair<TaggedCage, unsigned int>> cages;
    const auto add = [&](unsigned int depth) -> TaggedCage& {
        cages.emplace_back(tag_cage(torus), depth);
        return cages.back().first;
    };
    for (const float s : {0.5f, 1.0f, 1.7f, 2.0f, 3.3f, 5.0f}) {
        sharpen(add(static_cast<unsigned int>(std::ceil(s))), along(2, 0, n), s);
        TaggedCage& open = add(static_cast<unsigned int>(std::ceil(s)));
        sharpen(open, along(2, 1, 5), s);
    }
    TaggedCage& crossing = add(4);
    sharpen(crossing, along(2, 0, n), 1.7f);
    sharpen(crossing, across(3), 3.3f);
    TaggedCage& mixed = add(2);
    sharpen(mixed, along(1, 0, n), 10.0f);
    sharpen(mixed, across(3), 2.0f);
    TaggedCage& varying = add(5);
    for (unsigned int i = 0; i < n; ++i) sharpen(varying, along(4, i, i + 1), 0.3f + 0.6f * static_cast<float>(i));
    TaggedCage& corners = add(3);
    sharpen(corners, along(1, 0, n), 10.0f);
    corners.vertex_sharpness.assign(torus.positions.size(), 0.0f);
    corners.vertex_sharpness[m * 2 + 1] = 2.3f;
    corners.vertex_sharpness[m * 5 + 4] = 2.3f;
    // Where a half decays from a sharpness between 1 and 4/3 the library's weight leaves [0, 1]: not compared here.
    TaggedCage& chaikin = add(5);
    chaikin.chaikin = true;
    for (unsigned int i = 0; i < n; ++i) sharpen(chaikin, along(4, i, i + 1), i % 2 == 0 ? 4.0f : 3.0f);
    sharpen(chaikin, across(3), 2.0f);
    for (const auto& [cage, depth] : cages) {
        const RefinedErrors errors = expect_limit(cage, OpenSubdivOracle(cage, 9), depth);
        EXPECT_EQ(errors.leaf_position, 0.0) << depth;
    }
}

// Every corner of every refined face's children, for sharpness of all kinds on all edges and vertices.
TEST(Refinement, PointsOfAllLevelsEqualUniformRefinement) {
    size_t compared = 0;
    for (const char* name : {"cube", "torus", "sheet", "prism5_crease_loop", "tetrahedron", "quad_fan5", "bow_tie",
                             "two_cubes_on_an_edge", "three_pages", "valence_two"})
        for (unsigned int seed = 0; seed < 4; ++seed) {
            TaggedCage cage = tag_cage(zoo_mesh(name));
            SCOPED_TRACE(cage.mesh.name + std::to_string(seed));
            std::mt19937 random(seed);
            // Quarters: sums of them are the same in any order.
            const auto sharpness = [&random] {
                const auto draw = static_cast<float>(random() % 20) * 0.25f;
                return draw < 1.0f ? 0.0f : draw > 4.5f ? 10.0f : draw - 0.75f;
            };
            for (float& s : cage.edge_sharpness) s = sharpness();
            for (size_t v = 0; v < cage.mesh.positions.size(); ++v) cage.vertex_sharpness.push_back(sharpness());
            constexpr int depth = 3;
            sds::RefinedTopology topology;
            build_topology(cage, depth, topology);
            const OpenSubdivLevels oracle(cage, depth + 1);

            sds::LevelValues<Vec3d> values, next;
            for (const Vec3f& p : cage.mesh.positions) values.points.add(Vec3d(p));
            std::vector<int> faces;
            // Where our corner 0 is in the library's face: it keeps quads in the parent's frame in any cage.
            std::vector<unsigned int> turns(cage.mesh.counts.size(), 0);
            for (size_t f = 0; f < cage.mesh.counts.size(); ++f) faces.push_back(static_cast<int>(f));
            double worst = 0.0;
            for (unsigned int l = 0; l + 1 < topology.get_level_count(); ++l) {
                const sds::RefinementLevel& level = topology.get_level(l);
                const sds::RefinementLevel& fine = topology.get_level(l + 1);
                sds::sum_neighbors(level, values);
                sds::refine_values(level, fine, false, values, next);
                const int fine_level = static_cast<int>(l) + 1;
                std::vector<int> fine_faces(fine.candidate_count);
                std::vector<unsigned int> fine_turns(fine.candidate_count);
                for (unsigned int f = 0; f < level.candidate_count; ++f) {
                    if (level.states[f] != sds::FaceState::refined) continue;
                    const unsigned int count = level.face_end(f) - level.face_begin(f);
                    for (unsigned int j = 0; j < count; ++j) {
                        const unsigned int child = level.first_children[f] + j;
                        const unsigned int corner = count == 4 ? (j + turns[f]) & 3u : j;
                        fine_faces[child] = oracle.child_face(fine_level - 1, faces[f], static_cast<int>(corner));
                        fine_turns[child] = level.is_quads() ? turns[f] : count == 4 ? j : 0;
                        for (unsigned int k = 0; k < 4; ++k) {
                            const Vec3d& expected = oracle.position(
                                fine_level, oracle.vertex(fine_level, fine_faces[child],
                                                          static_cast<int>((k + fine_turns[child]) & 3u)));
                            const Vec3d& point = next.points[fine.corner_vertices[4 * child + k]];
                            worst = std::max(worst, (point - expected).length());
                            ++compared;
                        }
                    }
                }
                faces = std::move(fine_faces);
                turns = std::move(fine_turns);
                std::swap(values, next);
            }
            EXPECT_LE(worst / cage.mesh.get_diagonal(), 1e-14);
        }
    EXPECT_GT(compared, 20000u);
}

// Edges cut down to the finest level, by halving: in a closed cage each piece is there twice with the same bits.
TEST(Refinement, SharedEdgesHaveTheSameBitsAcrossLevels) {
    using Piece = std::array<float, 12>;
    for (const ZooMesh* mesh : cages_in(0, not_comparable | nonmanifold_edge))
        for (const unsigned int depth : {1u, 2u, 3u, 5u}) {
            if (mesh->counts.size() > 600 && depth != 3) continue;
            TaggedCage cage = tag_cage(*mesh);
            SCOPED_TRACE(mesh->name + " at depth " + std::to_string(depth));
            // The deepest with a stop per vertex, and with sharpness that is left over.
            if (depth == 5)
                for (size_t c = 0; c < cage.edge_sharpness.size(); c += 5) cage.edge_sharpness[c] = 1.5f;
            if (depth == 3)
                for (size_t c = 0; c < cage.edge_sharpness.size(); c += 7) cage.edge_sharpness[c] = 4.5f;
            const RefinedSurface surface(cage, depth, depth == 5 ? 3e-3 : 0.0);
            std::vector<Piece> pieces;
            const auto cut = [&](const auto& self, const Piece& p, int steps) -> void {
                if (steps == 0) {
                    Piece reversed;
                    for (unsigned int i = 0; i < 12; ++i) reversed[i] = p[3 * (3 - i / 3) + i % 3];
                    pieces.push_back(std::min(p, reversed));
                    return;
                }
                Piece a, b;
                for (unsigned int i = 0; i < 3; ++i) {
                    const float ab = (p[i] + p[3 + i]) * 0.5f, bc = (p[3 + i] + p[6 + i]) * 0.5f,
                                cd = (p[6 + i] + p[9 + i]) * 0.5f;
                    const float abc = (ab + bc) * 0.5f, bcd = (bc + cd) * 0.5f, middle = (abc + bcd) * 0.5f;
                    a[i] = p[i], a[3 + i] = ab, a[6 + i] = abc, a[9 + i] = middle;
                    b[i] = middle, b[3 + i] = bcd, b[6 + i] = cd, b[9 + i] = p[9 + i];
                }
                self(self, a, steps - 1);
                self(self, b, steps - 1);
            };
            for (unsigned int p = 0; p < surface.get_patch_count(); ++p)
                for (unsigned int k = 0; k < 4; ++k) {
                    Piece edge;
                    const unsigned int places[4] = {4 * k, 4 * k + 1, 4 * ((k + 1) & 3u) + 3, 4 * ((k + 1) & 3u)};
                    for (unsigned int i = 0; i < 12; ++i)
                        edge[i] = surface.patches.get_controls()[16 * size_t{p} + places[i / 3]][i % 3];
                    cut(cut, edge, static_cast<int>(depth) - surface.topology.get_places().get_patch(p).level());
                }
            std::sort(pieces.begin(), pieces.end());
            size_t single = 0, many = 0;
            for (size_t i = 0, end = 0; i < pieces.size(); i = end) {
                while (end < pieces.size() && pieces[end] == pieces[i]) ++end;
                single += end - i == 1;
                many += end - i > 2;
            }
            size_t borders = 0;
            const CageAdjacency adjacency(*mesh);
            for (unsigned int c = 0; c < adjacency.start.size(); ++c) borders += adjacency.is_border(c);
            EXPECT_EQ(single, borders << (mesh->is_all_quads() ? depth : depth + 1));
            EXPECT_EQ(many, 0u);
        }
}

TEST(Refinement, PlacesCoverEveryQuadOnceAndLeadBack) {
    for (const char* name : {"cube_two_darts", "sheet_dart", "prism7_uvs", "tetrahedron", "quad_fan5"})
        for (const unsigned int depth : {0u, 1u, 2u, 5u}) {
            TaggedCage cage = tag_cage(zoo_mesh(name));
            cage.holes.assign(cage.mesh.counts.size(), 0);
            cage.holes[1] = 1;
            SCOPED_TRACE(cage.mesh.name + " at depth " + std::to_string(depth));
            sds::RefinedTopology topology;
            build_topology(cage, depth, topology);
            const sds::PatchPlaces& places = topology.get_places();
            double area = 0.0;
            for (unsigned int p = 0; p < places.get_patch_count(); ++p) {
                const double side = 1.0 / static_cast<double>(places.get_patch(p).derivative_scale());
                area += side * side;
                for (const double u : {0.0625, 0.4375, 0.8125})
                    for (const double v : {0.3125, 0.5625}) {
                        const sds::QuadPoint at = places.find_quad(p, u, v);
                        const sds::PatchPlace back = places.find_patch(at.quad, at.u, at.v);
                        EXPECT_EQ(back.patch, p);
                        EXPECT_EQ(back.u, u);
                        EXPECT_EQ(back.v, v);
                        EXPECT_EQ(back.turns, at.turns);
                    }
            }
            const std::vector<unsigned int> offsets = cage.mesh.get_polygon_offsets();
            const unsigned int hole_quads = cage.mesh.is_all_quads() ? 1 : cage.mesh.counts[1];
            const unsigned int hole = cage.mesh.is_all_quads() ? 1 : offsets[1];
            EXPECT_EQ(area, places.get_quad_count() - hole_quads);
            EXPECT_EQ(places.find_patch(hole, 0.5f, 0.25f).patch, sds::none);
        }
}

// The limit point and the tangent plane at a dart do not depend on the level that they are taken from.
TEST(Refinement, DartsKeepTheirLimitAtEveryDepth) {
    for (const char* name : {"cube_two_darts", "torus_dart", "sheet_dart", "tetrahedron_dart"}) {
        const ZooMesh& mesh = zoo_mesh(name);
        SCOPED_TRACE(name);
        const CageAdjacency adjacency(mesh);
        std::vector<unsigned int> sharp(mesh.positions.size(), 0);
        for (unsigned int c = 0; c < adjacency.start.size(); ++c)
            if (adjacency.is_sharp(c)) ++sharp[adjacency.start[c]];
        // First corner of the user quad at a control vertex, in both kinds of cages.
        const auto at_vertex = [&](const RefinedSurface& surface, unsigned int c) {
            const unsigned int k = mesh.is_all_quads() ? c % 4 : 0;
            const double u = k == 1 || k == 2 ? 1.0 : 0.0, v = k >= 2 ? 1.0 : 0.0;
            const sds::PatchPlace place =
                surface.topology.get_places().find_patch(mesh.is_all_quads() ? c / 4 : c, u, v);
            return surface.evaluate(place.patch, place.u, place.v);
        };
        const RefinedSurface first(tag_cage(mesh), 1);
        size_t darts = 0;
        for (const unsigned int depth : {2u, 4u, 7u}) {
            const RefinedSurface surface(tag_cage(mesh), depth);
            for (unsigned int c = 0; c < mesh.indices.size(); ++c) {
                if (sharp[mesh.indices[c]] != 1) continue;
                ++darts;
                const SurfacePoint a = at_vertex(first, c), b = at_vertex(surface, c);
                EXPECT_LE((a.position - b.position).length(), 1e-13 * surface.diagonal);
                EXPECT_LE(angle_between(a.normal_direction(), b.normal_direction()), 1e-7);
            }
        }
        EXPECT_GT(darts, 0u);
    }
}

// What lies beside irregular vertices, by level: patches and support to a quad, the largest distance from the limit and
// the 99th percentile of the normals' errors.
TEST(Refinement, LeavesConvergeAtTheKnownRates) {
    struct Row {
        const char* name;
        unsigned int depth;
        double patches, support, distance, normal99;
    };
    static constexpr Row rows[] = {
        {"meshes/cube", 2, 16, 0, 6.0e-5, 0.72},        {"meshes/cube", 4, 40, 40, 1.5e-6, 0.006},
        {"meshes/toroidal_tet", 2, 10, 4, 8.0e-4, 1.6}, {"meshes/toroidal_tet", 6, 34, 44, 1.7e-5, 0.001},
        {"meshes/car", 1, 2.3, 0.8, 4.6e-4, 1.4},       {"meshes/car", 2, 4.5, 2.8, 1.7e-4, 0.24},
        {"meshes/car", 3, 6.7, 6.6, 5.9e-5, 0.05},      {"meshes/pole64", 2, 4, 2.9, 6.7e-6, 0.24},
    };
    for (const Row& row : rows)
        for (const ZooMesh& mesh : cages_on_disk()) {
            if (mesh.name != row.name) continue;
            SCOPED_TRACE(mesh.name + " at depth " + std::to_string(row.depth));
            const TaggedCage cage = tag_cage(mesh);
            const RefinedSurface surface(cage, row.depth);
            const RefinedErrors errors = measure_refined(surface, OpenSubdivOracle(cage, 10));
            const double quads = surface.topology.get_places().get_quad_count();
            EXPECT_NEAR(surface.get_patch_count() / quads, row.patches, 0.02 * row.patches);
            EXPECT_NEAR(surface.get_support_count() / quads, row.support, 0.02 * row.support + 0.05);
            EXPECT_LE(errors.leaf_distance, 1.2 * row.distance);
            EXPECT_LE(errors.normals.percentile99, 1.2 * row.normal99);
        }
}

// A stop per vertex reaches the distance that a uniform depth does with fewer patches, and a cap below the sharpness
// leaves less of an error than either way of taking the rest.
TEST(Refinement, StopsAndCapsStayNearTheLimit) {
    for (const ZooMesh& mesh : cages_on_disk()) {
        if (mesh.name != "meshes/car" && mesh.name != "meshes/bishop") continue;
        const TaggedCage cage = tag_cage(mesh);
        const RefinedErrors errors = expect_limit(cage, OpenSubdivOracle(cage, 10), 8, 1e-4);
        EXPECT_LE(errors.leaf_distance, 1e-5);
        EXPECT_LT(RefinedSurface(cage, 8, 1e-4).get_patch_count(), 0.8 * RefinedSurface(cage, 5).get_patch_count());
    }
    for (const auto& [s, bound] : {std::pair(1.0f, 5.0e-3), std::pair(2.0f, 4.7e-3), std::pair(5.0f, 6.9e-4)}) {
        TaggedCage cage = tag_cage(make_torus(8, 6));
        sharpen(cage, {2, 8, 14, 20, 26, 32, 38, 44, 2}, s);
        EXPECT_LE(measure_refined(RefinedSurface(cage, 0), OpenSubdivOracle(cage, 10)).leaf_distance, bound) << s;
    }
}

}  // namespace

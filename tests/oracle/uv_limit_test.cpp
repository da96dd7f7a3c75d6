// UV modes against those of OpenSubdiv's face-varying rules that are the same rule.
#include <gtest/gtest.h>

#include <algorithm>

#include "oracles/uv_errors.h"

using namespace sds_test;

namespace {

constexpr double bound = 2e-6;  // of the UV range

// UV points at which several charts or fans of one meet.
bool has_shared_points(const ZooMesh& cage) {
    ZooMesh map;
    map.counts = cage.counts;
    map.indices = cage.uv_indices;
    map.corner_creases = cage.corner_creases;
    const std::vector<unsigned int> fans = count_fans(CageAdjacency(map), cage.uv_points.size());
    return std::any_of(fans.begin(), fans.end(), [](unsigned int count) { return count > 1; });
}

void expect_rule(UvMode mode, FaceVarying rule,
                 OpenSubdivOracle::Boundary boundary = OpenSubdivOracle::Boundary::edge_and_corner) {
    size_t regular = 0;
    for (const ZooMesh* cage : cages_in(uvs, nonmanifold_edge | nonmanifold_vertex | opposite_winding | corner_tags)) {
        // Two n-gons around an inner vertex follow a curve's rule.
        const std::vector<unsigned char> exceptions = find_exceptions(*cage);
        if (std::find(exceptions.begin(), exceptions.end(), 1) != exceptions.end()) continue;
        // A point that nobody keeps is smoothed by all its charts there, by one with us.
        if (rule == FaceVarying::linear_none && has_shared_points(*cage)) continue;
        SCOPED_TRACE(cage->name + ", " + name_of(mode));
        const BuiltSurface surface(*cage, {.uv_mode = mode});
        const UvErrors errors = measure_uvs(surface, OpenSubdivOracle(*cage, boundary, rule));
        EXPECT_LE(errors.regular.worst, bound);
        EXPECT_LE(errors.corners.worst, bound);
        regular += errors.regular.count;
    }
    EXPECT_GT(regular, 0u);
}

TEST(UvLimit, CornersFixedIsCornersOnly) { expect_rule(UvMode::corners_fixed, FaceVarying::corners_only); }
TEST(UvLimit, CornersPlus1IsItsRule) { expect_rule(UvMode::corners_plus1, FaceVarying::corners_plus1); }
TEST(UvLimit, CornersPlus2IsItsRule) { expect_rule(UvMode::corners_plus2, FaceVarying::corners_plus2); }
TEST(UvLimit, BordersFixedIsBoundaries) { expect_rule(UvMode::borders_fixed, FaceVarying::boundaries); }
TEST(UvLimit, AllFixedIsLinear) { expect_rule(UvMode::all_fixed, FaceVarying::linear_all); }
// The corners of the mesh are then smooth too.
TEST(UvLimit, AllSmoothedIsNoneOnSmoothBorders) {
    expect_rule(UvMode::all_smoothed, FaceVarying::linear_none, OpenSubdivOracle::Boundary::edge_only);
}

}  // namespace

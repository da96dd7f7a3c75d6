// Positions of the patches against OpenSubdiv's limit surface.
#include <gtest/gtest.h>

#include "oracles/surface_errors.h"

using namespace sds_test;

namespace {

constexpr unsigned int not_comparable = nonmanifold_edge | opposite_winding | corner_tags;
// Shares of the cage's diagonal.
constexpr double single_bound = 2e-6;
constexpr double double_bound = 1e-13;
// The patch rule is an approximation away from regular vertices, the worse the higher the valence. The zoo's cages are
// all features and no surface in between, so that an error is a larger share of their size.
struct IrregularBounds {
    double usual;
    double high_valence;
};
constexpr IrregularBounds zoo_bounds{0.04, 0.1};
constexpr IrregularBounds real_bounds{0.03, 0.05};
constexpr unsigned int high_valence = 20;

unsigned int largest_valence(const BuiltSurface& surface) {
    unsigned int largest = 0;
    for (const SdsMeshBase::VertexLocalTopology& fan : surface.geometry.get_local_topologies())
        largest = std::max(largest, fan.valence);
    return largest;
}

void expect_limit(const ZooMesh& cage, const IrregularBounds& irregular, SdsMeshGeometry::InterpolationMode mode,
                  OpenSubdivOracle::Boundary boundary) {
    SCOPED_TRACE(cage.name);
    const BuiltSurface surface(cage, {.mode = mode});
    const PositionErrors errors =
        measure_positions(cage, surface, DoubleSurface(cage, surface), OpenSubdivOracle(cage, boundary));
    EXPECT_LE(errors.regular.worst, single_bound);
    EXPECT_LE(errors.regular_double.worst, double_bound);
    EXPECT_LE(errors.corners.worst, single_bound);
    EXPECT_LE(errors.corners_double.worst, double_bound);
    if (!cage.is_in(nonmanifold_vertex)) {
        EXPECT_LE(errors.other.worst,
                  largest_valence(surface) < high_valence ? irregular.usual : irregular.high_valence);
    }
}

void expect_limit(const std::vector<ZooMesh>& cages, const IrregularBounds& irregular) {
    for (const ZooMesh& cage : cages)
        if (!cage.is_in(not_comparable))
            expect_limit(cage, irregular, SdsMeshGeometry::InterpolationMode::corners_fixed,
                         OpenSubdivOracle::Boundary::edge_and_corner);
}

TEST(LimitPosition, ZooCagesFollowEdgeAndCorner) { expect_limit(mesh_zoo(), zoo_bounds); }

TEST(LimitPosition, CagesOnDiskFollowEdgeAndCorner) {
    if (cages_on_disk().empty()) GTEST_SKIP() << "no cages on disk";
    expect_limit(cages_on_disk(), real_bounds);
}

// A corner that is not kept is a boundary that turns.
TEST(LimitPosition, SmoothedCornersFollowEdgeOnly) {
    for (const char* name : {"sheet", "strip", "sheet_crease_across", "quad_fan5", "lone_triangle", "lone_pentagon",
                             "cube_crease_loop", "torus"})
        expect_limit(zoo_mesh(name), zoo_bounds, SdsMeshGeometry::InterpolationMode::all_smoothed,
                     OpenSubdivOracle::Boundary::edge_only);
}

}  // namespace

// Tangent planes across edges, normals and derivatives.
#include <gtest/gtest.h>

#include "oracles/surface_errors.h"

using namespace sds_test;

namespace {

// Degrees of rounding in double precision, where slivers lose some digits.
constexpr double double_gap = 1e-6;
constexpr double double_normal = 1e-6;
// OpenSubdiv's end-cap patches meet the limit tangents of valence 3 only as they are isolated.
constexpr double isolated_normal = 0.01;
constexpr unsigned int not_comparable = nonmanifold_edge | opposite_winding | corner_tags;

void expect_no_gap(const ZooMesh& cage) {
    SCOPED_TRACE(cage.name);
    const BuiltSurface surface(cage);
    const TangentGaps gaps = measure_tangent_gaps(cage, surface, DoubleSurface(cage, surface));
    EXPECT_LE(gaps.single.worst_ratio, 1.0)
        << "worst " << gaps.single.degrees.worst << " degrees, half-edge " << gaps.worst_half_edge;
    EXPECT_LE(gaps.twin.worst, double_gap) << "half-edge " << gaps.worst_half_edge;
}

TEST(TangentPlane, NoGapAcrossSmoothEdgesOfZoo) {
    for (const ZooMesh& cage : mesh_zoo())
        if (!cage.is_in(opposite_winding)) expect_no_gap(cage);
}

TEST(TangentPlane, NoGapAcrossSmoothEdgesOfCagesOnDisk) {
    if (cages_on_disk().empty()) GTEST_SKIP() << "no cages on disk";
    for (const ZooMesh& cage : cages_on_disk())
        if (!cage.is_in(opposite_winding)) expect_no_gap(cage);
}

// Angles do not depend on where the object stands, beyond what its coordinates round.
TEST(TangentPlane, NoGapFarFromOrigin) {
    for (const char* name : {"tetrahedron", "prism7_uvs", "pole64", "quad_fan5", "cube_two_darts"}) {
        ZooMesh cage = zoo_mesh(name);
        for (Vec3f& p : cage.positions) p += Vec3f(100.0f, -200.0f, 50.0f);
        expect_no_gap(cage);
    }
}

// Scaling a cage by a power of two scales everything exactly, so no rule may hold an absolute length. Sharp edges that
// turn back are aside: the guard against folds is one.
TEST(TangentPlane, TangentsScaleWithTheCage) {
    for (const char* name : {"tetrahedron", "pole8", "prism7_uvs", "sheet_crease_across", "torus_dart"}) {
        SCOPED_TRACE(name);
        const ZooMesh& cage = zoo_mesh(name);
        ZooMesh small = cage;
        for (Vec3f& p : small.positions) p *= 0x1p-12f;
        const BuiltSurface large_surface(cage);
        const BuiltSurface small_surface(small);
        const auto& large_tangents = large_surface.geometry.get_bezier_tangents_array();
        const auto& small_tangents = small_surface.geometry.get_bezier_tangents_array();
        ASSERT_EQ(large_tangents.get_count(), small_tangents.get_count());
        for (unsigned int i = 0; i < large_tangents.get_count(); ++i)
            ASSERT_EQ(large_tangents[i] * 0x1p-12f, small_tangents[i]) << "tangent " << i;
    }
}

void expect_limit_normals(const std::vector<ZooMesh>& cages) {
    for (const ZooMesh& cage : cages) {
        if (cage.is_in(not_comparable)) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const NormalErrors errors = measure_normals(cage, surface, OpenSubdivOracle(cage));
        EXPECT_LE(errors.interior.worst_ratio, 1.0) << errors.interior.degrees.worst << " degrees";
        EXPECT_LE(errors.sharp.worst_ratio, 1.0) << errors.sharp.degrees.worst << " degrees";
    }
}

TEST(Normals, RegularPatchesOfZooHaveTheLimitNormal) { expect_limit_normals(mesh_zoo()); }

TEST(Normals, RegularPatchesOfCagesOnDiskHaveTheLimitNormal) {
    if (cages_on_disk().empty()) GTEST_SKIP() << "no cages on disk";
    expect_limit_normals(cages_on_disk());
}

// At an irregular corner the two stored tangents span the limit's own tangent plane.
TEST(Normals, IrregularCornersHaveTheLimitNormal) {
    for (const char* name : {"cube", "tetrahedron", "pole8", "pole64", "prism3", "prism7_uvs", "quad_fan3", "quad_fan5",
                             "quad_fan6_crease"}) {
        SCOPED_TRACE(name);
        const ZooMesh& cage = zoo_mesh(name);
        const BuiltSurface surface(cage);
        const DoubleSurface twin(cage, surface);
        const OpenSubdivOracle oracle(cage);
        const PatchClasses classes = classify_patches(surface.context());
        for (unsigned int e = 0; e < 4 * surface.get_quad_count(); ++e) {
            const SdsMeshBase::VertexLocalTopology& fan = surface.geometry.get_local_topologies()[e];
            if (!fan.closed || fan.valence == 4 || classes.near_dart[surface.base.get_quad_indices()[e]] != 0) continue;
            const PatchPlace place = place_on_edge(sds::corner_of(e), 0.0);
            const Vec3d limit = oracle.evaluate(sds::quad_of(e), place.u, place.v).normal_direction();
            const Vec3d ours = twin.evaluate(sds::quad_of(e), place.u, place.v).normal_direction();
            ASSERT_LE(angle_between(ours, limit), fan.valence == 3 ? isolated_normal : double_normal)
                << "half-edge " << e << " of valence " << fan.valence;
        }
    }
}

TEST(Derivatives, AgreeWithFiniteDifferencesWhereNetsAreNotReplaced) {
    size_t count = 0;
    for (const ZooMesh* cage : cages_in(0, corner_tags)) {
        SCOPED_TRACE(cage->name);
        const BuiltSurface surface(*cage);
        const ErrorSummary errors = measure_derivatives(surface, DoubleSurface(*cage, surface));
        EXPECT_LE(errors.worst, 1e-5);
        count += errors.count;
    }
    EXPECT_GT(count, 0u);
}

}  // namespace

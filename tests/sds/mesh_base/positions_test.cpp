#include <gmock/gmock.h>

#include <random>

#include "../surface_checks.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;

TEST(SubdivisionPositions, SecondArrayFollowsTheSameWeightsToTheBit) {
    for (const ZooMesh& cage : mesh_zoo()) {
        if (cage.is_all_quads()) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const SdsMeshBase::TopologyContext context = surface.context();
        std::mt19937 random(5);
        std::uniform_real_distribution<float> uniform(-1, 1);
        std::vector<Vec3f> other;
        for (size_t i = 0; i < cage.positions.size(); ++i)
            other.emplace_back(uniform(random), uniform(random), uniform(random));
        const unsigned int count = surface.base.get_subdivision()->vertex_rings.get_count();
        CoreArray<Vec3f> a(count, {0, 0, 0}), b(count, {0, 0, 0}), a2(count, {0, 0, 0}), b2(count, {0, 0, 0});
        for (const bool linear : {false, true}) {
            SdsMeshBase::compute_subdivision_positions(to_core_array(cage.positions), context, a.get_data(), linear,
                                                       nullptr);
            SdsMeshBase::compute_subdivision_positions(to_core_array(other), context, b.get_data(), linear, nullptr);
            SdsMeshBase::compute_subdivision_positions(to_core_array(cage.positions), to_core_array(other), context,
                                                       a2.get_data(), b2.get_data(), linear, nullptr);
            for (unsigned int v = 0; v < count; ++v) {
                EXPECT_EQ(a[v], a2[v]) << v;
                EXPECT_EQ(b[v], b2[v]) << v;
            }
        }
    }
}

TEST(LimitCorners, SecondKeepBitIsHonoured) {
    const BuiltSurface surface(zoo_mesh("cube"));
    CoreArray<SdsMeshBase::VertexInfo> infos = surface.geometry.get_vertex_infos();
    SdsMeshBase::TopologyContext context = surface.context();
    context.vertex_infos = &infos;
    Vec3f corner;
    const unsigned int v = surface.base.get_quad_indices()[0];
    SdsMeshBase::compute_bezier_corner(context, 0, surface.geometry.get_vertices().get_data(), corner);
    EXPECT_FALSE(corner == surface.geometry.get_vertices()[v]);
    infos[v].bits = 4;
    SdsMeshBase::compute_bezier_corner(context, 0, surface.geometry.get_vertices().get_data(), corner);
    EXPECT_EQ(corner, surface.geometry.get_vertices()[v]);
}

}  // namespace

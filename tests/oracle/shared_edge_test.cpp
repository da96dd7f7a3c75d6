// Two patches that share an edge have the same points along it, to the bit: what rays and boxes rely on.
#include <gtest/gtest.h>

#include <cstring>

#include "oracles/surface_errors.h"

using namespace sds_test;
using sds::arriving_edge_control;
using sds::corner_control;
using sds::leaving_edge_control;

namespace {

bool same_bits(const Vec3f& a, const Vec3f& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The four controls along half-edge e, from its start to its end.
struct EdgeControls {
    Vec3f points[4];
    EdgeControls(const Vec3f* controls, unsigned int k)
        : points{controls[corner_control(k)], controls[leaving_edge_control(k)],
                 controls[arriving_edge_control((k + 1) & 3u)], controls[corner_control((k + 1) & 3u)]} {}
};

template <class GetControls>
void expect_same_edges(const SdsMeshBase::EdgesTopology& edges, const CoreBasicArray<unsigned int>& indices,
                       const GetControls& get_controls) {
    for (unsigned int e = 0; e < indices.get_count(); ++e) {
        const unsigned int o = edges.opposite_edges[e];
        if (o == sds::none || o < e) continue;
        if (indices[o] != indices[sds::next_in_quad(e)] || indices[e] != indices[sds::next_in_quad(o)]) continue;
        if (indices[e] == sds::none || indices[o] == sds::none) continue;
        Vec3f here[16], there[16];
        if (!get_controls(sds::quad_of(e), here) || !get_controls(sds::quad_of(o), there)) continue;
        const EdgeControls a(here, sds::corner_of(e));
        const EdgeControls b(there, sds::corner_of(o));
        for (unsigned int i = 0; i < 4; ++i)
            ASSERT_TRUE(same_bits(a.points[i], b.points[3 - i])) << "point " << i << " of half-edge " << e;
    }
}

TEST(SharedEdges, BoundaryControlsAreTheSameBits) {
    for (const ZooMesh* cage : all_cages())
        for (unsigned int mode = 0; mode < 4; ++mode) {
            SCOPED_TRACE(cage->name + ", mode " + std::to_string(mode));
            const BuiltSurface surface(*cage, {.mode = static_cast<SdsMeshGeometry::InterpolationMode>(mode)});
            expect_same_edges(surface.base.get_edges(), surface.base.get_quad_indices(),
                              [&](unsigned int q, Vec3f* out) {
                                  surface.geometry.get_bezier_controls(q, out);
                                  return true;
                              });
        }
}

TEST(SharedEdges, BlendedControlsAreTheSameBits) {
    for (const char* name : {"cube", "prism7_uvs", "sheet_crease_across", "pole64"}) {
        SCOPED_TRACE(name);
        const ZooMesh& cage = zoo_mesh(name);
        std::vector<Vec3f> motion;
        for (const Vec3f& p : cage.positions) motion.emplace_back(0.3f * p[1], -0.7f * p[2], p[0] * p[1]);
        const BuiltSurface surface(cage, {.motion_vectors = motion});
        const SdsBezierMesh moved = surface.geometry.get_bezier_mesh_at(0.37);
        expect_same_edges(surface.base.get_edges(), surface.base.get_quad_indices(), [&](unsigned int q, Vec3f* out) {
            moved.get_patch_controls(q, out);
            return true;
        });
    }
}

TEST(SharedEdges, UvControlsAreTheSameBitsInsideIslands) {
    for (const ZooMesh* cage : cages_in(uvs)) {
        SCOPED_TRACE(cage->name);
        const BuiltSurface surface(*cage);
        const SdsMeshMaps::SdsUvMap& map = surface.maps.get_uv_map(0);
        expect_same_edges(map.edges, map.quad_indices, [&](unsigned int q, Vec3f* out) {
            if (!surface.maps.is_primitive_uv_mapped(q, 0)) return false;
            surface.maps.get_bezier_controls(0, q, out);
            return true;
        });
    }
}

}  // namespace

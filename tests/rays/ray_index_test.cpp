// A mesh's own hierarchy against the host's over the same patches, and packets against single rays.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <optional>
#include <random>

#include "oracles/built_surface.h"
#include "oracles/mesh_zoo.h"
#include "oracles/ray_oracle.h"
#include "render/scene.h"
#include "sds/refinement/patch_places.h"

namespace sds_test {
namespace {

// Leaves the hierarchy to the host.
struct PlainMesh : SdsMesh {
    explicit PlainMesh(const SdsMesh& mesh) : SdsMesh(mesh) {}
    std::unique_ptr<const GeometryRayIndex> make_ray_index(const CoreBasicArray<GMathBbox3<double>>&) const override {
        return nullptr;
    }
};

// Rays in packets of eight that run nearly the same way, some of them past the surface, with directions of any length.
// Hits of a third count between two distances only, of another third behind the origin only.
std::vector<GeometryRay> make_rays(const GMathBbox3<double>& box, unsigned int packet_count) {
    std::mt19937_64 random(packet_count);
    std::normal_distribution<double> normal;
    const auto around = [&](double radii) {
        const Vec3d offset(normal(random), normal(random), normal(random));
        return offset * (0.5 * radii * box.get_diagonal() / offset.length());
    };
    std::vector<GeometryRay> rays;
    for (unsigned int k = 0; k < packet_count; ++k) {
        const Vec3d origin = box.get_center() + around(2.0), target = box.get_center() + around(0.8);
        const double length = k % 4 == 0 ? 1e-15 : k % 4 == 1 ? 1e15 : 1.0;
        for (unsigned int i = 0; i < 8; ++i) {
            GeometryRay ray;
            const Vec3d direction = target + around(0.02) - origin;
            ray.start(k % 3 == 2 ? origin + direction * 3.0 : origin, direction * length);
            if (k % 3 == 1) ray.tnear = 0.4 / length, ray.tfar = 1.1 / length;
            if (k % 3 == 2) ray.tnear = -2.7 / length, ray.tfar = -1.6 / length;
            rays.push_back(ray);
        }
    }
    return rays;
}

class OwnHierarchy : public ::testing::TestWithParam<const ZooMesh*> {};

std::string name_of_cage(const ::testing::TestParamInfo<const ZooMesh*>& info) { return case_name(info.param->name); }

INSTANTIATE_TEST_SUITE_P(Cages, OwnHierarchy, ::testing::ValuesIn(cages_in(0, huge_valence)), name_of_cage);

// A bent polygon of many corners, aslant: its patches are slivers that meet in one point, and are sliced.
const ZooMesh* make_pole(unsigned int corner_count) {
    auto* const pole = new ZooMesh;
    pole->name = "pole of " + std::to_string(corner_count);
    pole->groups = ngon | huge_valence;
    pole->counts = {corner_count};
    for (unsigned int i = 0; i < corner_count; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / corner_count;
        const Vec3d around(std::cos(angle), std::sin(angle), 0.2 * std::cos(3.0 * angle));
        pole->positions.emplace_back(Vec3d(5.0 + around[0] - around[2], 3.0 + around[1], around[2] + 0.7 * around[0]));
        pole->indices.push_back(i);
    }
    pole->corner_creases.assign(corner_count, 0);
    return pole;
}

INSTANTIATE_TEST_SUITE_P(Slivers, OwnHierarchy, ::testing::Values(make_pole(300), make_pole(8500)), name_of_cage);

TEST_P(OwnHierarchy, FindsWhatTheHostsFinds) {
    for (const unsigned int depth : {0u, 2u})
        for (const unsigned int level : {0u, 1u, 2u, 3u, 4u, 5u}) {
            SCOPED_TRACE(testing::Message() << "depth " << depth << ", level " << level);
            BuiltSurface::Options options;
            options.level = level;
            options.refinement.depth = depth;
            const BuiltSurface surface(*GetParam(), options);
            const PlainMesh plain(surface.mesh);
            sds_render::Scene own, hosts;
            own.add(surface.mesh);
            own.commit();
            hosts.add(plain);
            hosts.commit();
            sds_render::RenderThread thread(own.get_shader_ctx());
            // Kept corners round in their own way, and so do roots found from another start. Those of refined surfaces
            // are kept by quads.
            const auto cells = [&] {
                const SdsMesh& mesh = surface.mesh;
                const int of_patch = static_cast<int>(mesh.get_cell_level(0));
                return depth == 0 ? of_patch : of_patch + mesh.get_geometry()->get_places().get_patch(0).level();
            };
            const bool is_exact = level != 0 && surface.mesh.get_primitive_count() != 0 && (cells() < 2 || cells() > 3);
            const double tolerance = is_exact ? 0.0 : 1e-5 * surface.get_diagonal();
            std::optional<RayOracle> cells_of_patches;
            // Places in triangles that are thousands of times as long as wide are rounded as often as far.
            if (level != 0 && !is_exact && !GetParam()->is_in(huge_valence)) cells_of_patches.emplace(surface.mesh);
            unsigned int hits = 0, differences = 0;
            const std::vector<GeometryRay> rays = make_rays(surface.mesh.get_bbox(), 40);
            for (size_t first = 0; first < rays.size(); first += 8) {
                GeometryRay packet[8];
                unsigned int objects[8];
                std::copy_n(rays.begin() + static_cast<std::ptrdiff_t>(first), 8, packet);
                own.intersect_packet(packet, 8, thread, objects);
                for (unsigned int i = 0; i < 8; ++i) {
                    GeometryRay alone = rays[first + i], other = rays[first + i], shadow = rays[first + i];
                    const bool is_hit = own.intersect(alone, thread), is_other = hosts.intersect(other, thread);
                    hits += is_hit ? 1 : 0;
                    EXPECT_EQ(own.occluded(shadow, thread), is_hit);
                    EXPECT_EQ(objects[i] == 0, is_hit);
                    EXPECT_EQ(packet[i].hit.t, alone.hit.t);
                    EXPECT_EQ(packet[i].hit.primitive, alone.hit.primitive);
                    if (is_exact) {
                        ASSERT_EQ(is_hit, is_other);
                        EXPECT_EQ(alone.hit.primitive, other.hit.primitive);
                    }
                    const double length = alone.direction.length();
                    if (is_hit && cells_of_patches) {
                        const Vec3d there = cells_of_patches->point(alone.hit.primitive, alone.hit.u, alone.hit.v);
                        EXPECT_LE((there - (alone.origin + alone.direction * alone.hit.t)).length(), tolerance);
                    }
                    const bool agrees =
                        is_hit == is_other && (!is_hit || std::fabs(alone.hit.t - other.hit.t) * length <= tolerance);
                    differences += agrees ? 0 : 1;
                }
            }
            EXPECT_LE(differences, is_exact ? 0u : 1u);
            if (surface.get_quad_count() != 0) {
                EXPECT_GT(hits, 0u);
            }
        }
}

// Memory limits go by the estimate, before there are boxes to build from.
TEST_P(OwnHierarchy, TakesNoMoreThanItsEstimate) {
    for (const unsigned int depth : {0u, 2u, 3u})
        for (const unsigned int level : {0u, 2u, 4u, 6u}) {
            SCOPED_TRACE(testing::Message() << "depth " << depth << ", level " << level);
            BuiltSurface::Options options;
            options.level = level;
            options.refinement.depth = depth;
            const BuiltSurface surface(*GetParam(), options);
            CoreArray<GMathBbox3<double>> boxes(surface.mesh.get_primitive_count());
            const CtxShader shader;
            if (!boxes.is_empty())
                surface.mesh.compute_primitive_bboxes(CtxEval(shader), 0, boxes.get_count(), boxes.get_data());
            const auto index = surface.mesh.make_ray_index(boxes);
            const size_t estimate = surface.mesh.estimate_ray_index_size();
            ASSERT_EQ(index == nullptr, estimate == 0);
            if (index == nullptr) continue;
            EXPECT_LE(index->get_memory_size(), estimate);
            EXPECT_LE(estimate, index->get_memory_size() * 2 + 512);
        }
}

}  // namespace
}  // namespace sds_test

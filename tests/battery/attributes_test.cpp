// Maps and motion that do not fit their mesh, and those that fit in the strangest way.
#include <gtest/gtest.h>

#include "battery/examine.h"

namespace sds_test {
namespace {

using enum PolyFindingCode;

constexpr unsigned int none = 0xFFFFFFFF;

ZooMesh with_map(const char* name, std::vector<Vec3f> points, unsigned int (*index)(unsigned int corner)) {
    ZooMesh mesh = zoo_mesh(name);
    mesh.groups |= uvs;
    mesh.uv_points = std::move(points);
    mesh.uv_indices.clear();
    for (unsigned int c = 0; c < mesh.indices.size(); ++c) mesh.uv_indices.push_back(index(c));
    return mesh;
}

const std::vector<Vec3f> four_points{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};

TEST(BatteryAttributes, UvMaps) {
    for (const char* name : {"cube", "prism5_crease_loop", "moebius_strip", "three_pages", "valence_two", "pole64"}) {
        SCOPED_TRACE(name);
        std::vector<PolyFindingCode> mesh_codes;
        check_cage(zoo_mesh(name)).for_each([&](PolyFindingCode code) { mesh_codes.push_back(code); });
        // A seam through every edge; one UV for the whole mesh; the same four for every polygon; nothing mapped.
        examine(with_map(name, std::vector<Vec3f>(1000, {0.5f, 0.5f, 0}), [](unsigned int c) { return c; }),
                mesh_codes);
        examine(with_map(name, {{0.5f, 0.5f, 0}}, [](unsigned int) { return 0u; }), mesh_codes);
        examine(with_map(name, four_points, [](unsigned int c) { return c % 4; }), mesh_codes);
        examine(with_map(name, four_points, [](unsigned int) { return none; }), mesh_codes);
        mesh_codes.push_back(half_mapped_polygon);
        examine(with_map(name, four_points, [](unsigned int c) { return c == 1 ? none : c % 4; }), mesh_codes);
    }
}

// Motion of any size that the checker lets pass; another count of vectors is no motion at all.
TEST(BatteryAttributes, MotionVectors) {
    const ZooMesh& cage = zoo_mesh("prism5_crease_loop");
    for (const float size : {0.0f, -0.0f, 1e-45f, 1e-20f, 1.0f, 1e17f}) {
        SCOPED_TRACE(size);
        BuiltSurface::Options options{.motion_vectors = std::vector<Vec3f>(cage.positions.size(), {size, -size, size})};
        expect_finite(BuiltSurface(cage, options));
        options.motion_vectors.pop_back();
        const BuiltSurface still(cage, options);
        EXPECT_TRUE(still.geometry.get_motion_vectors().is_empty());
        EXPECT_FALSE(still.mesh.is_animated());
    }
}

}  // namespace
}  // namespace sds_test

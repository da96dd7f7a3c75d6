#include <gmock/gmock.h>

#include "../surface_checks.h"
#include "qn_ctx/ctx_eval.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using Color8 = GMathVec4<unsigned char>;

constexpr unsigned int none = 0xFFFFFFFF;
const CtxShader shader;
const CtxEval ctx(shader);

Color8 red(unsigned char r) { return {r, 0, 0, 255}; }

struct Colored {
    BuiltSurface surface;
    SdsMeshMaps maps;

    Colored(const ZooMesh& cage, std::vector<Color8> colors, std::vector<unsigned int> indices,
            AppProgressBar* bar = nullptr)
        : surface(cage) {
        CoreArray<GeometryColorMap> host;
        host.add({CoreString("paint"), to_core_array(colors), to_core_array(indices)});
        maps.set(surface.base, to_core_array(cage.counts), {}, host, SdsMeshMaps::InterpolationMode::corners_fixed,
                 bar);
    }
    GMathVec4<float> at(unsigned int q, double u, double v) const {
        GMathVec4<float> color;
        maps.compute_fragment_color(ctx, {q, u, v, 0, 0}, 0, color);
        return color;
    }
};

const ZooMesh& triangle() { return zoo_mesh("lone_triangle"); }

TEST(Colors, MeansAreTruncated) {
    const Colored painted(triangle(), {red(255), red(254), red(254)}, {});
    const CoreArray<Color8> colors = painted.maps.get_color_map_colors(0);
    EXPECT_EQ(colors[0], red(255));
    EXPECT_EQ(colors[3], red(254));  // 254.5
    EXPECT_EQ(colors[6], red(254));  // 254.33
    const Colored dark(triangle(), {{10, 0, 0, 0}, {11, 0, 0, 0}, {11, 0, 0, 0}}, {});
    EXPECT_EQ(dark.maps.get_color_map_colors(0)[3], Color8(10, 0, 0, 0));
}

// With one color per polygon corner and indices that say so, the colors of the step are the same.
TEST(Colors, IndexedMapsTakeTheirOwnStep) {
    for (const char* name : {"tetrahedron", "prism5_crease_loop", "lone_pentagon"}) {
        SCOPED_TRACE(name);
        const ZooMesh& cage = zoo_mesh(name);
        std::vector<Color8> per_vertex, per_corner;
        std::vector<unsigned int> corners;
        for (unsigned int v = 0; v < cage.positions.size(); ++v)
            per_vertex.emplace_back(static_cast<unsigned char>(v * 37), static_cast<unsigned char>(255 - v * 11),
                                    static_cast<unsigned char>(v), static_cast<unsigned char>(255));
        for (unsigned int c = 0; c < cage.indices.size(); ++c) {
            per_corner.push_back(per_vertex[cage.indices[c]]);
            corners.push_back(c);
        }
        const Colored follow(cage, per_vertex, {}), indexed(cage, per_vertex, cage.indices),
            apart(cage, per_corner, corners);
        EXPECT_EQ(indexed.maps.get_color_map_indices(0).get_count(), 4 * follow.surface.get_quad_count());
        for (unsigned int q = 0; q < follow.surface.get_quad_count(); ++q)
            for (const double u : {0.0, 0.4, 1.0})
                for (const double v : {0.0, 0.9}) {
                    EXPECT_EQ(follow.at(q, u, v), indexed.at(q, u, v));
                    EXPECT_EQ(follow.at(q, u, v), apart.at(q, u, v));
                }
    }
}

TEST(Colors, ImportedQuadsKeepTheirColorsAndIndices) {
    const ZooMesh& quad = zoo_mesh("lone_quad");
    const Colored painted(quad, {red(0), red(100), red(200), red(50)}, {3, 2, 1, 0});
    EXPECT_NEAR(painted.at(0, 0, 0)[0], 50.0f / 255.0f, 1e-6f);
    EXPECT_NEAR(painted.at(0, 1, 0)[0], 200.0f / 255.0f, 1e-6f);
    EXPECT_NEAR(painted.at(0, 0.25, 0.5)[0], (0.75 * 25 + 0.25 * 150) / 255.0, 1e-6f);
}

TEST(Colors, UnmappedCornersAreTransparentBlack) {
    const ZooMesh& cage = zoo_mesh("prism5_crease_loop");
    std::vector<unsigned int> indices = cage.indices;
    indices[1] = none;
    const Colored painted(cage, std::vector<Color8>(cage.positions.size(), {200, 200, 200, 200}), indices);
    for (unsigned int q = 0; q < painted.surface.get_quad_count(); ++q)
        EXPECT_EQ(painted.at(q, 0.5, 0.5)[3] > 0.0f, painted.surface.base.get_primitive_polygon_id(q) != 0) << q;
}

}  // namespace

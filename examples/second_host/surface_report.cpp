// Builds one surface, with an n-gon mesh, creases, motion, UVs and a property, and prints what it answers. The program
// is built twice, over the reference host and over the second one; ctest compares what the two print.
#include <cmath>
#include <cstdio>

#include "host_calls.h"
#include "sds/mesh_property/sds_mesh_property.h"

namespace {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;

constexpr unsigned int n = 14;  // quads along a side: enough for the threaded part of the build

unsigned int vertex(unsigned int i, unsigned int j) { return j * (n + 1) + i; }

// A wavy sheet of quads whose first one is cut into two triangles, so that the build takes its subdivision step.
struct Sheet {
    CoreArray<Vec3f> positions, motion;
    CoreArray<unsigned int> counts, indices;
    Creases creases;

    Sheet() {
        for (unsigned int j = 0; j <= n; ++j)
            for (unsigned int i = 0; i <= n; ++i) {
                const auto x = static_cast<float>(i), y = static_cast<float>(j);
                positions.add({x, y, std::sin(0.7f * x) * std::cos(0.9f * y)});
                motion.add({0.1f * y, 0.0f, 0.2f});
            }
        for (unsigned int j = 0; j < n; ++j)
            for (unsigned int i = 0; i < n; ++i) {
                const unsigned int quad[] = {vertex(i, j), vertex(i + 1, j), vertex(i + 1, j + 1), vertex(i, j + 1)};
                if (i == 0 && j == 0)
                    add({quad[0], quad[1], quad[2]}), add({quad[0], quad[2], quad[3]});
                else
                    add({quad[0], quad[1], quad[2], quad[3]});
            }
        for (unsigned int i = 2; i < n - 2; ++i) creases.add(vertex(i, 6), vertex(i + 1, 6));
    }
    void add(std::initializer_list<unsigned int> polygon) {
        counts.add(static_cast<unsigned int>(polygon.size()));
        for (const unsigned int v : polygon) indices.add(v);
    }
};

void print(const char* what, const Vec3d& v) { std::printf("%s %a %a %a\n", what, v[0], v[1], v[2]); }

}  // namespace

int main() {
    Sheet sheet;
    SdsMeshBase base;
    SdsMeshGeometry geometry;
    SdsMeshMaps maps;
    SdsMesh mesh;
    // Every vertex has its place as UV.
    GeometryUvMap uvs{"uv", sheet.positions, sheet.indices};
    sheet.creases.apply(sheet.counts, sheet.indices, [&] {
        base.set((n + 1) * (n + 1), sheet.indices, sheet.counts, CoreArray<unsigned int>(sheet.counts.get_count(), 0),
                 CoreArray<CoreString>(1, "sheet"), nullptr);
        geometry.set(base, sheet.positions, sheet.motion, SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
        maps.set(base, sheet.counts, CoreArray<GeometryUvMap>(1, uvs), {},
                 SdsMeshMaps::InterpolationMode::corners_fixed, nullptr);
    });
    mesh.set(geometry, maps, 0, nullptr);
    ResourceProperty heights("height");
    heights.init(ResourceProperty::Type::float32, 1, (n + 1) * (n + 1));
    for (unsigned int v = 0; v < heights.get_item_count(); ++v) heights.set_item_values(v, &sheet.positions[v][2], 1);
    const HostProperty source(sheet.counts, sheet.indices, heights);
    SdsMeshProperty property(mesh, source.get());
    if (!property.init(0, &heights)) return 1;

    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    std::printf("%u quads, area %a\n", mesh.get_primitive_count(), mesh.estimate_area(ctx, GMathMatrix4x4<double>()));
    print("box", mesh.get_bbox().get_min());
    print("box", mesh.get_bbox().get_max());
    for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) {
        Vec3f controls[16];
        geometry.get_bezier_controls_at(q, 0.5, controls);
        for (const Vec3f& control : controls) print("control", Vec3d(control));
        const GeometryFragment fragment{q, 0.3, 0.6, 0.25, 0.0};
        GeometrySample sample;
        mesh.compute_fragment_sample(ctx, fragment, sample);
        print("position", sample.get_geometric_position());
        print("normal", sample.get_smoothing_normal());
        Vec3d uvw, du, dv;
        mesh.compute_fragment_uvw(ctx, fragment, 0, uvw, du, dv);
        print("uv", uvw);
        print("height", evaluate(property, ctx, fragment));
    }
    // The two hosts narrow rays in frames of their own: hits agree to rounding.
    for (unsigned int i = 0; i < 40; ++i) {
        const Vec3d origin(1.0 + 0.3 * i, 0.7 + 0.31 * i, 6.0);
        std::printf("%s\n", trace(mesh, ctx, origin, Vec3d(0.01 * i - 0.2, 0.1, -1.0)).c_str());
    }
    std::printf("%u quads beyond x = 5\n", count_beyond(mesh, ctx, 5.0));
    return 0;
}

// Prints what rays without a sensible answer cost, in plain rays: Markdown, the least of several interleaved runs.
//
//     degenerate_rays [RAYS]
//
// RAYS per run, 20,000 by default. Exit status 1 when any kind costs more than 2.5 plain rays.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

#include "oracles/ray_oracle.h"
#include "render/scene.h"

using namespace sds_test;

namespace {

constexpr double most_allowed = 2.5;
constexpr unsigned int run_count = 9;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

struct Kind {
    const char* name;
    void (*spoil)(GeometryRay& ray);
};

const Kind kinds[] = {
    {"plain", [](GeometryRay&) {}},
    {"NaN origin", [](GeometryRay& r) { r.origin[1] = nan; }},
    {"NaN direction", [](GeometryRay& r) { r.direction[2] = nan; }},
    {"infinite origin", [](GeometryRay& r) { r.origin[0] = std::numeric_limits<double>::infinity(); }},
    {"zero direction",
     [](GeometryRay& r) {
         r.direction = {0, 0, 0};
     }},
    {"denormal direction", [](GeometryRay& r) { r.direction = r.direction * 1e-310; }},
    {"NaN tnear", [](GeometryRay& r) { r.tnear = nan; }},
    {"tnear above tfar", [](GeometryRay& r) { r.tnear = 10, r.tfar = 0.1; }},
    {"negative tnear", [](GeometryRay& r) { r.tnear = -10; }},
};

std::vector<GeometryRay> make_rays(const RayOracle& oracle, unsigned int count) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<GeometryRay> rays(count);
    for (GeometryRay& ray : rays) {
        const auto patch =
            std::min(oracle.get_patch_count() - 1, static_cast<unsigned int>(unit(random) * oracle.get_patch_count()));
        const Vec3d target = oracle.limit_point(patch, unit(random), unit(random));
        ray.direction = Vec3d(unit(random) - 0.5, unit(random) - 0.5, unit(random) - 0.5);
        ray.origin = target - ray.direction * (oracle.get_diagonal() / ray.direction.length());
    }
    return rays;
}

double seconds_of(const sds_render::Scene& scene, std::vector<GeometryRay> rays) {
    sds_render::RenderThread thread(scene.get_shader_ctx());
    const auto begin = std::chrono::steady_clock::now();
    for (GeometryRay& ray : rays) scene.intersect(ray, thread);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// The first of the same rays, each handed to every patch: nothing stands before the kernels. Most patches are missed,
// so plain rays are at their cheapest here.
double seconds_on_patches(const BuiltSurface& surface, std::vector<GeometryRay> rays) {
    rays.resize((rays.size() + surface.get_quad_count() - 1) / surface.get_quad_count());
    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    const GeometryRaytraceData data;
    const auto begin = std::chrono::steady_clock::now();
    for (GeometryRay& ray : rays) {
        GeometryRaytraceCtx range(&ray, 1, data);
        for (unsigned int i = 0; i < surface.get_quad_count(); ++i) surface.mesh.intersect_primitive(ctx, i, range);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace

int main(int argc, char** argv) {
    const auto count = static_cast<unsigned int>(argc > 1 ? std::max(1, std::atoi(argv[1])) : 20000);
    bool is_within = true;
    std::printf(
        "| rays | scene, level 0 | scene, level 3 | every patch, level 0 | every patch, level 3 |\n"
        "|---|--:|--:|--:|--:|\n");
    double ratios[4][std::size(kinds)];
    for (const unsigned int column : {0u, 1u}) {
        BuiltSurface::Options options;
        options.level = 3 * column;
        const BuiltSurface surface(zoo_mesh("torus"), options);
        const RayOracle oracle(surface.geometry, column == 0 ? RayOracle::limit_surface : options.level);
        sds_render::Scene scene;
        scene.add(surface.mesh);
        scene.commit();
        const std::vector<GeometryRay> plain = make_rays(oracle, count);
        double least[2][std::size(kinds)];
        std::fill(std::begin(least[0]), std::end(least[0]), HUGE_VAL);
        std::fill(std::begin(least[1]), std::end(least[1]), HUGE_VAL);
        for (unsigned int run = 0; run < run_count; ++run)
            for (size_t k = 0; k < std::size(kinds); ++k) {
                std::vector<GeometryRay> rays = plain;
                for (GeometryRay& ray : rays) kinds[k].spoil(ray);
                least[0][k] = std::min(least[0][k], seconds_of(scene, rays));
                least[1][k] = std::min(least[1][k], seconds_on_patches(surface, std::move(rays)));
            }
        for (const unsigned int way : {0u, 1u})
            for (size_t k = 0; k < std::size(kinds); ++k) ratios[2 * way + column][k] = least[way][k] / least[way][0];
        std::fprintf(stderr, "level %u: a plain ray takes %.0f ns in the scene, %.0f ns a patch without one\n",
                     options.level, 1e9 * least[0][0] / count, 1e9 * least[1][0] / count);
    }
    for (size_t k = 0; k < std::size(kinds); ++k) {
        std::printf("| %s |", kinds[k].name);
        for (const double* ratio : {ratios[0], ratios[1], ratios[2], ratios[3]}) {
            std::printf(" %.3f |", ratio[k]);
            is_within &= ratio[k] <= most_allowed;
        }
        std::printf("\n");
    }
    return is_within ? 0 : 1;
}

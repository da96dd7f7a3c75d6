#include "oracles/moving_holes.h"

#include <random>
#include <span>

#include "qn_sys/sys_thread.h"
#include "render/scene.h"

namespace sds_test {

namespace {

std::vector<RayOracle::Controls> controls_at(const SdsMesh& mesh, double time, const GMathTimeSampling& sampling) {
    const SdsBezierMesh patches = mesh.get_geometry()->get_bezier_mesh_at(time, sampling);
    std::vector<RayOracle::Controls> controls(mesh.get_primitive_count());
    for (unsigned int i = 0; i < controls.size(); ++i) patches.get_patch_controls(i, controls[i].data());
    return controls;
}

}  // namespace

MovingHoles count_moving_holes(const ZooMesh& cage, CageMotion motion, unsigned int level, unsigned int time_count,
                               std::uint64_t rays_per_aim, const FaultReport& report, unsigned int depth) {
    const MovingSurface surface(cage, motion, level, depth);
    const SdsMesh& mesh = surface.get_mesh();
    sds_render::Scene scene(sds_render::Shutter{0.0, 1.0});
    scene.add(mesh);
    scene.commit();
    const CtxShader& shader = scene.get_shader_ctx();
    std::vector<std::unique_ptr<sds_render::RenderThread>> threads;
    for (unsigned int i = 0; i < sys_max_worker_count(); ++i)
        threads.push_back(std::make_unique<sds_render::RenderThread>(shader));

    MovingHoles holes;
    std::mt19937_64 random(level);
    for (unsigned int k = 0; k < time_count; ++k) {
        const double time = k == 0 ? 1.0 / 3.0 : std::uniform_real_distribution<double>(0.0, 1.0)(random);
        const RayOracle oracle(controls_at(mesh, time, shader.get_motion_blur().get_time_sampling()), mesh);
        const std::vector<Vec3d> inside = find_inside_points(oracle, 8);
        if (inside.empty()) continue;
        ++holes.times;
        const PatchTracer tracer(mesh, oracle, shader, time);
        const auto trace_patches = [&](GeometryRay& ray, unsigned int worker) {
            ray.time = time;
            tracer.trace(ray, worker);
        };
        const auto trace_scene = [&](GeometryRay& ray, unsigned int worker) {
            ray.time = time;
            scene.intersect(ray, *threads[worker]);
        };
        for (const double diagonals : {0.0, 1.0, 10.0, 1000.0})
            for (const Aim aim : depth == 0 ? std::span<const Aim>(all_aims) : std::span<const Aim>(refined_aims)) {
                holes.fast += count_holes(oracle, trace_patches, inside, aim, diagonals, rays_per_aim, report);
                holes.scene += count_holes(oracle, trace_scene, inside, aim, diagonals, rays_per_aim, report);
            }
    }
    return holes;
}

}  // namespace sds_test

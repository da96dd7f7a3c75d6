#include "oracles/motion_checks.h"

#include <algorithm>
#include <random>

#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"
#include "render/scene_bounds.h"

namespace sds_test {

namespace {

using sds_render::Bbox3;
using sds_render::PrimitiveBounds;
using sds_render::Shutter;
using sds_render::UnitSpace;

constexpr unsigned int chunk_size = 4096;

// The boxes of two neighboring steps and how far a time is from the first, as the hierarchy finds it from the float
// that a ray carries.
struct StepPair {
    unsigned int first;
    float share;

    StepPair(const Shutter& shutter, double time, unsigned int step_count) {
        const auto open = static_cast<float>((time - shutter.open) / (shutter.close - shutter.open));
        const float place = open * static_cast<float>(step_count - 1);
        first = std::min(static_cast<unsigned int>(place), step_count - 2);
        share = place - static_cast<float>(first);
    }
};

Bbox3 blend(const Bbox3& a, const Bbox3& b, double share) {
    return {a.get_min() + (b.get_min() - a.get_min()) * share, a.get_max() + (b.get_max() - a.get_max()) * share};
}

bool holds(const Bbox3& box, const Vec3d& p) {
    for (unsigned int a = 0; a < 3; ++a)
        if (!(p[a] >= box.get_min()[a] && p[a] <= box.get_max()[a])) return false;
    return true;
}

bool hierarchy_holds(const UnitSpace& space, const Bbox3& a, const Bbox3& b, float share, const Vec3d& p) {
    float low[2][3], high[2][3];
    space.narrow(a, low[0], high[0]);
    space.narrow(b, low[1], high[1]);
    for (unsigned int i = 0; i < 3; ++i) {
        const double x = (p[i] - space.get_center()[i]) / space.get_radius();
        const float lower = (1.0f - share) * low[0][i] + share * low[1][i];
        const float upper = (1.0f - share) * high[0][i] + share * high[1][i];
        if (!(x >= static_cast<double>(lower) && x <= static_cast<double>(upper))) return false;
    }
    return true;
}

}  // namespace

MotionBoundsCheck check_motion_bounds(const MovingSurface& surface, const Shutter& shutter, std::uint64_t points) {
    const SdsMesh& mesh = surface.get_mesh();
    sds_render::Scene scene(shutter);
    scene.add(mesh);
    scene.commit();
    const CtxShader& shader = scene.get_shader_ctx();
    std::vector<double> times;
    const GMathTimeSampling& sampling = shader.get_motion_blur().get_time_sampling();
    for (unsigned int i = 0; i < sampling.get_sample_count(); ++i) times.push_back(sampling.get_sample_time(i));
    const PrimitiveBounds bounds = sds_render::compute_moving_bounds(shader, mesh, times);
    const UnitSpace space(scene.get_bbox());

    const auto chunk_count = static_cast<unsigned int>((points + chunk_size - 1) / chunk_size);
    std::vector<MotionBoundsCheck> chunks(chunk_count);
    sys_parallel_for(chunk_count, [&](unsigned int c, unsigned int) {
        const CtxEval ctx(shader);
        std::mt19937_64 random(c);
        std::uniform_int_distribution<unsigned int> any_patch(0, surface.get_quad_count() - 1);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        MotionBoundsCheck& check = chunks[c];
        check.points = std::min<std::uint64_t>(chunk_size, points - std::uint64_t{c} * chunk_size);
        for (std::uint64_t i = 0; i < check.points; ++i) {
            GeometryFragment fragment;
            fragment.primitive = any_patch(random);
            // Every fourth on an edge of its patch.
            fragment.u = i % 4 == 0 ? static_cast<double>(i / 4 % 2) : unit(random);
            fragment.v = unit(random);
            fragment.time = shutter.open + unit(random) * (shutter.close - shutter.open);
            GeometrySample sample;
            mesh.compute_fragment_sample(ctx, fragment, sample);
            const Vec3d& p = sample.get_geometric_position();
            const StepPair steps(shutter, fragment.time, bounds.step_count);
            const Bbox3 &a = bounds.get(steps.first, fragment.primitive),
                        &b = bounds.get(steps.first + 1, fragment.primitive);
            const Bbox3 box = blend(a, b, static_cast<double>(steps.share));
            check.outside += holds(box, p) ? 0 : 1;
            check.outside_hierarchy += hierarchy_holds(space, a, b, steps.share, p) ? 0 : 1;
            Bbox3 still;
            mesh.compute_primitive_bbox_at(ctx, fragment.primitive, fragment.time, still);
            check.growth += box.get_diagonal() / still.get_diagonal();
        }
    });
    MotionBoundsCheck all;
    for (const MotionBoundsCheck& check : chunks) {
        all.points += check.points;
        all.outside += check.outside;
        all.outside_hierarchy += check.outside_hierarchy;
        all.growth += check.growth / static_cast<double>(points);
    }
    return all;
}

}  // namespace sds_test

// One patch and rays straight at the kernels.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "oracles/ray_checks.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "qn_sys/sys_thread.h"
#include "sds/common/control_grid.h"
#include "sds/intersection/bezier_intersection.h"

namespace sds_test {

using PatchControls = RayOracle::Controls;

inline constexpr unsigned int no_primitive = 0xFFFFFFFF;

// Controls from a function of the grid place: column (u) and row (v), 0 to 3.
template <class Point>
PatchControls make_patch(Point&& point) {
    PatchControls controls;
    for (unsigned int row = 0; row < 4; ++row)
        for (unsigned int column = 0; column < 4; ++column)
            controls[sds::grid_order[4 * row + column]] = point(column, row);
    return controls;
}

// The unit square in the plane z = 0.
inline PatchControls make_flat_patch() {
    return make_patch([](unsigned int column, unsigned int row) {
        return Vec3f(static_cast<float>(column) / 3.0f, static_cast<float>(row) / 3.0f, 0.0f);
    });
}

// Over the unit square, with random offsets of up to `size` in all coordinates.
inline PatchControls make_random_patch(unsigned int seed, float size = 0.3f) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> offset(-size, size);
    PatchControls patch = make_flat_patch();
    for (Vec3f& p : patch) p += {offset(random), offset(random), offset(random)};
    return patch;
}

// Extruded along y from a curve that turns back twice: x = u-cubic 0, 3, -2, 1, z = u, y = v. A line along z at
// x = 0.45 crosses it three times.
inline PatchControls make_folded_patch() {
    return make_patch([](unsigned int column, unsigned int row) {
        constexpr float x[4] = {0.0f, 3.0f, -2.0f, 1.0f};
        return Vec3f(x[column], static_cast<float>(row) / 3.0f, static_cast<float>(column) / 3.0f);
    });
}

inline GeometryRay make_ray(const Vec3d& origin, const Vec3d& direction) {
    GeometryRay ray;
    ray.origin = origin;
    ray.direction = direction;
    return ray;
}

// A kernel with everything that it needs of a host.
class KernelBench {
public:
    // `count` is the estimate's; limit_surface asks for the adaptive kernel.
    explicit KernelBench(KernelFamily family, unsigned int count = RayOracle::limit_surface) : m_count(count) {
        data.kernel_family = family;
    }

    // All rays as one range, hits in their records or, with a capacity, also in the map's paths.
    void trace(const PatchControls& controls, std::vector<GeometryRay>& rays, unsigned int capacity = 0) {
        const auto ray_count = static_cast<unsigned int>(rays.size());
        if (capacity != 0) {
            map = std::make_unique<GeometryIntersectionMap>(ray_count);
            for (unsigned int i = 0; i < ray_count; ++i) map->get_path(i).reset(capacity, rays[i].tfar);
        }
        data.map = capacity != 0 ? map.get() : nullptr;
        GeometryRaytraceCtx context(rays.data(), ray_count, data);
        context.set_reference_point(reference_point);
        run(eval, controls, context);
    }
    GeometryRay trace(const PatchControls& controls, const GeometryRay& ray) {
        std::vector<GeometryRay> rays{ray};
        trace(controls, rays);
        return rays[0];
    }
    // The hits of one ray on its path, nearest first.
    std::vector<GeometryHit> collect(const PatchControls& controls, const GeometryRay& ray, unsigned int capacity) {
        std::vector<GeometryRay> rays{ray};
        trace(controls, rays, capacity);
        const CoreBasicArray<GeometryHit>& hits = map->get_path(0).get_hits();
        return {hits.begin(), hits.end()};
    }
    void run(const CtxEval& context_eval, const PatchControls& controls, GeometryRaytraceCtx& context) const {
        constexpr unsigned int primitive = 0;
        if (m_count == RayOracle::limit_surface)
            ray_bezier_intersection_adaptive(context_eval, primitive, controls.data(), context);
        else
            ray_bezier_intersection_estimate(context_eval, primitive, controls.data(), context, m_count);
    }

    GeometryRaytraceData data;
    Vec3d reference_point{0.5, 0.5, 0.0};
    std::unique_ptr<GeometryIntersectionMap> map;
    CtxShader shader;
    CtxThread thread;
    CtxEval eval{shader, &thread};

private:
    unsigned int m_count;
};

// compare_hits over one patch.
inline HitAgreement compare_patch(const PatchControls& controls, KernelFamily family, unsigned int count,
                                  unsigned int ray_count, double tolerance) {
    const RayOracle oracle(std::vector<PatchControls>{controls}, count);
    std::vector<std::unique_ptr<KernelBench>> benches;
    for (unsigned int i = 0; i < sys_max_worker_count(); ++i)
        benches.push_back(std::make_unique<KernelBench>(family, count));
    return compare_hits(
        oracle, [&](GeometryRay& ray, unsigned int worker) { ray = benches[worker]->trace(controls, ray); }, ray_count,
        tolerance);
}

// One family at one level or on the limit surface.
struct KernelChoice {
    KernelFamily family;
    unsigned int count;

    friend void PrintTo(const KernelChoice& choice, std::ostream* out) {
        *out << (choice.family == fast_kernels ? "Fast" : "Reference");
        if (choice.count == RayOracle::limit_surface)
            *out << "Limit";
        else
            *out << "Level" << choice.count;
    }
};

}  // namespace sds_test

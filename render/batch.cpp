#include "render/batch.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "qn_sys/sys_thread.h"

namespace sds_render {

namespace {

constexpr std::size_t rays_per_task = 1024;

}  // namespace

bool is_traceable(const GeometryRay& ray) {
    return ray.origin.is_finite() && ray.direction.is_finite() && ray.direction.length_squared() > 0.0 &&
           std::isfinite(ray.tnear) && !std::isnan(ray.tfar) && std::isfinite(ray.time);
}

void intersect_batch(const Scene& scene, GeometryRay* rays, std::size_t count,
                     const std::function<void(std::size_t, RenderThread&)>& visit, unsigned int* objects) {
    std::vector<std::unique_ptr<RenderThread>> threads(sys_max_worker_count());
    for (auto& thread : threads) thread = std::make_unique<RenderThread>(scene.get_shader_ctx());
    const auto tasks = static_cast<unsigned int>((count + rays_per_task - 1) / rays_per_task);
    sys_parallel_for(tasks, [&](unsigned int task, unsigned int worker) {
        RenderThread& thread = *threads[worker];
        const std::size_t first = task * rays_per_task;
        for (std::size_t i = first; i < std::min(first + rays_per_task, count); ++i) {
            if (is_traceable(rays[i])) scene.intersect(rays[i], thread, objects != nullptr ? objects + i : nullptr);
            if (visit) visit(i, thread);
        }
    });
}

std::vector<unsigned int> select_batch(const GeometryObject& object, const GeometryFrustum& frustum, SelectMode mode) {
    const unsigned int count = object.get_primitive_count();
    std::vector<unsigned char> is_selected(count, 0);
    const CtxShader shader;
    std::vector<CtxThread> threads(sys_max_worker_count());
    const int number = static_cast<int>(mode);
    sys_parallel_for(count, [&](unsigned int primitive, unsigned int worker) {
        GeometryFrustumCtx ctx(&number, &frustum);
        object.intersect_primitive(CtxEval(shader, &threads[worker]), primitive, ctx);
        is_selected[primitive] = ctx.selected_count > 0 ? 1 : 0;
    });
    std::vector<unsigned int> primitives;
    for (unsigned int p = 0; p < count; ++p)
        if (is_selected[p] != 0) primitives.push_back(p);
    return primitives;
}

}  // namespace sds_render

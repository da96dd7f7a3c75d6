// Many rays against a scene and all primitives against a frustum, on all threads of the calling arena: what the program
// and the bindings work with.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <vector>

#include "render/scene.h"

namespace sds_render {

// True when a ray can hit anything: finite but for tfar, with a direction.
bool is_traceable(const GeometryRay& ray);

// The shortest shutter that is open at the time of every traceable ray; [0, 0] without any.
// ray_at(i) gives the rays, as records or made when asked for.
template <class RayAt>
Shutter get_shutter_of(std::size_t count, const RayAt& ray_at) {
    Shutter shutter;
    bool any = false;
    for (std::size_t i = 0; i < count; ++i) {
        const GeometryRay& ray = ray_at(i);
        if (!is_traceable(ray)) continue;
        shutter.open = any ? std::min(shutter.open, ray.time) : ray.time;
        shutter.close = any ? std::max(shutter.close, ray.time) : ray.time;
        any = true;
    }
    return shutter;
}

// Scene::intersect for every ray that is_traceable; the others keep their record without a hit. `visit`, which may be
// empty, is called once for every ray, after it was traced, on the thread that traced it. Calls for different rays run
// at the same time; what one of them throws is thrown here. `objects`, which may be null, holds `count` indices of the
// objects that are hit, which stay as they are where nothing is.
void intersect_batch(const Scene& scene, GeometryRay* rays, std::size_t count,
                     const std::function<void(std::size_t ray, RenderThread& thread)>& visit,
                     unsigned int* objects = nullptr);

enum class SelectMode : int {
    touch = 0,   // some part of the primitive
    inside = 1,  // all of it
};

// The primitives that a frustum selects, ascending.
std::vector<unsigned int> select_batch(const GeometryObject& object, const GeometryFrustum& frustum, SelectMode mode);

}  // namespace sds_render

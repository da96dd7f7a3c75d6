// Many rays against a scene, on all threads of the calling arena: what the program and the bindings trace with.
#pragma once

#include <cstddef>
#include <functional>

#include "render/scene.h"

namespace sds_render {

// True when a ray can hit anything: finite but for tfar, with a direction.
bool is_traceable(const GeometryRay& ray);

// The shortest shutter that is open at the time of every traceable ray; [0, 0] without any.
Shutter get_shutter_of(const GeometryRay* rays, std::size_t count);

// Scene::intersect for every ray that is_traceable; the others keep their record without a hit. `visit`, which may be
// empty, is called once for every ray, after it was traced, on the thread that traced it. Calls for different rays run
// at the same time; what one of them throws is thrown here.
void intersect_batch(const Scene& scene, GeometryRay* rays, std::size_t count,
                     const std::function<void(std::size_t ray, RenderThread& thread)>& visit);

}  // namespace sds_render

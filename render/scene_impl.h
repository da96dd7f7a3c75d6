// What Scene keeps behind its interface.
#pragma once

#include <embree3/rtcore.h>

#include <memory>
#include <type_traits>
#include <vector>

#include "qn_sys/sys_hand_over.h"
#include "render/scene.h"
#include "render/scene_bounds.h"

namespace sds_render {

struct DeviceRelease {
    void operator()(RTCDevice device) const { rtcReleaseDevice(device); }
};
struct HierarchyRelease {
    void operator()(RTCScene scene) const { rtcReleaseScene(scene); }
};
using DeviceHandle = std::unique_ptr<std::remove_pointer_t<RTCDevice>, DeviceRelease>;
using HierarchyHandle = std::unique_ptr<std::remove_pointer_t<RTCScene>, HierarchyRelease>;

struct SceneObject {
    bool is_animated() const { return ray_data.has_motion_blur; }

    const GeometryObject* object = nullptr;
    unsigned int index = 0;
    GeometryRaytraceData ray_data;
    // One point per object, so that its kernels narrow a ray the same way for all primitives.
    Vec3 reference{0, 0, 0};
    // Only while the hierarchy is built.
    const UnitSpace* space = nullptr;
    PrimitiveBounds bounds;
    SysHandOver build_started, build_finished;
};

struct Scene::Impl {
    Shutter shutter;
    CtxShader shader;
    UnitSpace space;
    Bbox3 bbox = Bbox3::empty();
    // Addresses are handed to the hierarchy.
    std::vector<std::unique_ptr<SceneObject>> objects;
    DeviceHandle device;
    HierarchyHandle hierarchy;  // null until built, and in a scene without primitives

    void set_motion_sampling();
    void compute_bounds();
    void build();
    void attach(SceneObject& object);

    bool is_moving() const { return shutter.close > shutter.open; }
    float get_hierarchy_time(double time) const;
};

// Callbacks of the hierarchy for user geometry; its user pointer is a SceneObject.
void intersect_primitive_callback(const RTCIntersectFunctionNArguments* arguments);
void occlude_primitive_callback(const RTCOccludedFunctionNArguments* arguments);

}  // namespace sds_render

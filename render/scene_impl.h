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

// Primitives of one geometry of a hierarchy. Its user pointer is this part of what they belong to.
struct BoundedPrimitives {
    // Only while the hierarchy is built, unless it is refitted later.
    const UnitSpace* space = nullptr;
    PrimitiveBounds bounds;
    SysHandOver build_started, build_finished;
};

struct SceneObject : BoundedPrimitives {
    bool is_animated() const { return ray_data.has_motion_blur; }
    // Box over the whole shutter; gives the object its reference.
    Bbox3 settle_box();

    const GeometryObject* object = nullptr;
    unsigned int index = 0;
    GeometryRaytraceData ray_data;
    // Still primitives without a valid box.
    std::vector<unsigned int> left_out;
    // One point per object, so that its kernels narrow a ray the same way for all primitives.
    Vec3 reference{0, 0, 0};
};

// An object that its instances share, in a hierarchy and a unit space of its own.
struct SharedObject {
    SceneObject primitives;
    UnitSpace own_space;
    Bbox3 box = Bbox3::empty();  // with room for hits that kernels accept beside it
    HierarchyHandle hierarchy;   // null without primitives
};

struct Instance {
    unsigned int index = 0;
    const SharedObject* shared = nullptr;
    const Transform* transform = nullptr;
    Matrix4 inverse;  // of a still transform
};

// Instances of one geometry: all that stand still, or all that move.
struct InstanceGroup : BoundedPrimitives {
    std::vector<Instance> instances;
};

struct SceneEntry {
    const GeometryObject* object;
    Transform transform;
};

struct Scene::Impl {
    Shutter shutter;
    CtxShader shader;
    UnitSpace space;
    Bbox3 bbox = Bbox3::empty();
    std::vector<SceneEntry> entries;
    // Addresses are handed to the hierarchy.
    std::vector<std::unique_ptr<SceneObject>> objects;  // those without instances
    std::vector<std::unique_ptr<SharedObject>> shared_objects;
    InstanceGroup still_instances, moving_instances;
    DeviceHandle device;
    HierarchyHandle hierarchy;  // null until built, and in a scene without primitives
    bool is_refitted = false;   // by updates; the bounds are kept then

    void sort_entries();
    void set_motion_sampling();
    void compute_bounds();
    void compute_instance_bounds(InstanceGroup& group, bool moves);
    void build();
    void build_shared(SharedObject& shared);
    void forget_bounds();
    bool can_be_refitted() const;
    // False, and the hierarchy of no use, where it has to be built anew.
    bool refit();
    void forget_commit();

    bool is_moving() const { return shutter.close > shutter.open; }
    float get_hierarchy_time(double time) const;

private:
    std::vector<double> get_sample_times() const;
    PrimitiveBounds compute_primitive_bounds(const SceneObject& object) const;
    template <class Hit, class Occlude>
    void attach(RTCScene to, BoundedPrimitives& primitives, unsigned int id, Hit* intersect, Occlude* occlude) const;
};

// Callbacks of the hierarchy for the primitives of a SceneObject and the instances of an InstanceGroup.
void intersect_primitive_callback(const RTCIntersectFunctionNArguments* arguments);
void occlude_primitive_callback(const RTCOccludedFunctionNArguments* arguments);
void intersect_instance_callback(const RTCIntersectFunctionNArguments* arguments);
void occlude_instance_callback(const RTCOccludedFunctionNArguments* arguments);

}  // namespace sds_render

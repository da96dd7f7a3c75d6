// Geometry objects under one bounding volume hierarchy, and rays against them.
//
// Life of a scene: add objects, commit once, trace from any number of threads. The objects belong to the caller,
// outlive the scene and do not change after commit, unless the scene is committed for that: then any number of frames
// follow, each of which changes the objects' shapes, calls update, and traces.
//
// An object may be added any number of times, each with a transform of its own: these are its instances, and they share
// one hierarchy of the object's primitives. Below, "object" counts instances.
//
// Objects that stand still may bring a hierarchy of their own (GeometryObject::make_ray_index): to the scene's they are
// one primitive, and where nothing else is in the scene there is none but theirs. Scenes to be refitted ask for none.
//
// The hierarchy works in single precision, in coordinates relative to the scene's center and radius, so that its boxes
// are equally tight at any size and distance from the origin. The objects themselves see the caller's double-precision
// rays.
#pragma once

#include <memory>

#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_object.h"
#include "render/render_thread.h"
#include "render/render_types.h"
#include "render/transform.h"

namespace sds_render {

// The shutter is open during [open, close], in the objects' time. open == close is a still frame at that time.
struct Shutter {
    double open = 0.0;
    double close = 0.0;
};

// What the hierarchy is made for. One that is refitted has rays take a little longer.
enum class HierarchyUse { still, refitted };

class Scene {
public:
    explicit Scene(const Shutter& shutter = {});
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // Returns the object's index, counted from 0 in the order of adding. Not after commit. The transform is in the
    // objects' time; where it flattens space there is nothing to hit.
    unsigned int add(const GeometryObject& object, const Transform& transform = {});

    // About the most bytes that commit takes for so many primitives that bring no hierarchy of their own, with
    // `step_count` boxes each: more than one where they move.
    static std::size_t estimate_hierarchy_size(std::size_t primitive_count, std::size_t step_count);

    // Builds the hierarchy on the threads of the calling arena. Primitives whose box is empty or not finite are left
    // out. Throws std::bad_alloc or std::runtime_error when the build fails; the scene is then empty.
    void commit(const HierarchyUse& use = HierarchyUse::still);

    // Follows the objects to new shapes: finds their boxes again and fits the hierarchy to them, which takes a fraction
    // of a build. What rays find is the same as in a new scene; the more the shapes differ from those of the commit,
    // the longer they take to find it. Builds anew where there is nothing to fit: after a commit for a still scene,
    // with instances or a shutter that is open, where objects have another number of primitives, and where one that
    // was left out has a box now. Not while others trace. Throws as commit does.
    void update();

    unsigned int get_object_count() const;
    const GeometryObject& get_object(const unsigned int& index) const;
    const Transform& get_transform(const unsigned int& index) const;
    const Shutter& get_shutter() const;
    // Box of all primitives over the whole shutter; empty when there is none. Valid after commit.
    const Bbox3& get_bbox() const;
    // Half the diagonal of that box, never zero.
    double get_radius() const;
    // The frame's shader context: its motion sampling holds the shutter's ends and, for objects with samples in time,
    // those and time 0 between them, and is empty for a still frame. Render threads are made with it; complete after
    // commit.
    const CtxShader& get_shader_ctx() const;

    // Finds the nearest hit with tnear <= t < tfar (mode `closest`) or any hit (mode `any`). `ray` comes without a hit
    // and not finished; on return its hit and tfar tell what was found. `object` receives the index of the hit's object
    // and is untouched without one. Returns true when something was hit. A ray that is not finite or has no direction
    // hits nothing. Of two hits at the same distance the one with the smaller object and primitive index is kept, so
    // the answer does not depend on the hierarchy. Times outside the shutter are clamped for the hierarchy only.
    bool intersect(GeometryRay& ray, RenderThread& thread, unsigned int* object = nullptr) const;

    // True when anything lies between tnear and tfar. Sets the ray's mode to `any`.
    bool occluded(GeometryRay& ray, RenderThread& thread) const;

    // `intersect` for `count` rays of one mode at once, 1 to RenderThread::packet_size. Rays that meet the same
    // primitive, or object with a hierarchy of its own, reach it together, as one range, unless it moves and their
    // times differ. `objects` holds `count` indices, no_index where there is no hit.
    void intersect_packet(GeometryRay* rays, unsigned int count, RenderThread& thread, unsigned int* objects) const;

    // `occluded` for as many: a ray has a hit where something is in its way. Sets the rays' modes to `any`.
    void occluded_packet(GeometryRay* rays, unsigned int count, RenderThread& thread) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace sds_render

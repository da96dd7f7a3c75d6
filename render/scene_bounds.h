// Boxes of an object's primitives over the shutter, and the unit space that the hierarchy works in.
#pragma once

#include <functional>
#include <vector>

#include "qn_core/core_array.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_object.h"
#include "render/render_types.h"

namespace sds_render {

// Boxes at evenly spaced time steps. Between two steps the linear blend of their boxes holds the primitive.
struct PrimitiveBounds {
    unsigned int primitive_count = 0;
    unsigned int step_count = 1;
    CoreArray<Bbox3> boxes;  // [step * primitive_count + primitive]; empty or not finite: no box

    const Bbox3& get(unsigned int step, unsigned int primitive) const {
        return boxes[size_t{step} * primitive_count + primitive];
    }
};

// Boxes of a still object's primitives into `bounds`, whose storage is used again; `time` counts for objects that are
// animated.
void compute_still_bounds(const CtxShader& shader, const GeometryObject& object, double time, PrimitiveBounds& bounds);

// Of primitives that are the same, a ray's hit is on the first: the others lose their boxes. For objects that are not
// animated.
void leave_out_repeated(const CtxShader& shader, const GeometryObject& object, PrimitiveBounds& bounds);

// Boxes of an animated object while `times` (at least two, strictly increasing) go by; its first and last are the
// shutter's ends. The object's positions must be linear in time between two of them.
PrimitiveBounds compute_moving_bounds(const CtxShader& shader, const GeometryObject& object,
                                      const std::vector<double>& times);

// Boxes of `count` things that move straight between two of `times` (strictly increasing; one for a still scene), each
// asked for with box_at(thing, time).
PrimitiveBounds compute_box_bounds(unsigned int count, const std::vector<double>& times,
                                   const std::function<Bbox3(unsigned int, double)>& box_at);

// Times inside (open, close) at which the object's motion may bend: its samples and time 0. For objects with time
// samples only.
void append_sample_times(const GeometryObject& object, double open, double close, std::vector<double>& times);

inline bool is_valid_box(const Bbox3& box) {
    return !box.is_empty() && box.get_min().is_finite() && box.get_max().is_finite();
}

// Maps the scene's bounding sphere to the unit sphere.
class UnitSpace {
public:
    UnitSpace() = default;
    explicit UnitSpace(const Bbox3& box);

    const Vec3& get_center() const { return m_center; }
    double get_radius() const { return m_radius; }
    double get_inverse_radius() const { return m_inverse_radius; }

    // Single-precision box, rounded outwards and padded so that a ray narrowed by SceneRay never misses what the exact
    // ray meets. A box that is not valid becomes an inverted one.
    void narrow(const Bbox3& box, float lower[3], float upper[3]) const;
    // The same in double precision and the box's own coordinates.
    Bbox3 pad(const Bbox3& box) const;

private:
    double get_pad(const Bbox3& box) const;

    Vec3 m_center{0, 0, 0};
    double m_radius = 1.0;
    double m_inverse_radius = 1.0;
};

// The part of a ray that may meet the scene, in unit space: it begins at t = `begin` of the original ray and has unit
// direction, so unit-space distance = (t - begin) * scale.
struct SceneRay {
    float origin[3];
    float direction[3];
    float length;
    double begin;
    double scale;

    // False when the ray cannot meet the scene: it passes or ends before the sphere, begins behind it, or is not
    // finite.
    bool init(const UnitSpace& space, const Vec3& ray_origin, const Vec3& ray_direction, double tnear, double tfar);

    // Unit-space distance of t, rounded up.
    float get_distance(double t) const;
};

}  // namespace sds_render

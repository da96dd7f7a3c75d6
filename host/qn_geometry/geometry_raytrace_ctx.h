// Rays on their way through a geometry object.
//
// A GeometryRaytraceCtx carries a range of rays to `GeometryObject::intersect_primitive` and takes the hits back
// through push_intersection. Who made the context owns the ray records, the data and the map. One thread works on a
// context at a time.
#pragma once

#include <cstddef>
#include <limits>

#include "qn_core/core_export.h"
#include "qn_geometry/geometry_intersection_map.h"
#include "qn_gmath/gmath_vec.h"

class CtxEval;

// Medium behind a hit. The default is vacuum without bounds.
struct GeometryMediumDescriptor {
    float refraction_index = 1.0f;
    float thickness = 3.4028235e38f;
    unsigned int flags = 0;
};

// A node of a finished traversal that blocked a ray, for hosts that test the last occluder first. The traversal belongs
// to the scratch of the thread that set it and is valid until that thread's next intersection call.
struct GeometryOccluder {
    unsigned int primitive = 0xFFFFFFFF;
    unsigned int node = 0xFFFFFFFF;
    const void* traversal = nullptr;
};

enum class GeometryRayMode : unsigned char {
    closest,  // every accepted hit shortens the ray
    any,      // the first accepted hit finishes the ray (occlusion)
};

// A ray as narrow kernels see it: moved along itself to the place nearest to a reference point, in double precision,
// then narrowed.
struct GeometryRaySpace {
    // What it was made from; NaN until it is. Rays are made by the million: nothing else is set before that.
    GMathVec3<double> reference_point{std::numeric_limits<double>::quiet_NaN(), 0, 0};
    GMathVec3<double> ray_origin;
    GMathVec3<double> ray_direction;

    double shift;  // distance along the ray of `origin`
    float origin[3];
    float across[2][3];  // two unit vectors across the direction: (across 0, across 1, direction) is right-handed
    float along[3];      // direction / |direction|^2: dot products with it are distances along the ray
};

struct GeometryRay {
    GMathVec3<double> origin{0, 0, 0};
    GMathVec3<double> direction{0, 0, 1};  // of length 1e-30 to 1e30, others hit nothing; t counts in lengths of it
    double tnear = 0.0;
    double tfar = std::numeric_limits<double>::infinity();
    double time = 0.0;
    GeometryRayMode mode = GeometryRayMode::closest;
    bool is_finished = false;
    // The accepted hit that tfar now stands at; primitive 0xFFFFFFFF while there is none.
    GeometryHit hit;
    GeometryOccluder occluder;
    // Kept by GeometryRaytraceCtx::get_ray_space from one primitive to the next.
    GeometryRaySpace space;

    // The record anew for another ray, as a fresh one but for what stays unread.
    void start(const GMathVec3<double>& from, const GMathVec3<double>& towards, const double& at = 0.0) {
        origin = from;
        direction = towards;
        tnear = 0.0;
        tfar = std::numeric_limits<double>::infinity();
        time = at;
        mode = GeometryRayMode::closest;
        is_finished = false;
        hit = GeometryHit();
        occluder = GeometryOccluder();
        space.reference_point[0] = std::numeric_limits<double>::quiet_NaN();
    }
};

// What all rays of a context share.
struct GeometryRaytraceData {
    // Collects hits per ray; null leaves the ray records alone to hold the nearest hit.
    GeometryIntersectionMap* map = nullptr;
    // 0: position and distance only. 1: kernels also report the size of the flat cell that was hit, when they hit one.
    unsigned int hit_detail = 0;
    // Primitives that move are taken at the ray's own time.
    bool has_motion_blur = false;
    // 0 lets the module choose its fastest kernel family, 1 asks for the reference kernels.
    unsigned int kernel_family = 0;
};

class QN_EXPORT GeometryRaytraceCtx {
public:
    // `rays`, and the map if `data` has one, outlive the context. The range starts as all `count` rays. `count` must be
    // at least 1.
    GeometryRaytraceCtx(GeometryRay* rays, const unsigned int& count, const GeometryRaytraceData& data)
        : m_rays(rays), m_first(0), m_last(count - 1), m_data(data) {}

    const unsigned int& get_first_ray() const { return m_first; }
    const unsigned int& get_last_ray() const { return m_last; }
    void set_ray_range(const unsigned int& first, const unsigned int& last) {
        m_first = first;
        m_last = last;
    }

    const GeometryRay& get_ray(const unsigned int& i) const { return m_rays[i]; }
    GeometryRay& get_ray(const unsigned int& i) { return m_rays[i]; }
    const double& get_tnear(const unsigned int& i) const { return m_rays[i].tnear; }
    // Current far distance: shrinks as hits are accepted.
    const double& get_tfar(const unsigned int& i) const { return m_rays[i].tfar; }
    bool is_ray_finished(const unsigned int& i) const { return m_rays[i].is_finished; }
    // Time of the range's first ray: a range is traced at one time.
    const double& get_time() const { return m_rays[m_first].time; }

    const GeometryRaytraceData& get_data() const { return m_data; }
    bool has_motion_blur() const { return m_data.has_motion_blur; }
    // Only with a map.
    GeometryIntersectionPath& get_intersection_path(const unsigned int& i) { return m_data.map->get_path(i); }

    // Node of the host's tree that traversal starts at; kernels set it to 0 while they run and put it back.
    const unsigned int& get_start_node() const { return m_start_node; }
    void set_start_node(const unsigned int& node) { m_start_node = node; }

    // A point near the object, in its space. Kernels move each ray's origin along the ray to the place nearest to it,
    // in double precision, before they narrow it: all primitives of one object see exactly the same narrowed ray,
    // however far away it began.
    const GMathVec3<double>& get_reference_point() const { return m_reference_point; }
    void set_reference_point(const GMathVec3<double>& point) { m_reference_point = point; }

    // Distance along ray i of the place nearest to the reference point; 0 for a ray without a finite direction.
    double get_reference_shift(const unsigned int& i) const;

    // Ray i in the space of narrow kernels, for the present reference point; made anew when the ray or the point has
    // changed.
    const GeometryRaySpace& get_ray_space(const unsigned int& i);

    // Offers a hit. Accepted when tnear <= t < tfar (NaN never is) and, with a map, when the path takes it; an accepted
    // hit in a ray record shortens tfar to t and, in mode `any`, finishes the ray.
    //   u, v, w       patch coordinates, w 0 on surfaces
    //   sub_element   part of the primitive, all bits set when it has none
    //   du, dv, dw    size of the flat cell that was hit in patch coordinates, 0 when unknown
    //   separation    two hits of one primitive on a path nearer than this to each other are one
    //   custom        the primitive's own, kept as it is
    // Returns true when accepted.
    bool push_intersection(const CtxEval& ctx, const unsigned int& ray, const unsigned int& primitive, const double& u,
                           const double& v, const double& w, const unsigned int& sub_element, const double& du,
                           const double& dv, const double& dw, const double& t, const double& separation,
                           const GeometryMediumDescriptor& medium, const void* custom);

    // Remembers what blocked a finished ray.
    void set_occluder(const unsigned int& ray, const GeometryOccluder& occluder) { m_rays[ray].occluder = occluder; }

private:
    GeometryRay* m_rays;
    unsigned int m_first;
    unsigned int m_last;
    GeometryRaytraceData m_data;
    unsigned int m_start_node = 0;
    GMathVec3<double> m_reference_point{0, 0, 0};
};

// A hierarchy that an object keeps over its own primitives: GeometryObject::make_ray_index. Any number of threads may
// use it.
class QN_EXPORT GeometryRayIndex {
public:
    virtual ~GeometryRayIndex();
    // As intersect_primitive with every primitive, for rays without a map and the fastest kernel family. Of two hits at
    // the same distance the one with the smaller primitive index is kept.
    virtual void intersect(const CtxEval& ctx, GeometryRaytraceCtx& rays) const = 0;
    // In bytes, with all that it holds.
    virtual size_t get_memory_size() const = 0;
};

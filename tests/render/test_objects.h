// Geometry objects whose hits have closed forms.
#pragma once

#include <chrono>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "qn_geometry/geometry_object.h"
#include "render/camera.h"
#include "render/scene.h"

namespace render_test {

using Vec3 = GMathVec3<double>;
using Bbox3 = GMathBbox3<double>;

// What the renderer does not ask for.
class PlainObject : public GeometryObject {
public:
    const CoreBasicArray<CoreString>& get_shading_group_names() const override { return m_names; }
    GMathBbox3<double> get_shading_group_bbox(const unsigned int&) const override { return get_bbox(); }
    void get_primitive_indices(CoreArray<unsigned int>& out) const override;
    unsigned int get_primitive_edge_count(const unsigned int&) const override { return 4; }
    double estimate_area(const CtxEval&, const GMathMatrix4x4<double>&) const override { return 0.0; }
    double estimate_shading_group_area(const CtxEval&, const unsigned int&,
                                       const GMathMatrix4x4<double>&) const override {
        return 0.0;
    }
    double estimate_primitive_area(const CtxEval&, const unsigned int&, const GMathMatrix4x4<double>&) const override {
        return 0.0;
    }
    unsigned int get_primitive_shading_group_index(const unsigned int&) const override { return 0; }
    void compute_edge_sample(const CtxEval&, const unsigned int&, const unsigned int&, const double&, const bool&,
                             GeometrySample&) const override {}
    void intersect_primitive(const CtxEval&, const unsigned int&, GeometryFrustumCtx&) const override {}

private:
    CoreArray<CoreString> m_names;
};

struct Sphere {
    Vec3 center{0, 0, 0};
    double radius = 1.0;
};

// One primitive per sphere. u runs around the y axis, v from the lower pole to the upper one. `path` moves all spheres:
// offsets at its sample times, straight between them.
class SphereCloud : public PlainObject {
public:
    explicit SphereCloud(std::vector<Sphere> spheres) : m_spheres(std::move(spheres)) {}
    void set_path(const std::vector<double>& times, const std::vector<Vec3>& offsets);

    const std::vector<Sphere>& get_spheres() const { return m_spheres; }
    void set_spheres(std::vector<Sphere> spheres) { m_spheres = std::move(spheres); }
    Vec3 get_offset(double time) const;

    GMathBbox3<double> get_bbox() const override;
    bool is_animated() const override { return !m_offsets.empty(); }
    const GeometryPointCloud* get_point_cloud() const override { return &m_cloud; }
    unsigned int get_primitive_count() const override { return static_cast<unsigned int>(m_spheres.size()); }
    void compute_primitive_bbox(const CtxEval&, const unsigned int& primitive, Bbox3& bbox) const override;
    void compute_primitive_bbox_at(const CtxEval&, const unsigned int& primitive, const double& time,
                                   Bbox3& bbox) const override;
    void compute_fragment_sample(const CtxEval&, const GeometryFragment& fragment,
                                 GeometrySample& sample) const override;
    using PlainObject::intersect_primitive;
    void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                             GeometryRaytraceCtx& rays) const override;

private:
    std::vector<Sphere> m_spheres;
    GeometryPointCloud m_cloud;
    GMathTimeSampling m_sampling;
    std::vector<Vec3> m_offsets;
};

// Counts how often it is offered to a ray, and takes its time.
class CountingCloud : public SphereCloud {
public:
    explicit CountingCloud(std::vector<Sphere> spheres, std::chrono::milliseconds delay = {})
        : SphereCloud(std::move(spheres)), m_delay(delay) {}
    using SphereCloud::intersect_primitive;
    void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                             GeometryRaytraceCtx& rays) const override {
        ++offer_count;
        std::this_thread::sleep_for(m_delay);
        SphereCloud::intersect_primitive(ctx, primitive, rays);
    }
    mutable unsigned int offer_count = 0;

private:
    std::chrono::milliseconds m_delay;
};

struct Expected {
    double t = std::numeric_limits<double>::infinity();
    unsigned int primitive = sds_render::no_index;
};

// Nearest sphere by plane geometry in extended precision, one after the other.
Expected find_nearest(const SphereCloud& cloud, const GeometryRay& ray);

std::vector<Sphere> make_spheres(unsigned int count, const Vec3& center, double size);

// Rays around and inside a ball, aimed at places near it, with directions of any length and windows that cut some hits
// off.
std::vector<GeometryRay> make_rays(unsigned int count, const Vec3& center, double size, double distance);

// n x n flat squares of the unit square in the plane z = 0, facing +z, row by row. Edge k of every square is visible
// when bit k of `visible_edges` is set.
class FlatGrid : public PlainObject {
public:
    explicit FlatGrid(unsigned int n, unsigned int visible_edges = 15) : m_n(n), m_visible_edges(visible_edges) {}

    GMathBbox3<double> get_bbox() const override { return {{0, 0, 0}, {1, 1, 0}}; }
    unsigned int get_primitive_count() const override { return m_n * m_n; }
    bool is_primitive_edge_visible(const unsigned int&, const unsigned int& edge) const override {
        return (m_visible_edges >> edge & 1u) != 0;
    }
    void compute_primitive_bbox(const CtxEval&, const unsigned int& primitive, Bbox3& bbox) const override;
    void compute_fragment_sample(const CtxEval&, const GeometryFragment& fragment,
                                 GeometrySample& sample) const override;
    using PlainObject::intersect_primitive;
    void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                             GeometryRaytraceCtx& rays) const override;

private:
    unsigned int m_n;
    unsigned int m_visible_edges;
};

// Where a picture of that width shows a point, from -1 to 1 across and up. Found by a ray of its border, which knows
// nothing of the framing; not finite for what is behind the camera.
struct ViewPlace {
    double x, y;
};
ViewPlace place_in_view(const sds_render::Camera& camera, unsigned int width, const Vec3& point);

Vec3 random_direction(std::mt19937& random);

// A committed scene of one object.
class SceneOf : public sds_render::Scene {
public:
    explicit SceneOf(const GeometryObject& object, const sds_render::Shutter& shutter = {}) : Scene(shutter) {
        add(object);
        commit();
    }
};

}  // namespace render_test

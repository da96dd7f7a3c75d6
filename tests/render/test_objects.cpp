#include "test_objects.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace render_test {

namespace {

constexpr double tau = 2.0 * std::numbers::pi;

bool push(const CtxEval& ctx, GeometryRaytraceCtx& rays, unsigned int ray, unsigned int primitive, double u, double v,
          double t) {
    return rays.push_intersection(ctx, ray, primitive, u, v, 0.0, 0xFFFFFFFF, 0.0, 0.0, 0.0, t, 0.0001, {}, nullptr);
}

class NoLoader : public GeometryPointCloud::SampleLoader {
public:
    void load(const GMathTimeSampling&, const unsigned int&, GMathVec3<float>*) override {}
};

}  // namespace

void PlainObject::get_primitive_indices(CoreArray<unsigned int>& out) const {
    out.resize(get_primitive_count());
    for (unsigned int i = 0; i < out.get_count(); ++i) out[i] = i;
}

void SphereCloud::set_path(const std::vector<double>& times, const std::vector<Vec3>& offsets) {
    CoreArray<double> copy;
    for (const double time : times) copy.add(time);
    m_sampling = GMathTimeSampling(copy);
    m_offsets = offsets;
    m_cloud.init_sampling(m_sampling,
                          CoreSharedPointer<GeometryPointCloud::SampleLoader, CoreSharedCounter>(new NoLoader));
}

Vec3 SphereCloud::get_offset(double time) const {
    if (m_offsets.empty()) return {0, 0, 0};
    unsigned int sample;
    double fraction;
    m_sampling.get_span(time, sample, fraction);
    return m_offsets[sample] * (1.0 - fraction) + m_offsets[sample + 1] * fraction;
}

GMathBbox3<double> SphereCloud::get_bbox() const {
    Bbox3 box = Bbox3::empty();
    for (const Sphere& sphere : m_spheres) {
        const Vec3 r{sphere.radius, sphere.radius, sphere.radius};
        box.grow(Bbox3(sphere.center - r, sphere.center + r));
    }
    return box;
}

void SphereCloud::compute_primitive_bbox(const CtxEval& ctx, const unsigned int& primitive, Bbox3& bbox) const {
    compute_primitive_bbox_at(ctx, primitive, 0.0, bbox);
}

void SphereCloud::compute_primitive_bbox_at(const CtxEval&, const unsigned int& primitive, const double& time,
                                            Bbox3& bbox) const {
    const Sphere& sphere = m_spheres[primitive];
    const Vec3 center = sphere.center + get_offset(time);
    const Vec3 r{sphere.radius, sphere.radius, sphere.radius};
    bbox = {center - r, center + r};
}

void SphereCloud::compute_fragment_sample(const CtxEval&, const GeometryFragment& fragment,
                                          GeometrySample& sample) const {
    const Sphere& sphere = m_spheres[fragment.primitive];
    const double around = tau * fragment.u, height = std::numbers::pi * (fragment.v - 0.5), r = sphere.radius;
    const Vec3 out{std::sin(around) * std::cos(height), std::sin(height), std::cos(around) * std::cos(height)};
    const Vec3 du = Vec3{out[2], 0, -out[0]} * (tau * r);
    const Vec3 dv = Vec3{-std::sin(around) * std::sin(height), std::cos(height), -std::cos(around) * std::sin(height)} *
                    (std::numbers::pi * r);
    sample.set_fallback_normal(out);
    const Vec3 zero{0, 0, 0};
    sample.init_surface(sphere.center + get_offset(fragment.time) + out * r, du, dv, zero, zero, zero);
}

// Like the real kernels: one time for the whole range, and the ray moved close to the object first.
void SphereCloud::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                                      GeometryRaytraceCtx& rays) const {
    const unsigned int first = rays.get_first_ray(), last = rays.get_last_ray();
    const Vec3 center = m_spheres[primitive].center + get_offset(rays.has_motion_blur() ? rays.get_time() : 0.0);
    const double radius = m_spheres[primitive].radius;
    for (unsigned int i = first; i <= last; ++i) {
        const GeometryRay& ray = rays.get_ray(i);
        const double shift = rays.get_reference_shift(i);
        const Vec3 start = ray.origin + ray.direction * shift - center;
        const double a = ray.direction.length_squared(), b = start.dot(ray.direction);
        const double disc = b * b - a * (start.length_squared() - radius * radius);
        if (!(disc >= 0.0)) continue;
        for (const double sign : {-1.0, 1.0}) {
            const double t = (-b + sign * std::sqrt(disc)) / a;
            const Vec3 n = (start + ray.direction * t) * (1.0 / radius);
            const double u = std::atan2(n[0], n[2]) / tau;
            const double v = std::asin(std::clamp(n[1], -1.0, 1.0)) / std::numbers::pi + 0.5;
            push(ctx, rays, i, primitive, u < 0.0 ? u + 1.0 : u, v, t + shift);
        }
    }
}

void FlatGrid::compute_primitive_bbox(const CtxEval&, const unsigned int& primitive, Bbox3& bbox) const {
    const double x = primitive % m_n, y = primitive / m_n, n = m_n;
    bbox = {{x / n, y / n, 0}, {(x + 1) / n, (y + 1) / n, 0}};
}

void FlatGrid::compute_fragment_sample(const CtxEval&, const GeometryFragment& fragment, GeometrySample& sample) const {
    const double n = m_n, x = fragment.primitive % m_n + fragment.u, y = fragment.primitive / m_n + fragment.v;
    const Vec3 zero{0, 0, 0};
    sample.init_surface({x / n, y / n, 0}, {1 / n, 0, 0}, {0, 1 / n, 0}, zero, zero, zero);
}

void FlatGrid::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive, GeometryRaytraceCtx& rays) const {
    for (unsigned int i = rays.get_first_ray(); i <= rays.get_last_ray(); ++i) {
        const GeometryRay& ray = rays.get_ray(i);
        const double t = -ray.origin[2] / ray.direction[2];
        const double u = (ray.origin[0] + t * ray.direction[0]) * m_n - primitive % m_n;
        const double v = (ray.origin[1] + t * ray.direction[1]) * m_n - primitive / m_n;
        if (u >= 0.0 && u <= 1.0 && v >= 0.0 && v <= 1.0) push(ctx, rays, i, primitive, u, v, t);
    }
}

ViewPlace place_in_view(const sds_render::Camera& camera, unsigned int width, const Vec3& point) {
    const auto slopes = [&camera](const Vec3& arm) {
        const double depth = arm.dot(camera.get_forward());
        return depth > 0.0 ? ViewPlace{arm.dot(camera.get_right()) / depth, arm.dot(camera.get_up()) / depth}
                           : ViewPlace{INFINITY, INFINITY};
    };
    const ViewPlace border = slopes(camera.camera_ray(width, 0.0).direction);
    const ViewPlace place = slopes(point - camera.get_position());
    return {place.x / border.x, place.y / border.y};
}

Vec3 random_direction(std::mt19937& random) {
    std::normal_distribution<double> normal;
    return sds_render::normalized(Vec3{normal(random), normal(random), normal(random)});
}

Expected find_nearest(const SphereCloud& cloud, const GeometryRay& ray) {
    using Real = long double;
    Expected best;
    const Vec3 offset = cloud.get_offset(ray.time);
    for (unsigned int s = 0; s < cloud.get_spheres().size(); ++s) {
        const Sphere& sphere = cloud.get_spheres()[s];
        Real along = 0, arm_squared = 0, speed_squared = 0;
        for (unsigned int a = 0; a < 3; ++a) {
            const Real arm = Real{sphere.center[a]} + Real{offset[a]} - Real{ray.origin[a]};
            along += arm * Real{ray.direction[a]};
            arm_squared += arm * arm;
            speed_squared += Real{ray.direction[a]} * Real{ray.direction[a]};
        }
        const Real half_squared =
            Real{sphere.radius} * Real{sphere.radius} - (arm_squared - along * along / speed_squared);
        if (!(half_squared >= 0)) continue;
        for (const Real sign : {-1.0L, 1.0L}) {
            const auto t =
                static_cast<double>((along + sign * std::sqrt(half_squared * speed_squared)) / speed_squared);
            if (t >= ray.tnear && t < ray.tfar && t < best.t) best = {t, s};
        }
    }
    return best;
}

std::vector<Sphere> make_spheres(unsigned int count, const Vec3& center, double size) {
    std::mt19937 random(count);
    std::uniform_real_distribution<double> place(-1.0, 1.0), radius(0.01, 0.12);
    std::vector<Sphere> spheres(count);
    for (Sphere& sphere : spheres)
        sphere = {center + Vec3{place(random), place(random), place(random)} * size, radius(random) * size};
    return spheres;
}

std::vector<GeometryRay> make_rays(unsigned int count, const Vec3& center, double size, double distance) {
    std::mt19937 random(count + 1);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const auto any = [&] { return Vec3{unit(random), unit(random), unit(random)}; };
    std::vector<GeometryRay> rays(count);
    for (unsigned int i = 0; i < count; ++i) {
        GeometryRay& ray = rays[i];
        const Vec3 target = center + any() * size;
        ray.origin = center + any() * (i % 4 == 0 ? size : distance * size);
        ray.direction = (target - ray.origin) * std::exp2(8.0 * unit(random));
        if (i % 3 == 0) ray.tnear = 0.5 * (1.0 + unit(random)) * size / ray.direction.length();
        if (i % 5 == 0) ray.tfar = distance * size / ray.direction.length();
    }
    return rays;
}

}  // namespace render_test

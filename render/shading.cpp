#include "render/shading.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "render/wire.h"

namespace sds_render {

namespace {

// Two unit vectors across a unit vector (Duff et al., "Building an Orthonormal Basis, Revisited", 2017).
void get_frame(const Vec3& n, Vec3& a, Vec3& b) {
    const double sign = std::copysign(1.0, n[2]);
    const double s = -1.0 / (sign + n[2]);
    const double t = n[0] * n[1] * s;
    a = {1.0 + sign * n[0] * n[0] * s, sign * t, -sign * n[0]};
    b = {t, sign + n[1] * n[1] * s, -n[1]};
}

Vec3 get_disc_point(const Vec3& axis, const SamplePoint& sample) {
    Vec3 a, b;
    get_frame(axis, a, b);
    const double radius = std::sqrt(sample.x), angle = 2.0 * std::numbers::pi * sample.y;
    return a * (radius * std::cos(angle)) + b * (radius * std::sin(angle));
}

// Lambert's cosine, begun a little behind the edge of the light: as a large source would.
double get_soft_cosine(const Vec3& normal, const Vec3& light, double wrap) {
    return std::max(0.0, (normal.dot(light) + wrap) / (1.0 + wrap));
}

constexpr double key_radius = 0.16;  // of the key light's disc at distance 1
constexpr Color sky{0.36f, 0.41f, 0.49f};
constexpr Color ground{0.17f, 0.14f, 0.12f};

}  // namespace

Shader::Shader(const Scene& scene, const Camera& camera, const ShadingOptions& options)
    : m_scene(&scene), m_camera(&camera), m_options(options), m_up(camera.get_up()) {
    const auto aim = [&](double right, double up, double back) {
        return normalized(camera.get_right() * right + camera.get_up() * up - camera.get_forward() * back);
    };
    m_key = {aim(-0.62, 0.80, 0.62), {2.00f, 1.90f, 1.76f}};
    m_fill = {aim(0.90, 0.05, 0.45), {0.20f, 0.27f, 0.38f}};
    m_rim = {aim(0.55, 0.45, -0.80), {1.00f, 1.06f, 1.15f}};
    if (m_options.sun || m_options.environment) {
        m_fill.color = m_rim.color = {0, 0, 0};
        m_key.color *= m_options.sun ? static_cast<float>(m_options.sun->strength) : 0.0f;
        if (m_options.sun) m_key.direction = m_options.sun->direction;
        m_up = m_options.up;
    }

    // Positions are single precision somewhere along the way: far from the origin that is the coarser measure.
    const Vec3 center = scene.get_bbox().is_empty() ? Vec3{0, 0, 0} : scene.get_bbox().get_center();
    const double coordinate = std::max({std::fabs(center[0]), std::fabs(center[1]), std::fabs(center[2])});
    m_ray_offset = std::max(1e-4 * scene.get_radius(), 4.0 * std::numeric_limits<float>::epsilon() * coordinate);
}

void Shader::face(Hit& hit) const {
    const SurfacePoint& point = hit.point;
    const auto turn = [&](const Vec3& n) { return n.dot(point.direction) > 0.0 ? -n : n; };
    const Vec3 geometric = turn(point.sample.get_geometric_normal());
    hit.normal = geometric;
    if (m_options.smoothing_normal) {
        // Turned with the surface, so that a smooth normal that leans away from the camera does not flip.
        hit.normal = point.sample.get_smoothing_normal();
        if (hit.normal.dot(geometric) < 0.0) hit.normal = -hit.normal;
    }
    hit.start = point.position + geometric * m_ray_offset;
}

GeometryRay Shader::make_key_ray(const Hit& hit, unsigned int index) const {
    const Vec3 spread =
        get_disc_point(m_key.direction, hit.sampler.get(index, first_dimension_pair, m_options.key_rays));
    GeometryRay ray;
    ray.origin = hit.start;
    ray.direction = normalized(m_key.direction + spread * key_radius);
    ray.time = hit.point.fragment.time;
    return ray;
}

void Shader::light(Hit* const* hits, unsigned int count, RenderThread& thread) const {
    constexpr unsigned int most_rays = RenderThread::packet_size;
    GeometryRay rays[most_rays];
    Hit* lit[most_rays];
    unsigned int ray_count = 0;
    for (unsigned int i = 0; i < count; ++i) {
        Hit& hit = *hits[i];
        face(hit);
        hit.key = get_soft_cosine(hit.normal, m_key.direction, 0.08);
        if (!(hit.key > 0.0)) continue;
        for (unsigned int k = 0; k < m_options.key_rays; ++k) {
            rays[ray_count] = make_key_ray(hit, hit.sample * m_options.key_rays + k);
            lit[ray_count++] = &hit;
        }
    }
    if (ray_count == 0) return;
    m_scene->occluded_packet(rays, ray_count, thread);
    for (unsigned int i = 0; i < ray_count; i += m_options.key_rays) {
        unsigned int free_count = 0;
        for (unsigned int k = 0; k < m_options.key_rays; ++k)
            free_count += rays[i + k].hit.primitive == no_index ? 1 : 0;
        lit[i]->key *= static_cast<double>(free_count) / m_options.key_rays;
    }
}

// A direction with the normal's cosine as density.
GeometryRay Shader::make_ambient_ray(const Hit& hit, unsigned int index, unsigned int share) const {
    const SamplePoint at = hit.sampler.get(index, first_dimension_pair + 1, share);
    GeometryRay ray;
    ray.origin = hit.start;
    ray.direction = get_disc_point(hit.normal, at) + hit.normal * std::sqrt(1.0 - at.x);
    ray.time = hit.point.fragment.time;
    return ray;
}

// Share of cosine-weighted directions that leave the surface freely. The weight of what blocks falls off linearly with
// its distance. A pixel whose first half of rays met nothing takes no more.
double Shader::get_ambient_share(const Hit& hit, PixelOcclusion& occlusion, RenderThread& thread) const {
    constexpr unsigned int least_count = 16;
    const unsigned int count = m_options.ambient_rays;
    if (count == 0) return 1.0;
    const unsigned int half = std::max(hit.sampler.get_count() * count / 2, least_count);
    if (occlusion.is_free && occlusion.ray_count >= half) return 1.0;
    const double reach = m_options.ambient_reach * m_scene->get_radius();
    double free_share = 0.0;
    for (unsigned int i = 0; i < count; ++i) {
        GeometryRay ray = make_ambient_ray(hit, hit.sample * count + i, count);
        ray.tfar = reach;
        const bool is_blocked = m_scene->intersect(ray, thread);
        free_share += is_blocked ? ray.hit.t / reach : 1.0;
        occlusion.is_free = occlusion.is_free && !is_blocked;
    }
    occlusion.ray_count += count;
    return free_share / count;
}

// Mean of what comes from cosine-weighted directions.
Color Shader::get_environment_light(const Hit& hit, RenderThread& thread) const {
    const unsigned int count = std::max(m_options.ambient_rays, 1u);
    Color sum{0, 0, 0};
    for (unsigned int i = 0; i < count; ++i) {
        GeometryRay ray = make_ambient_ray(hit, hit.sample * count + i, count);
        if (m_options.ambient_rays != 0 && m_scene->occluded(ray, thread)) continue;
        sum += m_options.environment(ray.direction);
    }
    return sum * (1.0f / static_cast<float>(count));
}

Color Shader::shade(const Hit& hit, PixelOcclusion& occlusion, RenderThread& thread) const {
    const SurfacePoint& point = hit.point;
    const Vec3& normal = hit.normal;
    const double key = hit.key;
    const bool has_environment = static_cast<bool>(m_options.environment);
    const double ambient = has_environment ? 0.0 : get_ambient_share(hit, occlusion, thread);
    const double fill = get_soft_cosine(normal, m_fill.direction, 0.4) * ambient;
    const double facing_ratio = clamp_unit(-normal.dot(point.direction));
    const double rim = get_soft_cosine(normal, m_rim.direction, 0.0) * ambient;

    const double skyward = 0.5 + 0.5 * normal.dot(m_up);
    Color light = mix(ground, sky, static_cast<float>(skyward)) * static_cast<float>(ambient);
    if (has_environment) light = get_environment_light(hit, thread);
    light += m_key.color * static_cast<float>(key);
    light += m_fill.color * static_cast<float>(fill);
    light += m_rim.color * static_cast<float>(rim);
    // Silhouettes darken a little, so that the shape stands out from itself and from the background.
    light *= static_cast<float>(0.62 + 0.38 * smooth_step(0.0, 0.42, facing_ratio));

    Color out = multiply(m_options.color(point), light);
    // A broad sheen tells curvature apart from shade (Blinn 1977, with Schlick's Fresnel term).
    const Vec3 half = normalized(m_key.direction - point.direction);
    const double fresnel = 0.04 + 0.96 * std::pow(1.0 - clamp_unit(half.dot(m_key.direction)), 5.0);
    const double sheen = key > 0.0 ? 2.2 * fresnel * std::pow(clamp_unit(normal.dot(half)), 26.0) : 0.0;
    out += m_key.color * static_cast<float>(sheen * std::min(1.0, 4.0 * key));

    if (m_options.wire) {
        const double coverage = m_camera->is_moving()
                                    ? get_wire_coverage(point, m_camera->at(point.fragment.time), m_options.wire_width)
                                    : get_wire_coverage(point, *m_camera, m_options.wire_width);
        out = mix(out, m_options.wire_color, static_cast<float>(0.85 * coverage));
    }
    return out;
}

Color Shader::get_background(double x, double y, const Vec3& direction) const {
    if (m_options.environment) return m_options.environment(direction);
    const double width = m_camera->get_width(), height = m_camera->get_height();
    constexpr Color top{0.085f, 0.098f, 0.118f}, bottom{0.23f, 0.238f, 0.248f};
    const Color base = mix(top, bottom, static_cast<float>(smooth_step(0.0, 1.0, y / height)));
    const double dx = x / width - 0.5, dy = y / height - 0.5;
    return base * static_cast<float>(1.0 - 0.55 * (dx * dx + dy * dy));
}

}  // namespace sds_render

#include "qn_geometry/geometry_raytrace_ctx.h"

#include <cmath>

namespace {

// 1 / square and its root, the square being that of a direction. Most directions have length 1 up to rounding: the
// series' next terms are below 1e-16 there.
struct DirectionScale {
    double inverse_square, inverse_length;

    explicit DirectionScale(double square) {
        const double excess = square - 1.0;
        if (std::fabs(excess) < 1e-8) {
            inverse_square = 1.0 - excess;
            inverse_length = 1.0 - 0.5 * excess;
        } else {
            inverse_square = 1.0 / square;
            inverse_length = std::sqrt(inverse_square);
        }
    }
};

double get_shift(const GMathVec3<double>& point, const GeometryRay& ray, double inverse_square) {
    const double shift = (point - ray.origin).dot(ray.direction) * inverse_square;
    return std::isfinite(shift) ? shift : 0.0;
}

}  // namespace

GeometryRayIndex::~GeometryRayIndex() = default;

double GeometryRaytraceCtx::get_reference_shift(const unsigned int& i) const {
    const GeometryRay& ray = m_rays[i];
    return get_shift(m_reference_point, ray, DirectionScale(ray.direction.length_squared()).inverse_square);
}

const GeometryRaySpace& GeometryRaytraceCtx::get_ray_space(const unsigned int& i) {
    GeometryRay& ray = m_rays[i];
    GeometryRaySpace& space = ray.space;
    if (space.reference_point == m_reference_point && space.ray_origin == ray.origin &&
        space.ray_direction == ray.direction)
        return space;
    space.ray_origin = ray.origin;
    space.ray_direction = ray.direction;
    space.reference_point = m_reference_point;
    const double square = ray.direction.length_squared();
    DirectionScale scale(square);
    space.shift = get_shift(m_reference_point, ray, scale.inverse_square);

    // Two vectors across (Duff et al., Building an Orthonormal Basis, Revisited, 2017).
    // A direction too long or too short for single precision makes everything NaN, as a zero one does: no hit.
    if (!(square >= 1e-60 && square <= 1e60))
        scale.inverse_square = scale.inverse_length = std::numeric_limits<double>::quiet_NaN();
    const GMathVec3<double> n = ray.direction * scale.inverse_length;
    const double sign = std::copysign(1.0, n[2]);
    const double a = -1.0 / (sign + n[2]);
    const double b = n[0] * n[1] * a;
    const GMathVec3<double> across0(1.0 + sign * n[0] * n[0] * a, sign * b, -sign * n[0]);
    const GMathVec3<double> across1(b, sign + n[1] * n[1] * a, -n[1]);
    const GMathVec3<double> origin = ray.origin + ray.direction * space.shift;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        space.origin[axis] = static_cast<float>(origin[axis]);
        space.across[0][axis] = static_cast<float>(across0[axis]);
        space.across[1][axis] = static_cast<float>(across1[axis]);
        space.along[axis] = static_cast<float>(ray.direction[axis] * scale.inverse_square);
    }
    return space;
}

bool GeometryRaytraceCtx::push_intersection(const CtxEval&, const unsigned int& i, const unsigned int& primitive,
                                            const double& u, const double& v, const double&,
                                            const unsigned int& sub_element, const double&, const double&,
                                            const double&, const double& t, const double& separation,
                                            const GeometryMediumDescriptor&, const void*) {
    GeometryRay& ray = m_rays[i];
    if (ray.is_finished || !(t >= ray.tnear && t < ray.tfar)) return false;
    const GeometryHit hit{primitive, sub_element, u, v, t};
    if (m_data.map != nullptr) {
        if (!m_data.map->get_path(i).add(hit, separation)) return false;
        if (!(t < ray.hit.t)) return true;
        ray.hit = hit;
        if (ray.mode == GeometryRayMode::any) ray.is_finished = true;
        return true;
    }
    ray.hit = hit;
    ray.tfar = t;
    if (ray.mode == GeometryRayMode::any) ray.is_finished = true;
    return true;
}

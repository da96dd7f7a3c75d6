#include "web/src/surface_grid.h"

#include "model/surface_statistics.h"
#include "qn_ctx/ctx_eval.h"
#include "sds/refinement/patch_places.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>

namespace sds_page {

namespace {

using sds_model::Surface;
using Vec3d = GMathVec3<double>;

constexpr float nan = std::numeric_limits<float>::quiet_NaN();

/// Cells that make the limit look smooth, and as many as the smallest patches where that is not too many.
unsigned int smooth_cells(const Surface& surface) {
    constexpr std::uint64_t comfortable = 40'000, most = 160'000;
    const std::uint64_t quads = surface.get_base().get_primitive_count();
    const SdsMeshGeometry& geometry = surface.get_geometry();
    const unsigned int smallest = geometry.is_refined() ? 1u << geometry.get_finest_level() : 1;
    unsigned int cells = 16;
    while (cells > 2 && quads * cells * cells > comfortable) cells /= 2;
    while (cells > 1 && quads * (cells + 1) * (cells + 1) > SurfaceGrid::max_points) cells /= 2;
    while (cells < smallest && quads * cells * cells * 4 <= most) cells *= 2;
    return cells;
}

void put(const Vec3d& v, float* out) {
    for (unsigned int c = 0; c < 3; ++c) out[c] = static_cast<float>(v[c]);
}

/// Mean and Gaussian curvature from the two fundamental forms (do Carmo, Differential Geometry of Curves and Surfaces,
/// 3-3); positive where the surface bends away from its normal. 0 where the derivatives are parallel.
void put_curvatures(const GeometrySample& sample, float* out) {
    const Vec3d &pu = sample.get_geometric_dpdu(), &pv = sample.get_geometric_dpdv();
    const Vec3d &nu = sample.get_geometric_dndu(), &nv = sample.get_geometric_dndv();
    const double e = pu.dot(pu), f = pu.dot(pv), g = pv.dot(pv);
    const double l = nu.dot(pu), m = nu.dot(pv), n = nv.dot(pv);
    const double area = e * g - f * f;
    const bool is_regular = area > 1e-12 * e * g;
    out[0] = is_regular ? static_cast<float>((l * g - 2.0 * m * f + n * e) / (2.0 * area)) : 0.0f;
    out[1] = is_regular ? static_cast<float>((l * n - m * m) / area) : 0.0f;
}

std::uint8_t level_of(const SdsMesh& mesh, std::uint32_t primitive) {
    const SdsMeshGeometry& geometry = *mesh.get_geometry();
    return geometry.is_refined() ? static_cast<std::uint8_t>(geometry.get_places().get_patch(primitive).level() + 1)
                                 : 1;
}

}  // namespace

void SurfaceGrid::evaluate(const Surface& surface, unsigned int level) {
    const SdsMeshBase& base = surface.get_base();
    const std::uint32_t quads = base.get_primitive_count();
    m_cells = level == 0 ? smooth_cells(surface) : std::max(1u, base.get_tessellation_sample_count(level) - 1);
    const std::uint64_t points = std::uint64_t{quads} * get_points_per_quad();
    if (points > max_points)
        throw std::length_error("level " + std::to_string(level) + " takes " + std::to_string(points) +
                                " points, the page draws at most " + std::to_string(max_points));
    const auto count = static_cast<std::size_t>(points);
    positions.assign(3 * count, nan);
    normals.assign(3 * count, 0.0f);
    uvs.assign(2 * count, 0.0f);
    curvatures.assign(2 * count, 0.0f);
    patches.assign(2 * count, 0);
    const std::vector<sds_model::PatchClass> classes = sds_model::patch_classes(surface);
    for (std::size_t p = 0; p < count; ++p)
        patches[2 * p] = static_cast<std::uint8_t>(classes[p / get_points_per_quad()]);
    const SdsMesh mesh = surface.make_mesh(0);
    for (std::uint32_t q = 0; q < quads; ++q) evaluate_quad(surface, mesh, q);
}

void SurfaceGrid::evaluate(const Surface& surface, std::span<const std::uint32_t> quads) {
    const SdsMesh mesh = surface.make_mesh(0);
    for (const std::uint32_t q : quads) evaluate_quad(surface, mesh, q);
}

void SurfaceGrid::evaluate_quad(const Surface& surface, const SdsMesh& mesh, std::uint32_t quad) {
    const CtxShader shader;
    const CtxEval ctx(shader);
    const SdsMeshMaps& maps = surface.get_maps();
    const bool is_mapped = maps.get_uv_map_count() > 0 && maps.is_primitive_uv_mapped(quad, 0);
    const double step = 1.0 / m_cells;
    std::size_t point = std::size_t{quad} * get_points_per_quad();
    for (unsigned int j = 0; j <= m_cells; ++j)
        for (unsigned int i = 0; i <= m_cells; ++i, ++point) {
            const double u = i * step, v = j * step;
            const SdsMesh::PrimitivePlace place = mesh.find_primitive(quad, u, v);
            if (place.primitive == 0xFFFFFFFF) continue;
            GeometrySample sample;
            mesh.compute_fragment_sample(ctx, {place.primitive, place.u, place.v, 0.0, 0.0}, sample);
            put(sample.get_geometric_position(), &positions[3 * point]);
            put(sample.get_smoothing_normal(), &normals[3 * point]);
            put_curvatures(sample, &curvatures[2 * point]);
            Vec3d uvw{u, v, 0}, du, dv;
            if (is_mapped) maps.compute_fragment_uvw(ctx, {quad, u, v, 0.0, 0.0}, 0, uvw, du, dv);
            for (unsigned int c = 0; c < 2; ++c) uvs[2 * point + c] = static_cast<float>(uvw[c]);
            patches[2 * point + 1] = level_of(mesh, place.primitive);
        }
}

}  // namespace sds_page

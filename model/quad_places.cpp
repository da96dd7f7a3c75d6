#include "model/quad_places.h"

#include "sds/common/control_grid.h"
#include "sds/refinement/patch_places.h"

#include <algorithm>
#include <limits>

namespace sds_model {

namespace {

using Vec3d = GMathVec3<double>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr unsigned int none = 0xFFFFFFFF;

double* put(const Vec3d& v, double* out) { return std::copy(v.get_data(), v.get_data() + 3, out); }

/// The controls by rows along u.
void get_grid_controls(const SdsMeshGeometry& geometry, unsigned int patch, Vec3d* grid) {
    GMathVec3<float> controls[16];
    geometry.get_bezier_controls(patch, controls);
    for (unsigned int i = 0; i < 16; ++i) grid[i] = Vec3d(controls[sds::grid_order[i]]);
}

/// Four controls, `stride` apart, made into those of the curve's first or second half.
void halve(Vec3d* curve, unsigned int stride, bool second) {
    for (unsigned int step = 1; step < 4; ++step)
        for (unsigned int i = 0; i + step < 4; ++i) {
            const unsigned int to = second ? i : 3 - i, from = second ? i + 1 : 2 - i;
            curve[to * stride] = (curve[to * stride] + curve[from * stride]) * 0.5;
        }
}

/// By the hull of a quarter of a patch, the one at corner `quarter`: it lies within the frustum, or may touch it.
bool is_quarter_selected(const Vec3d* controls, unsigned int quarter, const GeometryFrustum& frustum, bool holds) {
    Vec3d net[16];
    std::copy_n(controls, 16, net);
    const bool is_right = quarter == 1 || quarter == 2, is_upper = quarter > 1;
    for (unsigned int i = 0; i < 4; ++i) halve(net + 4 * i, 1, is_right);
    for (unsigned int i = 0; i < 4; ++i) halve(net + i, 4, is_upper);
    const auto is_within = [&](const GeometryPlane& plane) {
        const auto keeps = [&](const Vec3d& p) { return plane.get_distance(p) >= 0.0; };
        return holds ? std::all_of(net, net + 16, keeps) : std::any_of(net, net + 16, keeps);
    };
    return std::all_of(frustum.sides, frustum.sides + frustum.side_count, is_within) && is_within(frustum.near_plane) &&
           is_within(frustum.far_plane);
}

}  // namespace

void sample_row(const GeometrySample& sample, double* out) {
    out = put(sample.get_geometric_position(), out);
    out = put(sample.get_geometric_dpdu(), out);
    out = put(sample.get_geometric_dpdv(), out);
    out = put(sample.get_geometric_normal(), out);
    put(sample.get_smoothing_normal(), out);
}

PatchFragment find_patch(const SdsMesh& mesh, const GeometryFragment& on_quad) {
    const SdsMesh::PrimitivePlace place = mesh.find_primitive(on_quad.primitive, on_quad.u, on_quad.v);
    PatchFragment found;
    found.has_surface = place.primitive != none;
    found.fragment = {place.primitive, place.u, place.v, on_quad.time, on_quad.time_interval};
    found.turned.turns = place.turns;
    found.turned.derivative_scale = place.derivative_scale;
    return found;
}

void move_to_quad(const SdsMesh& mesh, GeometryHit& hit) {
    if (hit.primitive == none) return;
    const GeometryPlace place = mesh.get_primitive_place(hit.primitive, hit.u, hit.v);
    hit.primitive = place.face;
    hit.u = place.u;
    hit.v = place.v;
}

void sample_hit(const SdsMesh& mesh, const CtxEval& ctx, const GeometryHit& hit, double time, double* out) {
    GeometrySample sample;
    mesh.compute_fragment_sample(ctx, {hit.primitive, hit.u, hit.v, time, 0.0}, sample);
    sample_row(sample, out);
    if (!mesh.get_geometry()->is_refined()) return;
    const GeometryPlace place = mesh.get_primitive_place(hit.primitive, hit.u, hit.v);
    for (unsigned int c = 0; c < 3; ++c) place.turn_to_face(out[3 + c], out[6 + c]);
}

void sample_on_quad(const SdsMesh& mesh, const CtxEval& ctx, const GeometryFragment& on_quad, double* out) {
    const PatchFragment found = find_patch(mesh, on_quad);
    if (!found.has_surface) {
        std::fill_n(out, sample_row_size, nan);
        return;
    }
    GeometrySample sample;
    mesh.compute_fragment_sample(ctx, found.fragment, sample);
    sample_row(sample, out);
    if (!mesh.get_geometry()->is_refined()) return;
    for (unsigned int c = 0; c < 3; ++c) found.turned.turn_to_face(out[3 + c], out[6 + c]);
}

void evaluate_on_quad(const SurfaceProperty& property, const SdsMesh& mesh, const CtxEval& ctx,
                      const GeometryFragment& on_quad, double* out) {
    const unsigned int extent = property.get_extent();
    const PatchFragment found = find_patch(mesh, on_quad);
    if (!found.has_surface) {
        std::fill_n(out, 3 * std::size_t{extent}, nan);
        return;
    }
    double *const du = out + extent, *const dv = du + extent;
    property.evaluate(ctx, found.fragment, out, du, dv);
    if (!mesh.get_geometry()->is_refined()) return;
    for (unsigned int i = 0; i < extent; ++i) found.turned.turn_to_face(du[i], dv[i]);
}

std::vector<unsigned int> select_quads(const SdsMesh& mesh, const GeometryFrustum& frustum,
                                       sds_render::SelectMode mode) {
    const std::vector<unsigned int> selected = sds_render::select_batch(mesh, frustum, mode);
    if (!mesh.get_geometry()->is_refined()) return selected;
    const sds::PatchPlaces& places = mesh.get_geometry()->get_places();
    const bool holds = mode == sds_render::SelectMode::inside;
    std::vector<unsigned int> counts(places.get_quad_count(), 0);
    std::vector<unsigned int> polygons;  // patches of which quarters may be selected
    for (const unsigned int primitive : selected) {
        const sds::RefinedPatch& patch = places.get_patch(primitive);
        if (!patch.covers_four_quads())
            ++counts[patch.quad()];
        else if (!holds)
            polygons.push_back(primitive);
        else
            std::fill_n(&counts[patch.quad()], 4, 1u);
    }
    if (holds)
        for (unsigned int p = 0; p < places.get_patch_count(); ++p)
            if (const auto& patch = places.get_patch(p); patch.covers_four_quads() && counts[patch.quad()] == 0)
                polygons.push_back(p);
    for (const unsigned int p : polygons) {
        Vec3d controls[16];
        get_grid_controls(*mesh.get_geometry(), p, controls);
        for (unsigned int quarter = 0; quarter < 4; ++quarter)
            if (is_quarter_selected(controls, quarter, frustum, holds)) ++counts[places.get_patch(p).quad() + quarter];
    }
    std::vector<unsigned int> quads;
    for (unsigned int q = 0; q < counts.size(); ++q) {
        const unsigned int own = std::max(1u, places.first_patch(q + 1) - places.first_patch(q));
        if (counts[q] >= (holds ? own : 1u)) quads.push_back(q);
    }
    return quads;
}

bool has_surface(const SdsMesh& mesh, unsigned int quad) {
    return mesh.find_primitive(quad, 0.5, 0.5).primitive != none;
}

}  // namespace sds_model

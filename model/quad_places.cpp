#include "model/quad_places.h"

#include "sds/refinement/patch_places.h"

#include <algorithm>
#include <limits>

namespace sds_model {

namespace {

using Vec3d = GMathVec3<double>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr unsigned int none = 0xFFFFFFFF;

double* put(const Vec3d& v, double* out) { return std::copy(v.get_data(), v.get_data() + 3, out); }

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

std::vector<unsigned int> find_quads(const SdsMesh& mesh, const std::vector<unsigned int>& primitives, bool whole) {
    if (!mesh.get_geometry()->is_refined()) return primitives;
    const sds::PatchPlaces& places = mesh.get_geometry()->get_places();
    std::vector<unsigned int> counts(places.get_quad_count(), 0);
    for (const unsigned int primitive : primitives) {
        const sds::RefinedPatch& patch = places.get_patch(primitive);
        const unsigned int covered = patch.covers_four_quads() ? 4 : 1;
        for (unsigned int q = patch.quad(); q < patch.quad() + covered; ++q) ++counts[q];
    }
    std::vector<unsigned int> quads;
    for (unsigned int q = 0; q < counts.size(); ++q) {
        const unsigned int own = places.first_patch(q + 1) - places.first_patch(q);
        if (counts[q] > 0 && (!whole || counts[q] >= own)) quads.push_back(q);
    }
    return quads;
}

bool has_surface(const SdsMesh& mesh, unsigned int quad) {
    return mesh.find_primitive(quad, 0.5, 0.5).primitive != none;
}

}  // namespace sds_model

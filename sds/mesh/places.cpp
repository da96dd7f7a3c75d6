// The way between the patches of a refined surface and the quads that users know.
#include <algorithm>

#include "sds/mesh/sds_mesh.h"
#include "sds/refinement/patch_places.h"

GeometryPlace SdsMesh::get_primitive_place(const unsigned int& primitive, const double& u, const double& v) const {
    GeometryPlace place;
    if (!geometry->is_refined()) {
        place.face = primitive;
        place.u = u;
        place.v = v;
        return place;
    }
    const sds::PatchPlaces& places = geometry->get_places();
    const sds::QuadPoint at = places.find_quad(primitive, u, v);
    place.face = at.quad;
    place.u = at.u;
    place.v = at.v;
    place.turns = at.turns;
    place.derivative_scale = static_cast<double>(places.get_patch(primitive).derivative_scale());
    return place;
}

SdsMesh::PrimitivePlace SdsMesh::find_primitive(const unsigned int& quad, const double& u, const double& v) const {
    PrimitivePlace place;
    place.primitive = quad;
    place.u = u;
    place.v = v;
    if (!geometry->is_refined()) return place;
    const sds::PatchPlaces& places = geometry->get_places();
    const sds::PatchPlace at = places.find_patch(quad, u, v);
    place.primitive = at.patch;
    place.u = at.u;
    place.v = at.v;
    place.turns = at.turns;
    if (at.patch != sds::none)
        place.derivative_scale = static_cast<double>(places.get_patch(at.patch).derivative_scale());
    return place;
}

unsigned int SdsMesh::get_primitive_quad(const unsigned int& primitive) const {
    return geometry->is_refined() ? geometry->get_places().get_patch(primitive).quad() : primitive;
}

void SdsMesh::get_primitive_vertices(unsigned int primitive, unsigned int* out) const {
    const unsigned int quad = get_primitive_quad(primitive);
    if (!geometry->is_refined() || !geometry->get_places().get_patch(primitive).covers_four_quads()) {
        std::copy_n(base->get_quad_indices(quad), 4, out);
        return;
    }
    for (unsigned int k = 0; k < 4; ++k) out[k] = base->get_quad_indices(quad + k)[0];
}

// A polygon's edges begin at its corners, as the first edges of the quads there do.
SdsMesh::QuadEdge SdsMesh::find_quad_edge(unsigned int primitive, unsigned int edge) const {
    if (!geometry->is_refined()) return {primitive, edge};
    const sds::RefinedPatch& patch = geometry->get_places().get_patch(primitive);
    if (edge > 3) return {patch.quad(), edge};
    if (patch.covers_four_quads()) return {patch.quad() + edge, 0};
    const unsigned int last = (1u << static_cast<unsigned int>(patch.level())) - 1u;
    const bool is_outer[4] = {patch.y() == 0, patch.x() == last, patch.y() == last, patch.x() == 0};
    return {patch.quad(), is_outer[edge] ? edge : 4};
}

bool SdsMesh::is_primitive_edge_crease(const unsigned int& primitive, const unsigned int& edge) const {
    const QuadEdge found = find_quad_edge(primitive, edge);
    return base->is_primitive_edge_crease(found.quad, found.edge);
}

// Cells of all patches are equally large on the quads, so that both sides of an edge between levels have the same ones.
unsigned int SdsMesh::get_refined_cell_level(unsigned int primitive, unsigned int quad_level) const {
    const int finest = static_cast<int>(std::max(quad_level, geometry->get_finest_level()));
    return static_cast<unsigned int>(finest - geometry->get_places().get_patch(primitive).level());
}

unsigned int SdsMesh::get_adaptive_frustum_level(unsigned int primitive) const {
    constexpr int quad_level = 3;
    const int step = base->get_base_tessellation_level() ? 1 : 0;
    const int depth = geometry->is_refined() ? geometry->get_places().get_patch(primitive).level() : 0;
    return static_cast<unsigned int>(std::max(0, quad_level - step - depth));
}

double SdsMesh::get_refined_cell_corner(unsigned int primitive, double x) const {
    if (level == 0) return x;
    const auto scale = static_cast<float>(1u << get_cell_level(primitive));
    return static_cast<double>(std::floor(static_cast<float>(x * static_cast<double>(scale))) * (1.0f / scale));
}

#include "sds/mesh/sds_mesh.h"

#include <new>

#include "sds/refinement/patch_places.h"

using Vec3d = GMathVec3<double>;

namespace {

GeometryFragment on_quad(const GeometryFragment& fragment, const GeometryPlace& place) {
    GeometryFragment moved = fragment;
    moved.primitive = place.face;
    moved.u = place.u;
    moved.v = place.v;
    return moved;
}

}  // namespace

// NOLINTNEXTLINE(bugprone-copy-constructor-init): a copy is a fresh resource.
SdsMesh::SdsMesh(const SdsMesh& other)
    : GeometryObject(),
      base(other.base),
      geometry(other.geometry),
      maps(other.maps),
      level(other.level),
      level_scale(other.level_scale),
      level_scale_inv(other.level_scale_inv) {}

SdsMesh::~SdsMesh() = default;

void SdsMesh::set(const SdsMeshGeometry& mesh_geometry, const SdsMeshMaps& mesh_maps,
                  const unsigned int& tessellation_level, AppProgressBar* progress) {
    base = mesh_geometry.get_base();
    geometry = &mesh_geometry;
    maps = &mesh_maps;
    level = tessellation_level;
    // Level 0 on a base that took a step gives a shift of 31 and a negative scale; nothing reads it, since level 0 is
    // the limit surface.
    const unsigned int shift = (level - (base->get_base_tessellation_level() ? 1u : 0u)) & 31u;
    level_scale = static_cast<float>(static_cast<int>(1u << shift));
    level_scale_inv = 1.0f / level_scale;
    if (progress != nullptr) progress->set_value(1.0f);
}

const CoreClassInfo& SdsMesh::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsMesh::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("SdsMesh", &SdsMesh::___class_destructor__, &GeometryObject::class_info(), nullptr);
    return info;
}

bool SdsMesh::___class_destructor__(void* object, const bool& is_array) {
    return destroy_object<SdsMesh>(object, is_array);
}

GeometryObject* SdsMesh::get_copy() const { return new (std::nothrow) SdsMesh(*this); }

GMathBbox3<double> SdsMesh::get_bbox() const { return GMathBbox3<double>(geometry->get_bbox()); }
GMathBbox3<double> SdsMesh::get_bbox_at(const CtxEval& ctx, const double& time) const {
    return GMathBbox3<double>(geometry->get_bbox_at(ctx, time));
}
const CoreBasicArray<CoreString>& SdsMesh::get_shading_group_names() const { return base->get_shading_group_names(); }
GMathBbox3<double> SdsMesh::get_shading_group_bbox(const unsigned int& group) const {
    return GMathBbox3<double>(geometry->get_shading_group_bbox(group));
}
void SdsMesh::get_primitive_indices(CoreArray<unsigned int>& out) const {
    if (!geometry->is_refined()) {
        out = base->get_quad_indices();
        return;
    }
    out.resize(4 * get_primitive_count());
    for (unsigned int p = 0; p < get_primitive_count(); ++p) get_primitive_vertices(p, out.get_data() + 4 * size_t{p});
}
bool SdsMesh::is_animated() const { return geometry->is_animated(); }
const GeometryPointCloud* SdsMesh::get_point_cloud() const { return &geometry->get_point_cloud(); }
unsigned int SdsMesh::get_primitive_count() const { return geometry->get_patch_count(); }
unsigned int SdsMesh::get_primitive_edge_count(const unsigned int&) const { return 4; }
void SdsMesh::compute_primitive_bbox(const CtxEval& ctx, const unsigned int& primitive,
                                     GMathBbox3<double>& bbox) const {
    geometry->compute_primitive_bbox(ctx, primitive, bbox);
}
void SdsMesh::compute_primitive_bboxes(const CtxEval&, const unsigned int& first, const unsigned int& count,
                                       GMathBbox3<double>* bboxes) const {
    geometry->compute_primitive_bboxes(first, count, bboxes);
}
void SdsMesh::compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& primitive, const double& time,
                                        GMathBbox3<double>& bbox) const {
    geometry->compute_primitive_bbox_at(ctx, primitive, time, bbox);
}
double SdsMesh::estimate_area(const CtxEval& ctx, const GMathMatrix4x4<double>& matrix) const {
    return geometry->estimate_area(ctx, matrix);
}
double SdsMesh::estimate_shading_group_area(const CtxEval& ctx, const unsigned int& group,
                                            const GMathMatrix4x4<double>& matrix) const {
    return geometry->estimate_shading_group_area(ctx, group, matrix);
}
double SdsMesh::estimate_primitive_area(const CtxEval& ctx, const unsigned int& primitive,
                                        const GMathMatrix4x4<double>& matrix) const {
    return geometry->estimate_primitive_area(ctx, primitive, matrix);
}
unsigned int SdsMesh::get_primitive_shading_group_index(const unsigned int& primitive) const {
    return base->get_primitive_shading_group_index(get_primitive_quad(primitive));
}

unsigned int SdsMesh::get_uv_map_count() const { return maps->get_uv_map_count(); }
CoreString SdsMesh::get_uv_map_name(const unsigned int& map) const { return maps->get_uv_map_name(map); }
void SdsMesh::compute_fragment_uvw(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& map,
                                   Vec3d& uvw, Vec3d& duvw_du, Vec3d& duvw_dv) const {
    GeometryFragment snapped = fragment;
    snapped.u = get_cell_corner(fragment.primitive, fragment.u);
    snapped.v = get_cell_corner(fragment.primitive, fragment.v);
    if (!geometry->is_refined()) return maps->compute_fragment_uvw(ctx, snapped, map, uvw, duvw_du, duvw_dv);
    const GeometryPlace place = get_primitive_place(snapped.primitive, snapped.u, snapped.v);
    maps->compute_fragment_uvw(ctx, on_quad(snapped, place), map, uvw, duvw_du, duvw_dv);
    place.turn_to_primitive(duvw_du, duvw_dv);
}
void SdsMesh::compute_edge_uvw(const CtxEval& ctx, const unsigned int& primitive, const unsigned int& edge,
                               const unsigned int& map, const double& t, Vec3d& uvw) const {
    if (!geometry->is_refined()) return maps->compute_edge_uvw(ctx, primitive, edge, map, t, uvw);
    if (edge > 3) return;
    const double u = edge == 0 ? t : edge == 1 ? 1.0 : edge == 2 ? 1.0 - t : 0.0;
    const double v = edge == 0 ? 0.0 : edge == 1 ? t : edge == 2 ? 1.0 : 1.0 - t;
    Vec3d duvw_du, duvw_dv;
    maps->compute_fragment_uvw(ctx, on_quad({}, get_primitive_place(primitive, u, v)), map, uvw, duvw_du, duvw_dv);
}
unsigned int SdsMesh::get_color_map_count() const { return maps->get_color_map_count(); }
CoreString SdsMesh::get_color_map_name(const unsigned int& map) const { return maps->get_color_map_name(map); }
void SdsMesh::compute_fragment_color(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& map,
                                     GMathVec4<float>& color) const {
    if (!geometry->is_refined()) return maps->compute_fragment_color(ctx, fragment, map, color);
    const GeometryPlace place = get_primitive_place(fragment.primitive, fragment.u, fragment.v);
    maps->compute_fragment_color(ctx, on_quad(fragment, place), map, color);
}
bool SdsMesh::is_primitive_uv_mapped(const unsigned int& primitive, const unsigned int& map) const {
    if (!geometry->is_refined()) return maps->is_primitive_uv_mapped(primitive, map);
    if (primitive >= get_primitive_count()) return false;
    const sds::RefinedPatch& patch = geometry->get_places().get_patch(primitive);
    for (unsigned int i = 0; i < (patch.covers_four_quads() ? 4u : 1u); ++i)
        if (!maps->is_primitive_uv_mapped(patch.quad() + i, map)) return false;
    return true;
}
bool SdsMesh::is_primitive_edge_visible(const unsigned int& primitive, const unsigned int& edge) const {
    const QuadEdge found = find_quad_edge(primitive, edge);
    return base->is_primitive_edge_visible(found.quad, found.edge);
}

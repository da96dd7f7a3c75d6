#include "qn_geometry/geometry_object.h"

const CoreClassInfo& GeometryObject::get_class_info() const { return class_info(); }
const CoreClassInfo& GeometryObject::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("GeometryObject", nullptr, &ResourceData::class_info(), nullptr);
    return info;
}

GMathBbox3<double> GeometryObject::get_bbox_at(const CtxEval&, const double&) const { return get_bbox(); }
bool GeometryObject::set_point_cloud(const GeometryPointCloud&) { return false; }
unsigned int GeometryObject::get_vertex_count() const {
    const GeometryPointCloud* cloud = get_point_cloud();
    return cloud != nullptr ? cloud->get_count() : 0;
}
void GeometryObject::compute_primitive_bboxes(const CtxEval& ctx, const unsigned int& first, const unsigned int& count,
                                              GMathBbox3<double>* bboxes) const {
    for (unsigned int i = 0; i < count; ++i) compute_primitive_bbox(ctx, first + i, bboxes[i]);
}
void GeometryObject::compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& primitive, const double&,
                                               GMathBbox3<double>& bbox) const {
    compute_primitive_bbox(ctx, primitive, bbox);
}
GeometryPlace GeometryObject::get_primitive_place(const unsigned int& primitive, const double& u,
                                                  const double& v) const {
    GeometryPlace place;
    place.face = primitive;
    place.u = u;
    place.v = v;
    return place;
}
CoreString GeometryObject::get_uv_map_name(const unsigned int&) const { return CoreString(); }
bool GeometryObject::get_uv_map_data(const unsigned int&, CoreArray<GMathVec3<float>>&,
                                     CoreArray<unsigned int>&) const {
    return false;
}
void GeometryObject::compute_fragment_uvw(const CtxEval&, const GeometryFragment&, const unsigned int&,
                                          GMathVec3<double>& uvw, GMathVec3<double>& duvw_du,
                                          GMathVec3<double>& duvw_dv) const {
    uvw = duvw_du = duvw_dv = {0, 0, 0};
}
void GeometryObject::compute_edge_uvw(const CtxEval&, const unsigned int&, const unsigned int&, const unsigned int&,
                                      const double&, GMathVec3<double>& uvw) const {
    uvw = {0, 0, 0};
}
CoreString GeometryObject::get_color_map_name(const unsigned int&) const { return CoreString(); }
bool GeometryObject::get_color_map_data(const unsigned int&, CoreArray<GMathVec4<unsigned char>>&,
                                        CoreArray<unsigned int>&) const {
    return false;
}
void GeometryObject::compute_fragment_color(const CtxEval&, const GeometryFragment&, const unsigned int&,
                                            GMathVec4<float>& color) const {
    color = {1, 1, 1, 1};
}
CoreString GeometryObject::get_normal_map_name(const unsigned int&) const { return CoreString(); }
bool GeometryObject::get_normal_map_data(const unsigned int&, CoreArray<GMathVec3<float>>&,
                                         CoreArray<unsigned int>&) const {
    return false;
}
bool GeometryObject::is_primitive_uv_mapped(const unsigned int&, const unsigned int&) const { return false; }
bool GeometryObject::is_primitive_edge_visible(const unsigned int&, const unsigned int&) const { return true; }
bool GeometryObject::is_primitive_linear(const unsigned int&) const { return false; }
bool GeometryObject::is_primitive_edge_linear(const unsigned int&, const unsigned int&) const { return false; }

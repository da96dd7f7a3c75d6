// What a renderer sees of a geometry: primitives with boxes, rays and frusta against them, samples and maps at
// fragments.
//
// All const operations may be called from many threads at once. Index arguments are not validated: callers pass valid
// primitive, edge, group and map indices.
#pragma once

#include "qn_core/core_array.h"
#include "qn_geometry/geometry_fragment.h"
#include "qn_geometry/geometry_frustum_ctx.h"
#include "qn_geometry/geometry_point_cloud.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "qn_geometry/geometry_sample.h"
#include "qn_gmath/gmath_bbox.h"
#include "qn_gmath/gmath_matrix.h"
#include "qn_resource/resource_data.h"

class CtxEval;

class QN_EXPORT GeometryObject : public ResourceData {
public:
    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();

    GeometryObject* get_copy() const override { return nullptr; }
    virtual GMathBbox3<double> get_bbox() const = 0;
    virtual GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const;
    virtual const CoreBasicArray<CoreString>& get_shading_group_names() const = 0;
    virtual GMathBbox3<double> get_shading_group_bbox(const unsigned int& group) const = 0;
    virtual void get_primitive_indices(CoreArray<unsigned int>& out) const = 0;
    virtual bool is_animated() const { return false; }
    virtual const GeometryPointCloud* get_point_cloud() const { return nullptr; }
    // Objects whose points are not replaceable refuse: false.
    virtual bool set_point_cloud(const GeometryPointCloud& cloud);
    virtual unsigned int get_vertex_count() const;
    virtual unsigned int get_primitive_count() const = 0;
    virtual unsigned int get_primitive_edge_count(const unsigned int& primitive) const = 0;
    virtual void compute_primitive_bbox(const CtxEval& ctx, const unsigned int& primitive,
                                        GMathBbox3<double>& bbox) const = 0;
    // The same for `count` primitives from `first` on, in one call.
    virtual void compute_primitive_bboxes(const CtxEval& ctx, const unsigned int& first, const unsigned int& count,
                                          GMathBbox3<double>* bboxes) const;
    virtual void compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& primitive, const double& time,
                                           GMathBbox3<double>& bbox) const;
    virtual double estimate_area(const CtxEval& ctx, const GMathMatrix4x4<double>& matrix) const = 0;
    virtual double estimate_shading_group_area(const CtxEval& ctx, const unsigned int& group,
                                               const GMathMatrix4x4<double>& matrix) const = 0;
    virtual double estimate_primitive_area(const CtxEval& ctx, const unsigned int& primitive,
                                           const GMathMatrix4x4<double>& matrix) const = 0;
    virtual unsigned int get_primitive_shading_group_index(const unsigned int& primitive) const = 0;

    // Where a place on a primitive lies in the faces that users know: on the primitive itself, unless primitives are
    // parts of such faces. Everything else that is asked of an object is asked by primitive.
    virtual GeometryPlace get_primitive_place(const unsigned int& primitive, const double& u, const double& v) const;

    virtual unsigned int get_uv_map_count() const { return 0; }
    virtual CoreString get_uv_map_name(const unsigned int& map) const;
    // Points and per-primitive-corner indices of a map; false when the object does not give them away.
    virtual bool get_uv_map_data(const unsigned int& map, CoreArray<GMathVec3<float>>& points,
                                 CoreArray<unsigned int>& indices) const;
    virtual void compute_fragment_uvw(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& map,
                                      GMathVec3<double>& uvw, GMathVec3<double>& duvw_du,
                                      GMathVec3<double>& duvw_dv) const;
    virtual void compute_edge_uvw(const CtxEval& ctx, const unsigned int& primitive, const unsigned int& edge,
                                  const unsigned int& map, const double& t, GMathVec3<double>& uvw) const;
    virtual unsigned int get_color_map_count() const { return 0; }
    virtual CoreString get_color_map_name(const unsigned int& map) const;
    virtual bool get_color_map_data(const unsigned int& map, CoreArray<GMathVec4<unsigned char>>& colors,
                                    CoreArray<unsigned int>& indices) const;
    virtual void compute_fragment_color(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& map,
                                        GMathVec4<float>& color) const;
    virtual unsigned int get_normal_map_count() const { return 0; }
    virtual CoreString get_normal_map_name(const unsigned int& map) const;
    virtual bool get_normal_map_data(const unsigned int& map, CoreArray<GMathVec3<float>>& normals,
                                     CoreArray<unsigned int>& indices) const;
    virtual bool is_primitive_uv_mapped(const unsigned int& primitive, const unsigned int& map) const;
    virtual bool is_primitive_edge_visible(const unsigned int& primitive, const unsigned int& edge) const;
    // Flat primitives and straight edges, for renderers with a shorter road for them.
    virtual bool is_geometry_linear() const { return false; }
    virtual bool is_primitive_linear(const unsigned int& primitive) const;
    virtual bool is_primitive_edge_linear(const unsigned int& primitive, const unsigned int& edge) const;

    virtual void compute_fragment_sample(const CtxEval& ctx, const GeometryFragment& fragment,
                                         GeometrySample& sample) const = 0;
    // The sample at parameter t in [0, 1] of an edge, which runs from its first corner to its second; `reversed` turns
    // it round.
    virtual void compute_edge_sample(const CtxEval& ctx, const unsigned int& primitive, const unsigned int& edge,
                                     const double& t, const bool& reversed, GeometrySample& sample) const = 0;
    virtual void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                                     GeometryFrustumCtx& frustum) const = 0;
    virtual void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                                     GeometryRaytraceCtx& rays) const = 0;
};

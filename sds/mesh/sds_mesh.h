// SdsMesh: a built surface as an object to render. Primitive q is quad q, with four edges and one patch.
//
// The geometry, the base behind it and the maps belong to the caller and outlive the SdsMesh and its copies. Level 0
// renders the limit surface; level L > 0 renders flat cells, 2^L along the side of a quad of the control mesh, which is
// 2^(L - 1) along the side of a primitive where the mesh took a subdivision step.
//
// Of a refined surface (SdsMeshBase::set_refinement) every primitive is one patch of it: a quad, a square part of one,
// or a quad polygon of a mixed cage, which is four of them. All that is asked by primitive is then asked by patch, with
// the patch's own (u, v) and derivatives by them; get_primitive_place says where that is on the quads, which maps,
// properties, groups and ids belong to. No patch has less than one cell, and all cells are of one size on the quads.
//
// Any number of threads may call the const operations. Indices must be in range.
#pragma once

#include <cmath>

#include "qn_geometry/geometry_object.h"
#include "sds/common/sds_export.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/mesh_maps/sds_mesh_maps.h"

class SDS_EXPORT SdsMesh : public GeometryObject {
public:
    // A place on a primitive, found from one on a quad.
    struct PrimitivePlace {
        unsigned int primitive =
            0xFFFFFFFF;           // none where the quad has no surface: holes, void quads of refined surfaces
        double u = 0.0, v = 0.0;  // patch coordinates
        // As in GeometryPlace, of which this is the inverse.
        unsigned int turns = 0;
        double derivative_scale = 1.0;
    };

    SdsMesh() = default;
    // Copies what is rendered; as a resource it starts with no name and no hash.
    SdsMesh(const SdsMesh& other);
    SdsMesh& operator=(const SdsMesh& other) = default;
    ~SdsMesh() override;

    // Builds nothing; `progress` may be null and is set to its end.
    void set(const SdsMeshGeometry& geometry, const SdsMeshMaps& maps, const unsigned int& level,
             AppProgressBar* progress);

    static const CoreClassInfo& class_info();
    static bool ___class_destructor__(void* object, const bool& is_array);

    const SdsMeshBase* get_base() const { return base; }
    const SdsMeshGeometry* get_geometry() const { return geometry; }
    const SdsMeshMaps* get_maps() const { return maps; }
    const unsigned int& get_level() const { return level; }
    const float& get_level_scale() const { return level_scale; }
    const float& get_level_scale_inv() const { return level_scale_inv; }
    // The lower end of the cell that a patch coordinate lies in, floor(x s) / s with the product in single precision, s
    // the cells per patch side; 1 at the far border. At level 0 the coordinate itself.
    double get_cell_corner(const double& x) const {
        if (level == 0) return x;
        return static_cast<double>(std::floor(static_cast<float>(x * static_cast<double>(level_scale))) *
                                   level_scale_inv);
    }
    // The same on a primitive, whose cells may be fewer on refined surfaces.
    double get_cell_corner(const unsigned int& primitive, const double& x) const {
        return geometry->is_refined() ? get_refined_cell_corner(primitive, x) : get_cell_corner(x);
    }
    // The cells per side of a primitive at a fixed level, as a power of two.
    unsigned int get_cell_level(const unsigned int& primitive) const {
        const unsigned int quad_level = level - (base->get_base_tessellation_level() ? 1u : 0u);
        return geometry->is_refined() ? get_refined_cell_level(primitive, quad_level) : quad_level;
    }
    // Where a place on a primitive lies on the quads of depth 0, which are the base's and what users see: `face` is
    // such a quad. The place itself unless the surface is refined.
    GeometryPlace get_primitive_place(const unsigned int& primitive, const double& u, const double& v) const override;
    // The inverse. (u, v) is in [0, 1].
    PrimitivePlace find_primitive(const unsigned int& quad, const double& u, const double& v) const;
    // The control polygon that a primitive came from.
    unsigned int get_primitive_polygon_id(const unsigned int& primitive) const {
        return base->get_primitive_polygon_id(get_primitive_quad(primitive));
    }
    // The quad that a primitive lies on; of four, the first.
    unsigned int get_primitive_quad(const unsigned int& primitive) const;
    // Edges of a refined surface's patches are creases, and visible, as the quads' edges are that they are part of;
    // those inside a quad are neither.
    bool is_primitive_edge_crease(const unsigned int& primitive, const unsigned int& edge) const;

    // Of this object alone: base, geometry and maps report their own.
    size_t get_memory_size() const override { return sizeof(*this); }
    const CoreClassInfo& get_class_info() const override;
    // Made by the copy constructor; null when there is no memory for it.
    GeometryObject* get_copy() const override;
    GMathBbox3<double> get_bbox() const override;
    GMathBbox3<double> get_bbox_at(const CtxEval& ctx, const double& time) const override;
    const CoreBasicArray<CoreString>& get_shading_group_names() const override;
    GMathBbox3<double> get_shading_group_bbox(const unsigned int& group) const override;
    // Four quad-mesh vertex indices per primitive, those of the quad that it lies on; of a quad polygon, its corners.
    void get_primitive_indices(CoreArray<unsigned int>& out) const override;
    bool is_animated() const override;
    const GeometryPointCloud* get_point_cloud() const override;
    unsigned int get_primitive_count() const override;
    unsigned int get_primitive_edge_count(const unsigned int& primitive) const override;
    void compute_primitive_bbox(const CtxEval& ctx, const unsigned int& primitive,
                                GMathBbox3<double>& bbox) const override;
    void compute_primitive_bboxes(const CtxEval& ctx, const unsigned int& first, const unsigned int& count,
                                  GMathBbox3<double>* bboxes) const override;
    void compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& primitive, const double& time,
                                   GMathBbox3<double>& bbox) const override;
    double estimate_area(const CtxEval& ctx, const GMathMatrix4x4<double>& matrix) const override;
    double estimate_shading_group_area(const CtxEval& ctx, const unsigned int& group,
                                       const GMathMatrix4x4<double>& matrix) const override;
    double estimate_primitive_area(const CtxEval& ctx, const unsigned int& primitive,
                                   const GMathMatrix4x4<double>& matrix) const override;
    unsigned int get_primitive_shading_group_index(const unsigned int& primitive) const override;

    unsigned int get_uv_map_count() const override;
    CoreString get_uv_map_name(const unsigned int& map) const override;
    // At fixed levels the map is looked up at the corner of the cell (get_cell_corner), so that texture stays with the
    // flat cell. The derivatives are then those of the smooth map at that corner, per patch parameter.
    void compute_fragment_uvw(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& map,
                              GMathVec3<double>& uvw, GMathVec3<double>& duvw_du,
                              GMathVec3<double>& duvw_dv) const override;
    void compute_edge_uvw(const CtxEval& ctx, const unsigned int& primitive, const unsigned int& edge,
                          const unsigned int& map, const double& t, GMathVec3<double>& uvw) const override;
    unsigned int get_color_map_count() const override;
    CoreString get_color_map_name(const unsigned int& map) const override;
    void compute_fragment_color(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& map,
                                GMathVec4<float>& color) const override;
    bool is_primitive_uv_mapped(const unsigned int& primitive, const unsigned int& map) const override;
    bool is_primitive_edge_visible(const unsigned int& primitive, const unsigned int& edge) const override;

    // Level 0: the limit surface (SdsMeshGeometry::compute_fragment_sample). Fixed levels: the flat triangle of the
    // cell that rays hit at (u, v); its derivatives are the cell's differences in patch units, second derivatives zero,
    // normal that of the triangle (of the limit where the triangle has none); smoothing normal and its derivatives are
    // those of the limit surface at (u, v); the time derivative follows the same triangle.
    void compute_fragment_sample(const CtxEval& ctx, const GeometryFragment& fragment,
                                 GeometrySample& sample) const override;
    // On the limit patch's edge at every level.
    void compute_edge_sample(const CtxEval& ctx, const unsigned int& primitive, const unsigned int& edge,
                             const double& t, const bool& reversed, GeometrySample& sample) const override;
    void compute_edge_sample(const unsigned int& primitive, const unsigned int& edge, const double& t,
                             const bool& reversed, GeometrySample& sample) const;
    // The patch where it is without motion, on the limit surface by the cells of level 3, for frusta that select by
    // touching (mode 0) or holding (1). Modes 2 and 3 mark the quad's vertices instead; any other does nothing.
    void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                             GeometryFrustumCtx& frustum) const override;
    // The rays of the range, with motion blur all of them at the first one's time. Without motion blur the thread's
    // kept scratch remembers the control points of patches that it met recently, in 400 KB.
    void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                             GeometryRaytraceCtx& rays) const override;
    // For surfaces of up to 8,192 patches that do not move (limit surfaces that are refined: 16,384): a hierarchy over
    // the patches and the boxes of their sixteen parts; for up to 2,048 patches with cells of level 2 or 3 also the
    // cells' corners. Of a surface in quads that is refined to depth 2 at most a quad is one patch there. Rays meet the
    // same cells, but for rounding at their rims where corners are kept, and the same roots of the limit surface, but
    // for rounding. Refers to this mesh. Some 220 bytes a patch and, with corners, 308 or 976 more. Long patches that
    // lie aslant in their boxes are there by slices, up to 64 of about 90 bytes each; surfaces of which they are the
    // most have one for up to 262,144 patches.
    std::unique_ptr<const GeometryRayIndex> make_ray_index(
        const CoreBasicArray<GMathBbox3<double>>& boxes) const override;
    // About the most bytes that such a hierarchy keeps, without building it; 0 for a surface that has none.
    size_t estimate_ray_index_size() const;

private:
    // An edge of the quads; 4 for none.
    struct QuadEdge {
        unsigned int quad, edge;
    };
    QuadEdge find_quad_edge(unsigned int primitive, unsigned int edge) const;
    void get_primitive_vertices(unsigned int primitive, unsigned int* out) const;
    // How often frusta split a primitive of an adaptive object.
    unsigned int get_adaptive_frustum_level(unsigned int primitive) const;
    double get_refined_cell_corner(unsigned int primitive, double x) const;
    unsigned int get_refined_cell_level(unsigned int primitive, unsigned int quad_level) const;

    const SdsMeshBase* base = nullptr;
    const SdsMeshGeometry* geometry = nullptr;
    const SdsMeshMaps* maps = nullptr;
    unsigned int level = 0;
    float level_scale = 0.0f;
    float level_scale_inv = 0.0f;
};

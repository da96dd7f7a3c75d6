// SdsMeshMaps: UVs and colors on a subdivision surface.
//
// The host's maps are face-varying: points of their own, and for each corner of the polygons the one it has, or none.
// Corners at one vertex that have different ones make a seam. `set` carries every map through the same step as the
// mesh; a UV map is then a second surface with the quads of the mesh, evaluated as bicubic patches. Colors are
// subdivided and looked up bilinearly.
//
// Where the base is refined and says so (SdsRefinement::refine_maps), smooth UV maps are refined too, by the same rules
// and to the same depth, with irregular vertices of their own. All is still asked by the quads and their (u, v).
//
// The base stays alive and unchanged as long as the maps refer to it. Built by one thread, read by any number. Inputs
// are trusted: one index per corner (0xFFFFFFFF where a corner is unmapped), indices below the map's count.
#pragma once

#include <memory>

#include "qn_geometry/geometry_fragment.h"
#include "qn_geometry/geometry_maps.h"
#include "qn_gmath/gmath_vec.h"
#include "qn_resource/resource_data.h"
#include "sds/bezier_mesh/sds_bezier_mesh.h"
#include "sds/common/sds_export.h"
#include "sds/mesh_base/sds_mesh_base.h"

class CtxEval;

class SDS_EXPORT SdsMeshMaps : public ResourceData {
public:
    using Vec3f = GMathVec3<float>;
    using Vec3d = GMathVec3<double>;
    using Color8 = GMathVec4<unsigned char>;

    // Which UV vertices keep their place. Seams are the borders of the map inside the mesh.
    enum class InterpolationMode : unsigned int {
        all_fixed = 0,                    // linear map
        corners_fixed = 1,                // corners of the map's borders
        all_smoothed = 2,                 // nothing
        borders_fixed = 3,                // every vertex on a border of the map
        smoothed_seam_corners_fixed = 4,  // only the corners of seams
        smoothed_seams_fixed = 5,         // every vertex on a seam
        corners_and_seams_fixed = 6,      // 1 and 5 together
        corners_plus1 = 7,                // 1, and where three or more UVs meet at a vertex
        corners_plus2 = 8,                // 7, and the ends of seams, and both of two UVs if a corner is among them
    };

    // The patches of a refined map and where they are on the quads. Never changed, shared by copies.
    struct RefinedMap;

    // A UV map on the surface.
    struct SdsUvMap {
        CoreString name;
        CoreArray<unsigned int> quad_indices;  // four per quad; 0xFFFFFFFF where that corner has no UV
        unsigned int vertex_count = 0;
        CoreArray<Vec3f> vertices;  // after the subdivision step
        CoreArray<SdsMeshBase::VertexInfo> vertex_infos;
        SdsMeshBase::EdgesTopology edges;
        CoreArray<unsigned int> patch_indices;        // per quad: fully mapped quads before it
        CoreArray<SdsMeshBase::BezierPatch> patches;  // per fully mapped quad; empty for a linear map
        CoreArray<Vec3f> corners;                     // limit point per vertex; empty for a linear map
        // Null unless the map is refined, which then has no patches and corners of quads.
        std::shared_ptr<const RefinedMap> refined;
        SdsBezierMesh controls;  // view over the arrays above; of a refined map, by its own patches

        SdsUvMap() = default;
        SdsUvMap(const SdsUvMap& other) { *this = other; }
        SdsUvMap(SdsUvMap&&) = default;
        SdsUvMap& operator=(const SdsUvMap& other);
        SdsUvMap& operator=(SdsUvMap&&) = default;
        void bind_controls();
        size_t get_memory_size() const;
        // Of the refined patches and their places among it.
        size_t get_refined_memory_size() const;
    };

    struct SdsColorMap {
        CoreString name;
        CoreArray<Color8> colors;         // after the subdivision step
        CoreArray<unsigned int> indices;  // four per quad; empty for colours at the mesh's own vertices
    };

    SdsMeshMaps() = default;
    SdsMeshMaps(const SdsMeshMaps& other) = default;
    SdsMeshMaps& operator=(const SdsMeshMaps& other) = default;
    ~SdsMeshMaps() override;

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    // Rebuilds everything. `polygon_vertex_counts` are the control polygons of the base, in its order; `progress` may
    // be null.
    void set(const SdsMeshBase& base, const CoreArray<unsigned int>& polygon_vertex_counts,
             const CoreArray<GeometryUvMap>& uv_maps, const CoreArray<GeometryColorMap>& color_maps,
             const InterpolationMode& mode, AppProgressBar* progress);

    // The vertex classification of a mode; an unknown one changes nothing. Modes 7 and 8 classify as 1 does: what they
    // add depends on the other values at a vertex of the mesh, and is `set`'s.
    static void set_vertices_interpolation(const CoreArray<unsigned int>& quad_indices,
                                           const SdsMeshBase::EdgesTopology& map_edges,
                                           const SdsMeshBase::EdgesTopology& base_edges, const InterpolationMode& mode,
                                           CoreArray<SdsMeshBase::VertexInfo>& infos);
    // Fix every vertex on a seam; clears nothing.
    static void set_discontinuities_border_vertices_as_fixed(const CoreArray<unsigned int>& quad_indices,
                                                             const SdsMeshBase::EdgesTopology& map_edges,
                                                             const SdsMeshBase::EdgesTopology& base_edges,
                                                             CoreArray<SdsMeshBase::VertexInfo>& infos);
    // Fix vertices between two borders of the map that are not both borders of the mesh; clears nothing.
    static void set_discontinuities_corner_vertices_as_fixed(const CoreArray<unsigned int>& quad_indices,
                                                             const SdsMeshBase::EdgesTopology& map_edges,
                                                             const SdsMeshBase::EdgesTopology& base_edges,
                                                             CoreArray<SdsMeshBase::VertexInfo>& infos);

    const SdsMeshBase* get_base_mesh() const { return base; }
    const InterpolationMode& get_interpolation_mode() const { return mode; }
    unsigned int get_uv_map_count() const { return uv_maps.get_count(); }
    const CoreString& get_uv_map_name(const unsigned int& i) const { return uv_maps[i].name; }
    const CoreArray<unsigned int>& get_uv_map_indices(const unsigned int& i) const { return uv_maps[i].quad_indices; }
    CoreArray<Vec3f> get_uv_map_vertices(const unsigned int& i) const { return uv_maps[i].vertices; }
    const SdsUvMap& get_uv_map(const unsigned int& i) const { return uv_maps[i]; }
    CoreArray<CoreArray<Vec3f>> get_uv_maps() const;
    unsigned int get_color_map_count() const { return color_maps.get_count(); }
    const CoreString& get_color_map_name(const unsigned int& i) const { return color_maps[i].name; }
    const CoreArray<unsigned int>& get_color_map_indices(const unsigned int& i) const { return color_maps[i].indices; }
    CoreArray<Color8> get_color_map_colors(const unsigned int& i) const { return color_maps[i].colors; }
    CoreArray<CoreArray<Color8>> get_color_maps() const;

    // Whether all four corners have a UV; false without maps and beyond the last quad. The map index is not checked
    // when there are maps.
    bool is_primitive_uv_mapped(const unsigned int& quad, const unsigned int& uv_map) const;
    bool is_uv_map_refined(const unsigned int& uv_map) const { return uv_maps[uv_map].refined != nullptr; }
    // A quad's sixteen controls in a UV map, NaN when it is not mapped. A refined map has no such patch.
    void get_bezier_controls(const unsigned int& uv_map, const unsigned int& quad, Vec3f* controls) const;

    // u, v, w and their derivatives by the quad's (u, v). Ask is_primitive_uv_mapped first: all is NaN where it is
    // false.
    void compute_fragment_uvw(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& uv_map,
                              Vec3d& uvw, Vec3d& duvw_du, Vec3d& duvw_dv) const;
    // On edge `edge` at t, from its corner to the next. An edge above 3 writes nothing.
    void compute_edge_uvw(const CtxEval& ctx, const unsigned int& quad, const unsigned int& edge,
                          const unsigned int& uv_map, const double& t, Vec3d& uvw) const;
    // RGBA in [0, 1], bilinear between the quad's four subdivided colors.
    void compute_fragment_color(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& color_map,
                                GMathVec4<float>& color) const;

private:
    struct ControlPolygons;

    void set_uv_map(const GeometryUvMap& source, const ControlPolygons& polygons, float share, SdsUvMap& map,
                    AppProgressBar* progress) const;
    void set_color_map(const GeometryColorMap& source, const ControlPolygons& polygons, float share, SdsColorMap& map,
                       AppProgressBar* progress) const;
    void refine_uv_map(const GeometryUvMap& source, SdsUvMap& map, AppProgressBar* progress) const;
    // Modes 7 and 8: what the seams of the whole map say of a value.
    void set_junction_vertices_as_fixed(SdsUvMap& map) const;
    static void compute_uv_map_controls(const SdsMeshBase::TopologyContext& context, SdsUvMap& map, const bool& linear,
                                        AppProgressBar* progress);
    static void compute_subdivision_colors(const CoreBasicArray<Color8>& colors,
                                           const SdsMeshBase::TopologyContext& context,
                                           CoreArray<Color8>& subdivided_colors, AppProgressBar* progress);

    const SdsMeshBase* base = nullptr;
    InterpolationMode mode = InterpolationMode::all_fixed;
    CoreArray<SdsUvMap> uv_maps;
    CoreArray<SdsColorMap> color_maps;
};

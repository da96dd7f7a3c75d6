// SdsMeshBase: the control mesh of a subdivision surface reduced to the topology of quads.
//
// Polygons go in, quads come out. When every polygon has four corners they are the quads; otherwise one subdivision
// step turns each n-gon into n quads. Positions, patches and maps are built on top (SdsMeshGeometry, SdsMeshMaps) and
// read a base that stays alive and unchanged. Indices are unsigned 32-bit, 0xFFFFFFFF means none. Inputs are trusted:
// indices below the vertex count, counts that add up.
//
// Building runs on the caller's thread; a built base may be read from any number of threads. The first SdsMeshBase of a
// process must be constructed before others are made concurrently.
#pragma once

#include <cstdint>
#include <memory>

#include "qn_app_base/app_progress_bar.h"
#include "qn_core/core_array.h"
#include "qn_core/core_string.h"
#include "qn_gmath/gmath_vec.h"
#include "qn_resource/resource_data.h"
#include "sds/common/half_edge.h"
#include "sds/common/sds_export.h"

class SdsBezierMesh;
class SysThreadTaskManager;

class SDS_EXPORT SdsMeshBase : public ResourceData {
public:
    // One byte per vertex of the quad mesh.
    //   bits 0-1  number of border and crease edges at the vertex, at most 3: 0 smooth, 1 dart, 2 crease, 3 corner
    //   bit 2     kept in place (set by nobody here, honoured by the position rules)
    //   bit 3     fixed: interpolated, keeps its control position
    struct VertexInfo {
        unsigned char bits = 0;

        static constexpr unsigned char fixed_bit = 8;
        static constexpr unsigned char keep_bits = 4 | 8;

        constexpr unsigned int get_sharp_edge_count() const { return bits & 3u; }
        constexpr bool is_kept() const { return (bits & keep_bits) != 0; }
        constexpr bool is_fixed() const { return (bits & fixed_bit) != 0; }
        constexpr void raise_sharp_edge_count() {
            if ((bits & 3u) != 3u) ++bits;
        }
        constexpr void set_fixed(bool fixed) {
            bits = static_cast<unsigned char>(fixed ? bits | fixed_bit : bits & ~fixed_bit);
        }
    };

    // Adjacency of the quads' half-edges.
    struct EdgesTopology {
        // Per half-edge: the half-edge of the neighbouring quad along the same edge, or 0xFFFFFFFF on a border.
        CoreArray<unsigned int> opposite_edges;
        // Per quad: bit k set when edge k is a crease, bit 4 + k when it is part of an edge of the control polygons.
        CoreArray<unsigned char> quad_edge_flags;

        bool is_border(unsigned int e) const { return opposite_edges[e] == sds::none; }
        bool is_crease(unsigned int e) const { return ((quad_edge_flags[e >> 2] >> (e & 3u)) & 1u) != 0; }
        bool is_sharp(unsigned int e) const { return is_crease(e) || is_border(e); }
    };

    struct RingSpan {
        unsigned int count = 0;
        unsigned int offset = 0;
    };

    // What one subdivision step made. New vertices are the control vertices, then the edge points, then the face
    // points.
    struct SubdivisionTopology {
        unsigned int first_edge_point = 0;  // number of control vertices
        unsigned int first_face_point = 0;  // the face point of polygon i is vertex first_face_point + i
        // Per new vertex: its part of ring_edges, which lists the half-edges that leave it in increasing order. A
        // control vertex has one of kind 4q + 0 per polygon, an edge point one of kind 4q + 1 and one of kind 4q + 3
        // per polygon, a face point one of kind 4q + 2 per corner of its polygon.
        CoreArray<RingSpan> vertex_rings;
        CoreArray<unsigned int> ring_edges;
        // Per new quad, the polygon it came from. A copy of the record leaves it empty.
        CoreArray<unsigned int> quad_parents;

        SubdivisionTopology() = default;
        SubdivisionTopology(const SubdivisionTopology& other)
            : first_edge_point(other.first_edge_point),
              first_face_point(other.first_face_point),
              vertex_rings(other.vertex_rings),
              ring_edges(other.ring_edges) {}
        SubdivisionTopology& operator=(const SubdivisionTopology&) = delete;
    };

    // The fan of quads around the vertex at one quad corner, one record per half-edge.
    struct VertexLocalTopology {
        // The fan closes on itself: no sharp edge at the vertex, or a dart whose one sharp edge is both its ends.
        bool closed;
        // The half-edge leaving the vertex where the fan begins: the one arriving just before it in the same quad is
        // sharp. The corner's own half-edge when nothing is sharp.
        unsigned int first_edge;
        // The sharp half-edge leaving the vertex where the fan ends; the corner's own half-edge when nothing is sharp.
        unsigned int last_edge;
        unsigned int valence;  // quads in the fan
    };

    // What the control points of one quad's patch depend on besides positions.
    struct BezierPatch {
        // For edge k: entry 2k is the neighbour's vertex joined to corner k, entry 2k + 1 the one joined to corner k +
        // 1; none on borders. (For a neighbour of the same winding; one of opposite winding gives them the other way
        // round.)
        unsigned int neighbour_vertices[8];
        float edge_weights[4];     // of corner k in its edge points: 2n in a closed fan of n quads, 4n otherwise
        float corner_weights[4];   // of corner k in its interior point: n in a closed fan, otherwise max(4, 2n)
        unsigned int sharp_edges;  // bit k: edge k is a crease or a border
    };

    // Where a quad's extra tangents are and which of its corners (bits 0-3) and edges (bits 4-7) have them, two vectors
    // per set bit.
    struct PatchTangentInfo {
        unsigned int tangent_offset = 0;
        unsigned int irregular = 0;
    };

    // The arrays that one computation reads; owns nothing.
    struct TopologyContext {
        const CoreBasicArray<unsigned int>* quad_indices = nullptr;
        const CoreArray<VertexInfo>* vertex_infos = nullptr;  // with the interpolation rules applied
        const VertexLocalTopology* local_topologies = nullptr;
        const CoreArray<PatchTangentInfo>* tangent_infos = nullptr;  // not read by the position and patch rules
        const EdgesTopology* edges = nullptr;
        const SubdivisionTopology* subdivision = nullptr;  // null when the mesh had quads only
    };

    SdsMeshBase();
    // Deep: the copy has a subdivision record of its own, without the quads' parents.
    SdsMeshBase(const SdsMeshBase& other);
    // Copies the arrays and shares the subdivision record, which lives as long as the last base that refers to it.
    SdsMeshBase& operator=(const SdsMeshBase& other);
    ~SdsMeshBase() override;

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    // Builds everything.
    //   vertex_count            control vertices
    //   polygon_indices         control vertices of all polygons, one polygon after the other
    //   polygon_counts          corners per polygon, their sum is the count of polygon_indices
    //   polygon_shading_groups  one group per polygon
    //   progress                may be null
    // A polygon that holds the index 0xFFFFFFFF is void. Creases are those that compute_polygons_neighbourhood reports.
    void set(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& polygon_indices,
             const CoreBasicArray<unsigned int>& polygon_counts,
             const CoreBasicArray<unsigned int>& polygon_shading_groups,
             const CoreBasicArray<CoreString>& shading_group_names, AppProgressBar* progress);

    unsigned int get_primitive_count() const { return quad_indices.get_count() >> 2; }
    unsigned int get_primitive_edge_count(const unsigned int&) const { return 4; }
    const CoreBasicArray<unsigned int>& get_quad_indices() const { return quad_indices; }
    // The four control-vertex indices of quad q.
    const unsigned int* get_quad_indices(const unsigned int& q) const {
        return quad_indices.get_data() + 4 * size_t{q};
    }
    const unsigned int& get_primitive_shading_group_index(const unsigned int& q) const {
        return quad_shading_groups[q];
    }
    const CoreBasicArray<CoreString>& get_shading_group_names() const { return shading_group_names; }
    // True when the mesh already went through one subdivision step.
    bool get_base_tessellation_level() const { return subdivision != nullptr; }
    // Samples along a patch side at a level; level 0 counts as 1, the step that the base took is not counted again.
    unsigned int get_tessellation_sample_count(const unsigned int& level) const;
    bool is_edge_border(const unsigned int& e) const { return edges.is_border(e); }
    bool is_edge_crease(const unsigned int& e) const { return edges.is_crease(e); }
    bool is_edge_sharp(const unsigned int& e) const { return edges.is_sharp(e); }
    // Of the quad's edge k; false for k above 3, whatever k is.
    bool is_primitive_edge_crease(const unsigned int& q, const unsigned int& k) const {
        return k < 4 && ((edges.quad_edge_flags[q] >> k) & 1u) != 0;
    }
    bool is_primitive_edge_visible(const unsigned int& q, const unsigned int& k) const {
        return k < 4 && ((edges.quad_edge_flags[q] >> (4 + k)) & 1u) != 0;
    }
    // True for a quad with a corner that has no vertex. There is no surface on it: no rays meet it, it has no part in
    // boxes and areas, its control points are NaN.
    bool is_primitive_void(const unsigned int& q) const { return sds::is_void_quad(get_quad_indices(q)); }
    // The control polygon that quad q came from, 0xFFFFFFFF for a quad of a void polygon whose parent was not kept.
    unsigned int get_primitive_polygon_id(const unsigned int& q) const;

    const CoreArray<VertexInfo>& get_vertex_infos() const { return vertex_infos; }
    const EdgesTopology& get_edges() const { return edges; }
    // Null when the mesh had quads only.
    const SubdivisionTopology* get_subdivision() const { return subdivision.get(); }
    // Equal for bases of one build and its copies, and for no others; 0 before the first build.
    std::uint64_t get_topology_stamp() const { return topology_stamp; }

    // Takes polygons that are all quads as they are.
    static void import_quads(const CoreBasicArray<unsigned int>& polygon_indices,
                             const CoreBasicArray<unsigned int>& polygon_counts,
                             const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int& vertex_count,
                             CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                             EdgesTopology& edges, AppProgressBar* progress);

    // One subdivision step: quad c of face-corner c is (control vertex, edge point ahead, face point, edge point
    // behind). A neighbour whose shared edge has other vertices is logged at level 1 and left as a border.
    static void subdivide(const CoreBasicArray<unsigned int>& polygon_indices,
                          const CoreBasicArray<unsigned int>& polygon_counts,
                          const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int& vertex_count,
                          CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                          EdgesTopology& edges, SubdivisionTopology& subdivision, AppProgressBar* progress);

    // Vertex rules: each rewrites the fixed bit of the vertices that the quads use. Indices 0xFFFFFFFF are skipped.
    static void set_all_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices, const EdgesTopology& edges,
                                          CoreArray<VertexInfo>& vertex_infos);
    static void set_all_vertices_as_smoothed(const CoreBasicArray<unsigned int>& quad_indices,
                                             const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos);
    // Fixes every vertex on a border.
    static void set_border_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices,
                                             const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos);
    // Fixes the vertices whose last corner, in half-edge order, lies between two border edges.
    static void set_corner_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices,
                                             const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos);

    // The fan at half-edge e's start vertex.
    static void analyse_vertex_local_topology(const EdgesTopology& edges, const unsigned int& e,
                                              VertexLocalTopology& out);
    // All fans: `out` has one entry per half-edge. `linear` fills trivial records. Both variants give the same result.
    static void analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                const bool& linear, SysThreadTaskManager& tasks,
                                                AppProgressBar* progress);
    static void analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                const bool& linear, AppProgressBar* progress);

    static void compute_bezier_topology(const TopologyContext& context, const unsigned int& q, BezierPatch& patch);
    // All quads; `patches` has one entry per quad.
    static void compute_bezier_topology(const TopologyContext& context, CoreArray<BezierPatch>& patches,
                                        AppProgressBar* progress);
    static void compute_bezier_topology(const TopologyContext& context, CoreArray<BezierPatch>& patches,
                                        SysThreadTaskManager& tasks, AppProgressBar* progress);

    // Marks irregular corners (not a smooth closed fan of four: darts count as irregular) and the edges that touch
    // them, and reserves their tangents. `topologies` has four records per quad. Returns the number of vectors to
    // allocate: 0 when `linear`.
    static unsigned int compute_tangent_infos(const unsigned int& quad_count, const VertexLocalTopology* topologies,
                                              PatchTangentInfo* infos, const bool& linear, AppProgressBar* progress);
    static unsigned int compute_tangent_infos(const unsigned int& quad_count, const VertexLocalTopology* topologies,
                                              PatchTangentInfo* infos, const bool& linear, SysThreadTaskManager& tasks,
                                              AppProgressBar* progress);

    // Positions of the vertices of the quad mesh after the subdivision step (Catmull and Clark 1978; sharp edges after
    // Hoppe et al. 1994). `positions` holds the control vertices, `out` one entry per vertex of the step; entries that
    // no quad uses keep what they hold.
    static void compute_subdivision_positions(const CoreBasicArray<GMathVec3<float>>& positions,
                                              const TopologyContext& context, GMathVec3<float>* out, const bool& linear,
                                              AppProgressBar* progress);
    // The same for two arrays in one pass.
    static void compute_subdivision_positions(const CoreBasicArray<GMathVec3<float>>& positions,
                                              const CoreBasicArray<GMathVec3<float>>& positions2,
                                              const TopologyContext& context, GMathVec3<float>* out,
                                              GMathVec3<float>* out2, const bool& linear, AppProgressBar* progress);

    // Limit points of all vertices of the quad mesh, `corners` as long as `positions`. Vertices that no quad uses are
    // left as they are.
    static void compute_bezier_corners(const TopologyContext& context,
                                       const CoreBasicArray<GMathVec3<float>>& positions, GMathVec3<float>* corners,
                                       AppProgressBar* progress);
    static void compute_bezier_corners(const TopologyContext& context,
                                       const CoreBasicArray<GMathVec3<float>>& positions, GMathVec3<float>* corners,
                                       SysThreadTaskManager& tasks, AppProgressBar* progress);
    // The limit point of the vertex at the start of half-edge e (Halstead, Kass, DeRose 1993).
    static void compute_bezier_corner(const TopologyContext& context, const unsigned int& e,
                                      const GMathVec3<float>* positions, GMathVec3<float>& corner);

    // Extra tangents of one quad: `corners` are its four fans, `tangents` its first slot. Vectors are scaled to
    // control-net differences.
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& q,
                                        const PatchTangentInfo& info, const VertexLocalTopology* corners,
                                        GMathVec3<float>* tangents);
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                        const CoreBasicArray<PatchTangentInfo>& infos,
                                        const CoreBasicArray<VertexLocalTopology>& topologies,
                                        GMathVec3<float>* tangents, SysThreadTaskManager& tasks,
                                        AppProgressBar* progress);
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                        const CoreBasicArray<PatchTangentInfo>& infos,
                                        const CoreBasicArray<VertexLocalTopology>& topologies,
                                        GMathVec3<float>* tangents, AppProgressBar* progress);
    // Limit tangents at half-edge e's start vertex, along the quad's two edges there: closed fan and open fan.
    static void compute_vertex_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                        const VertexLocalTopology& topology, GMathVec3<float>& t1,
                                        GMathVec3<float>& t2);
    static void compute_corner_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                        const VertexLocalTopology& topology, GMathVec3<float>& t1,
                                        GMathVec3<float>& t2);

    // cos(k pi / 512) for k = 0 to 512; null until the first base exists.
    static const float* get_cos_table();

private:
    CoreArray<unsigned int> quad_indices;
    CoreArray<unsigned int> quad_shading_groups;
    CoreArray<CoreString> shading_group_names;
    CoreArray<VertexInfo> vertex_infos;
    EdgesTopology edges;
    std::shared_ptr<SubdivisionTopology> subdivision;
    std::uint64_t topology_stamp = 0;
};

// SdsMeshBase: what a subdivision surface knows without positions, the quads of its cage and how they hang together.
//
// Polygons go in, quads come out. When every polygon has four corners they are the quads; otherwise one subdivision
// step turns each n-gon into n quads. SdsMeshGeometry and SdsMeshMaps refer to a base, which stays alive and unchanged
// as long as they do. 0xFFFFFFFF stands for no vertex, edge or polygon. Inputs are trusted: indices below the vertex
// count, counts that add up.
//
// Building is called from one thread and takes others of its arena for large meshes; a built base may be read from any
// number of threads. The first SdsMeshBase of a process must be constructed before others are made concurrently.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "qn_app_base/app_progress_bar.h"
#include "qn_core/core_array.h"
#include "qn_core/core_string.h"
#include "qn_gmath/gmath_vec.h"
#include "qn_resource/resource_data.h"
#include "sds/common/half_edge.h"
#include "sds/common/sds_export.h"
#include "sds/mesh_base/sds_refinement.h"

class SdsBezierMesh;
class SysThreadTaskManager;
namespace sds {
struct PolygonNeighbors;
}

class SDS_EXPORT SdsMeshBase : public ResourceData {
public:
    // How a vertex of the quads behaves, in one byte.
    //   bits 0-1  its sharp edges, 3 for three and more: none make it smooth, one a dart, two a crease, three a corner
    //   bit 2     kept in place (the position rules honor it; nothing here sets it)
    //   bit 3     fixed: kept in place by an interpolation mode
    struct VertexInfo {
        unsigned char bits = 0;

        static constexpr unsigned char fixed_bit = 8;
        static constexpr unsigned char keep_bits = 4 | 8;

        constexpr unsigned int get_sharp_edge_count() const { return bits & 3u; }
        constexpr bool is_kept() const { return (bits & keep_bits) != 0; }
        constexpr bool is_fixed() const { return (bits & fixed_bit) != 0; }
        constexpr void raise_sharp_edge_count(bool is_sharp) {
            bits = static_cast<unsigned char>(bits + (is_sharp && (bits & 3u) != 3u ? 1 : 0));
        }
        constexpr void set_fixed(bool fixed) {
            bits = static_cast<unsigned char>(fixed ? bits | fixed_bit : bits & ~fixed_bit);
        }
    };

    // Adjacency of the quads' half-edges.
    struct EdgesTopology {
        // For each half-edge the one it is paired with, in the quad across; borders have none.
        CoreArray<unsigned int> opposite_edges;
        // For each quad its creases in the low four bits, one an edge, and in the high four which edges the control
        // polygons have too.
        CoreArray<unsigned char> quad_edge_flags;

        bool is_border(unsigned int e) const { return opposite_edges[e] == sds::none; }
        bool is_crease(unsigned int e) const { return ((quad_edge_flags[e >> 2] >> (e & 3u)) & 1u) != 0; }
        bool is_sharp(unsigned int e) const { return (is_crease(e) ? 1u : 0u) + (is_border(e) ? 1u : 0u) != 0; }
    };

    struct RingSpan {
        unsigned int count = 0;
        unsigned int offset = 0;
    };

    // What one subdivision step made. Its vertices come in three runs: the control vertices as before, one point per
    // edge, one point per polygon.
    struct SubdivisionTopology {
        unsigned int first_edge_point = 0;  // number of control vertices
        unsigned int first_face_point = 0;  // that of the first polygon
        // Per new vertex: its part of ring_edges, where the half-edges that leave it stand, ascending. A control vertex
        // has one of kind 4q + 0 per polygon, an edge point one of kind 4q + 1 and one of kind 4q + 3 per polygon, a
        // face point one of kind 4q + 2 per corner of its polygon.
        CoreArray<RingSpan> vertex_rings;
        CoreArray<unsigned int> ring_edges;
        // Per new quad, the polygon it came from; empty in copies.
        CoreArray<unsigned int> quad_parents;

        SubdivisionTopology() = default;
        SubdivisionTopology(const SubdivisionTopology& other)
            : first_edge_point(other.first_edge_point),
              first_face_point(other.first_face_point),
              vertex_rings(other.vertex_rings),
              ring_edges(other.ring_edges) {}
        SubdivisionTopology& operator=(const SubdivisionTopology&) = delete;
    };

    // The fan of a quad corner: the quads around its vertex up to the next sharp edges, one record per half-edge.
    //
    // Forward a fan ends at the first half-edge out of the vertex that is sharp, backward behind the first one into it
    // that is; without an end forward it is the ring around the vertex. The two sides of an edge should agree on being
    // a crease. A flag on one side ends walks on that side only: forward at the vertex its half-edge leaves, backward
    // at the one it arrives at. So corners of one vertex may lie in fans that overlap, and a corner that finds an end
    // forward but none backward has the whole ring from that edge to itself, as at a dart.
    struct VertexLocalTopology {
        // All around: nothing is sharp, or one edge alone is, as at a dart, and both ends lie at it.
        bool closed;
        // The first and the last corner of the fan, by the half-edges that leave them; both the corner's own when
        // nothing is sharp.
        unsigned int first_edge;
        unsigned int last_edge;
        unsigned int valence;  // quads in the fan
    };

    // What the control points of one quad's patch depend on besides positions.
    struct BezierPatch {
        // Two for each edge, none on borders: the far vertices of the quad across, first the one beside the edge's
        // start, then the one beside its end. A quad that winds the other way has them in the other order.
        unsigned int neighbour_vertices[8];
        float edge_weights[4];    // of each corner in its edge points: 2n in a closed fan of n quads, 4n otherwise
        float corner_weights[4];  // of each corner in its interior point: n in a closed fan, otherwise max(4, 2n)
        // A bit for each edge that joins nothing: creases, borders, and neighbors without one of the two vertices.
        unsigned int sharp_edges;
    };

    // Where a quad's extra tangents are and which of its corners (bits 0-3) and edges (bits 4-7) have them, two vectors
    // per set bit.
    struct PatchTangentInfo {
        unsigned int tangent_offset;
        unsigned int irregular;
    };

    // The polygons of a build, where the surface is to be refined: what its refinement starts from. Never changed.
    // Where they are not all quads, the step that makes quads of them is taken when something that only quads have is
    // asked for first, by any thread: refined surfaces do without. That call may throw std::bad_alloc, and the next one
    // tries again.
    struct ControlCage {
        unsigned int vertex_count = 0;
        CoreArray<unsigned int> polygon_counts;
        CoreArray<unsigned int> polygon_indices;
        CoreArray<unsigned int> opposite_corners;  // per face-corner, the one across its edge or none
        CoreArray<float> edge_sharpness;           // per face-corner with the creases in it, or empty
        SdsRefinement refinement;                  // but for edge_sharpness, which stands above
    };

    // The arrays that one computation reads; owns nothing.
    struct TopologyContext {
        const CoreBasicArray<unsigned int>* quad_indices = nullptr;
        const CoreArray<VertexInfo>* vertex_infos = nullptr;  // with the interpolation rules applied
        const VertexLocalTopology* local_topologies = nullptr;
        const CoreArray<PatchTangentInfo>* tangent_infos = nullptr;  // not read by the position and patch rules
        const EdgesTopology* edges = nullptr;
        const SubdivisionTopology* subdivision = nullptr;  // null without a step
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

    // How the surfaces of the next builds are refined; not at all by default. Of no effect on what is built already.
    // Arrays of sharpness or holes that do not fit the polygons of a build count as empty.
    void set_refinement(const SdsRefinement& settings);
    const SdsRefinement& get_refinement() const;

    // Builds everything.
    //   vertex_count            control vertices
    //   polygon_indices         the vertex at every corner, polygon by polygon
    //   polygon_counts          corners per polygon, as many as polygon_indices together
    //   polygon_shading_groups  one group per polygon
    //   progress                may be null
    // A polygon with a corner that has no vertex is void: it keeps its primitives, which have no surface. What lies
    // beside it is built without what it lacks. Creases are those that compute_polygons_neighbourhood reports.
    void set(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& polygon_indices,
             const CoreBasicArray<unsigned int>& polygon_counts,
             const CoreBasicArray<unsigned int>& polygon_shading_groups,
             const CoreBasicArray<CoreString>& shading_group_names, AppProgressBar* progress);

    unsigned int get_primitive_count() const { return quad_count; }
    unsigned int get_primitive_edge_count(const unsigned int&) const { return 4; }
    const CoreBasicArray<unsigned int>& get_quad_indices() const {
        take_step();
        return quad_indices;
    }
    // The four control-vertex indices of quad q.
    const unsigned int* get_quad_indices(const unsigned int& q) const {
        return get_quad_indices().get_data() + 4 * size_t{q};
    }
    const unsigned int& get_primitive_shading_group_index(const unsigned int& q) const {
        return step_source != nullptr ? get_polygon_group(q) : quad_shading_groups[q];
    }
    const CoreBasicArray<CoreString>& get_shading_group_names() const { return shading_group_names; }
    // Whether the build took its subdivision step.
    bool get_base_tessellation_level() const { return step_source != nullptr || subdivision != nullptr; }
    // Whether that step waits until it is needed, or did.
    bool has_late_step() const { return step_source != nullptr; }
    // Samples along a patch side at a level; level 0 counts as 1, the step that the base took is not counted again.
    unsigned int get_tessellation_sample_count(const unsigned int& level) const;
    bool is_edge_border(const unsigned int& e) const { return get_edges().is_border(e); }
    bool is_edge_crease(const unsigned int& e) const { return get_edges().is_crease(e); }
    bool is_edge_sharp(const unsigned int& e) const { return get_edges().is_sharp(e); }
    // Of the quad's edge k; false for k above 3, whatever k is.
    bool is_primitive_edge_crease(const unsigned int& q, const unsigned int& k) const {
        return k < 4 && ((get_edge_flags(q) >> k) & 1u) != 0;
    }
    bool is_primitive_edge_visible(const unsigned int& q, const unsigned int& k) const {
        return k < 4 && ((get_edge_flags(q) >> (4 + k)) & 1u) != 0;
    }
    // True for a quad with a corner that has no vertex. There is no surface on it: no rays meet it, it has no part in
    // boxes and areas, its control points are NaN.
    bool is_primitive_void(const unsigned int& q) const {
        return step_source != nullptr ? is_polygon_void(q) : sds::is_void_quad(get_quad_indices(q));
    }
    // The control polygon that quad q came from, 0xFFFFFFFF for a quad of a void polygon whose parent was not kept.
    unsigned int get_primitive_polygon_id(const unsigned int& q) const;

    const CoreArray<VertexInfo>& get_vertex_infos() const {
        take_step();
        return vertex_infos;
    }
    const EdgesTopology& get_edges() const {
        take_step();
        return edges;
    }
    // Null when there was no step.
    const SubdivisionTopology* get_subdivision() const {
        take_step();
        return subdivision.get();
    }
    // The polygons of the build; null when its surface is not refined. Copies share it.
    const ControlCage* get_control_cage() const { return control_cage.get(); }
    // Equal for bases of one build and its copies, and for no others; 0 before the first build.
    std::uint64_t get_topology_stamp() const { return topology_stamp; }

    // Takes polygons that are all quads as they are.
    static void import_quads(const CoreBasicArray<unsigned int>& polygon_indices,
                             const CoreBasicArray<unsigned int>& polygon_counts,
                             const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int& vertex_count,
                             CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                             EdgesTopology& edges, AppProgressBar* progress);

    // One subdivision step: quad c of face-corner c is (control vertex, edge point ahead, face point, edge point
    // behind). Neighbors that do not have the two vertices of their edge in common stay apart there, with a warning.
    static void subdivide(const CoreBasicArray<unsigned int>& polygon_indices,
                          const CoreBasicArray<unsigned int>& polygon_counts,
                          const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int& vertex_count,
                          CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                          EdgesTopology& edges, SubdivisionTopology& subdivision, AppProgressBar* progress);

    // The vertex rules by number, as the interpolation modes of surfaces and maps have them.
    enum class VertexRule : unsigned int { all_fixed = 0, corners_fixed = 1, all_smoothed = 2, borders_fixed = 3 };
    // Applies a rule; an unknown one changes nothing.
    static void set_vertices_by_rule(const CoreBasicArray<unsigned int>& quad_indices, const EdgesTopology& edges,
                                     const VertexRule& rule, CoreArray<VertexInfo>& vertex_infos);
    // Vertex rules: each rewrites the fixed bit of the vertices that the quads use. Indices 0xFFFFFFFF are skipped.
    static void set_all_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices, const EdgesTopology& edges,
                                          CoreArray<VertexInfo>& vertex_infos);
    static void set_all_vertices_as_smoothed(const CoreBasicArray<unsigned int>& quad_indices,
                                             const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos);
    // Fixes every vertex on a border.
    static void set_border_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices,
                                             const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos);
    // Fixes corners of borders; where several quads have a vertex, the one numbered last decides.
    static void set_corner_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices,
                                             const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos);

    // Operations on all quads below run on the threads of `tasks`, or on the calling thread where it is null or left
    // out. The result is the same.

    // The fan at half-edge e's start vertex.
    static void analyse_vertex_local_topology(const EdgesTopology& edges, const unsigned int& e,
                                              VertexLocalTopology& out);
    // All fans: `out` has one entry per half-edge. `linear` fills trivial records.
    static void analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                const bool& linear, SysThreadTaskManager* tasks,
                                                AppProgressBar* progress);
    static void analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                const bool& linear, SysThreadTaskManager& tasks,
                                                AppProgressBar* progress) {
        analyse_vertices_local_topology(edges, out, linear, &tasks, progress);
    }
    static void analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                const bool& linear, AppProgressBar* progress) {
        analyse_vertices_local_topology(edges, out, linear, nullptr, progress);
    }

    static void compute_bezier_topology(const TopologyContext& context, const unsigned int& q, BezierPatch& patch);
    // All quads; `patches` has one entry per quad.
    static void compute_bezier_topology(const TopologyContext& context, CoreArray<BezierPatch>& patches,
                                        SysThreadTaskManager* tasks, AppProgressBar* progress);
    static void compute_bezier_topology(const TopologyContext& context, CoreArray<BezierPatch>& patches,
                                        AppProgressBar* progress) {
        compute_bezier_topology(context, patches, nullptr, progress);
    }

    // Marks irregular corners (not a smooth closed fan of four: darts count as irregular) and the edges that touch
    // them, and reserves their tangents. `topologies` has four records per quad. Returns the number of vectors to
    // allocate: 0 when `linear`.
    static unsigned int compute_tangent_infos(const unsigned int& quad_count, const VertexLocalTopology* topologies,
                                              PatchTangentInfo* infos, const bool& linear, SysThreadTaskManager* tasks,
                                              AppProgressBar* progress);
    static unsigned int compute_tangent_infos(const unsigned int& quad_count, const VertexLocalTopology* topologies,
                                              PatchTangentInfo* infos, const bool& linear, AppProgressBar* progress) {
        return compute_tangent_infos(quad_count, topologies, infos, linear, nullptr, progress);
    }

    struct SurfaceTopology {
        unsigned int tangent_count;  // vectors to allocate
        bool has_great_fans;         // any of more quads than tangents are summed over corner by corner
    };
    // The fans, tangent infos and patches of a smooth surface in one pass over its quads: what the three operations
    // above give one after the other, but for the offsets of tangents, which assign_tangent_offsets sets. `context`
    // points at `fans`; the arrays have four entries, one and one per quad, with any content, and `first_edges`, for
    // find_first_edges, one per vertex. Progress is that of the fans.
    static SurfaceTopology compute_surface_topology(const TopologyContext& context,
                                                    CoreArray<VertexLocalTopology>& fans,
                                                    CoreArray<PatchTangentInfo>& infos, CoreArray<BezierPatch>& patches,
                                                    CoreArray<unsigned int>& first_edges, SysThreadTaskManager* tasks,
                                                    AppProgressBar* progress);
    // Reserves the tangents of quad after quad; returns their number.
    static unsigned int assign_tangent_offsets(const unsigned int& quad_count, PatchTangentInfo* infos);
    // For every vertex the least half-edge that leaves it, or none; `first_edges` has an entry for each.
    static void find_first_edges(const CoreBasicArray<unsigned int>& quad_indices,
                                 CoreArray<unsigned int>& first_edges);

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
                                       SysThreadTaskManager* tasks, AppProgressBar* progress);
    // That of the vertex which half-edge e leaves (Halstead, Kass, DeRose 1993).
    static void compute_bezier_corner(const TopologyContext& context, const unsigned int& e,
                                      const GMathVec3<float>* positions, GMathVec3<float>& corner);

    // Extra tangents of one quad: `corners` are its four fans, `tangents` its first slot. Vectors are scaled to
    // control-net differences; those of a void quad are NaN. Where it is known that there are no
    // great fans nothing looks for them.
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& q,
                                        const PatchTangentInfo& info, const VertexLocalTopology* corners,
                                        GMathVec3<float>* tangents);
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                        const CoreBasicArray<PatchTangentInfo>& infos,
                                        const CoreBasicArray<VertexLocalTopology>& topologies,
                                        GMathVec3<float>* tangents, SysThreadTaskManager* tasks,
                                        AppProgressBar* progress, const bool& has_great_fans = true);
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                        const CoreBasicArray<PatchTangentInfo>& infos,
                                        const CoreBasicArray<VertexLocalTopology>& topologies,
                                        GMathVec3<float>* tangents, SysThreadTaskManager& tasks,
                                        AppProgressBar* progress) {
        compute_bezier_tangents(mesh, edges, infos, topologies, tangents, &tasks, progress);
    }
    static void compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                        const CoreBasicArray<PatchTangentInfo>& infos,
                                        const CoreBasicArray<VertexLocalTopology>& topologies,
                                        GMathVec3<float>* tangents, AppProgressBar* progress) {
        compute_bezier_tangents(mesh, edges, infos, topologies, tangents, nullptr, progress);
    }
    // Limit tangents at a corner of a quad that is not void, along its two edges there: in a closed fan and in an open
    // one.
    static void compute_vertex_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                        const VertexLocalTopology& topology, GMathVec3<float>& t1,
                                        GMathVec3<float>& t2);
    static void compute_corner_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                        const VertexLocalTopology& topology, GMathVec3<float>& t1,
                                        GMathVec3<float>& t2);

    // cos(k pi / 512) for k = 0 to 512; null until the first base exists.
    static const float* get_cos_table();

private:
    struct StepSource;

    static void subdivide(const sds::PolygonNeighbors& polygons, const unsigned int& vertex_count,
                          CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                          EdgesTopology& edges, SubdivisionTopology& subdivision, AppProgressBar* progress);
    void set_late(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& polygon_indices,
                  const CoreBasicArray<unsigned int>& polygon_counts,
                  const CoreBasicArray<unsigned int>& polygon_offsets,
                  const CoreBasicArray<unsigned int>& polygon_shading_groups, AppProgressBar* progress);
    void keep_control_cage(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& polygon_indices,
                           const CoreBasicArray<unsigned int>& polygon_counts,
                           CoreArray<unsigned int>&& opposite_corners, const CoreBasicArray<unsigned char>& creases);
    void take_step() const {
        if (is_step_due.load(std::memory_order_acquire)) make_step();
    }
    void make_step() const;
    const unsigned int& get_polygon_group(const unsigned int& q) const;
    bool is_polygon_void(const unsigned int& q) const;
    unsigned int get_edge_flags(const unsigned int& q) const {
        return step_source != nullptr ? get_step_flags(q) : edges.quad_edge_flags[q];
    }
    unsigned int get_step_flags(const unsigned int& q) const;
    void copy_step(const SdsMeshBase& other);

    unsigned int quad_count = 0;
    CoreArray<unsigned int> quad_shading_groups;  // empty where there is a step's source
    CoreArray<CoreString> shading_group_names;
    // A late step writes these, once.
    mutable CoreArray<unsigned int> quad_indices;
    mutable CoreArray<VertexInfo> vertex_infos;
    mutable EdgesTopology edges;
    mutable std::shared_ptr<SubdivisionTopology> subdivision;
    mutable std::atomic<bool> is_step_due{false};
    std::unique_ptr<StepSource> step_source;          // of a late step, taken or not
    std::shared_ptr<const SdsRefinement> refinement;  // null at depth 0
    std::shared_ptr<const ControlCage> control_cage;
    std::uint64_t topology_stamp = 0;
};

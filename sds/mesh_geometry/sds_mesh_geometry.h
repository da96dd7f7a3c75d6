// SdsMeshGeometry: where a subdivision surface lies: subdivided positions and motion, limit corners, tangents, patches,
// boxes and areas, at rest and in motion.
//
// Built by `set` on an SdsMeshBase that must outlive it. Then any number of threads may read it; nothing changes but
// the time samples, which are loaded when first asked for under a lock of their own. Inputs are trusted: one position
// per control vertex, indices in range. Primitives that are void (SdsMeshBase::is_primitive_void) have NaN for control
// points, nets and limit points, an empty box and no area; samples on them are left untouched.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "qn_core/core_shared_pointer.h"
#include "qn_geometry/geometry_fragment.h"
#include "qn_geometry/geometry_point_cloud.h"
#include "qn_geometry/geometry_sample.h"
#include "qn_gmath/gmath_bbox.h"
#include "qn_gmath/gmath_matrix.h"
#include "qn_gmath/gmath_time_sampling.h"
#include "qn_resource/resource_data.h"
#include "qn_sys/sys_thread.h"
#include "sds/bezier_mesh/sds_bezier_mesh.h"
#include "sds/common/sds_export.h"
#include "sds/mesh_base/sds_mesh_base.h"

class CtxEval;
class PolyMesh;
namespace sds {
class PatchPlaces;
struct PatchArrays;
class RefinedPatches;
class RefinedTopology;
}  // namespace sds

class SDS_EXPORT SdsMeshGeometry : public ResourceData {
public:
    using Vec3f = GMathVec3<float>;

    // Which vertices keep their control position, and whether patches are smooth.
    enum class InterpolationMode : unsigned int {
        all_fixed = 0,      // bilinear patches
        corners_fixed = 1,  // corners of borders stay ("edgeAndCorner", the usual default)
        all_smoothed = 2,   // nothing stays but corners of three sharp edges ("edgeOnly")
        borders_fixed = 3,  // every border vertex stays
    };

    // Gives the control positions of one time sample: called at most once per sample, one call at a time.
    class SDS_EXPORT SampleLoader {
    public:
        virtual ~SampleLoader();
        // Writes one position per control vertex to `out`.
        virtual void get_positions(const GMathTimeSampling& sampling, const unsigned int& sample, Vec3f* out) = 0;
    };

    // Takes the samples of a host polygon mesh, which must outlive the loader. Copies share the pointer.
    class SDS_EXPORT PolyMeshSampleLoader : public SampleLoader {
    public:
        explicit PolyMeshSampleLoader(const PolyMesh& mesh) : m_mesh(&mesh) {}
        void get_positions(const GMathTimeSampling& sampling, const unsigned int& sample, Vec3f* out) override;

    private:
        const PolyMesh* m_mesh;
    };

    // Compact area of a part of the surface: projected areas on the coordinate planes, and the ratio that recovers the
    // true area between its bounds L = sqrt(x^2 + y^2 + z^2) and x + y + z.
    struct AreaRecord {
        float x = 0, y = 0, z = 0;
        float blend = 0;  // (area - L) / (x + y + z - L), 0 when the bounds meet
    };

    // A place on the surface: patch coordinates, 0 to 1, on a primitive.
    struct LimitPlace {
        unsigned int primitive;
        float u, v;
    };
    // The limit surface at a place: derivatives per patch parameter, in the tangent plane; unit normal.
    struct LimitPoint {
        Vec3f position, du, dv, normal;
    };

    SdsMeshGeometry();
    // An independent copy with a view, a lock and sample caches of its own; time samples are loaded anew through the
    // same loader.
    SdsMeshGeometry(const SdsMeshGeometry& other);
    // Copies the arrays, but shares the view, the lock and the cached samples of `other`: the view keeps referring to
    // the arrays of `other`, which must outlive this geometry or its next `set`.
    SdsMeshGeometry& operator=(const SdsMeshGeometry& other);
    ~SdsMeshGeometry() override;

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    // Builds everything. `motion_vectors` are used when there are as many as `positions`: a vertex at time t stands at
    // position + t * motion vector. `progress` may be null. Meshes of 128 quads or more use the calling arena's
    // threads. A second call on the same base (or a copy of it) with the same mode keeps what depends on topology alone
    // and computes only what depends on positions; it reports the same progress tasks. A refined surface keeps its
    // levels and places likewise, unless positions decide its depth (SdsRefinement::error).
    void set(const SdsMeshBase& base, const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors,
             const InterpolationMode& mode, AppProgressBar* progress);

    // The vertex rule of a mode; unknown modes change nothing.
    static void set_vertices_interpolation(const CoreArray<unsigned int>& quad_indices,
                                           const SdsMeshBase::EdgesTopology& edges, const InterpolationMode& mode,
                                           CoreArray<SdsMeshBase::VertexInfo>& infos);

    // Whether the surface is refined: the base says so (SdsMeshBase::set_refinement), and the mode is not bilinear. All
    // that is asked by patch or primitive is then by the refined surface's patches and their own (u, v).
    bool is_refined() const { return refinement != nullptr; }
    // Patches of the surface: the base's quads unless it is refined.
    unsigned int get_patch_count() const;
    // Of a refined surface only: which quad each patch lies on, and where.
    const sds::PatchPlaces& get_places() const;
    // Its topology with all levels, which values at the cage's vertices are refined by; made anew where the geometry
    // keeps none. Not concurrent with set and set_positions_sampling.
    std::shared_ptr<const sds::RefinedTopology> get_refined_levels() const;
    // The level of its smallest patches.
    unsigned int get_finest_level() const;
    // The largest coordinate of the box, whatever its sign; 0 when the surface is not refined.
    float get_largest_coordinate() const;

    // Equal for geometries of one build and its copies, and for no others; 0 before the first build.
    std::uint64_t get_positions_stamp() const { return arrays.positions_stamp; }
    // Null before `set`.
    const SdsMeshBase* get_base() const { return base; }
    // Without quad vertices where these were late when it was made.
    const SdsBezierMesh& get_bezier_mesh() const { return bezier_mesh; }
    const InterpolationMode& get_interpolation_mode() const { return mode; }
    // Of the base's vertices. Where its step is late (SdsMeshBase::has_late_step) they are computed when they are asked
    // for first, by any thread; that call may throw std::bad_alloc, and the next one tries again.
    const GeometryPointCloud& get_point_cloud() const {
        make_late_vertices();
        return point_cloud;
    }
    const CoreArray<Vec3f>& get_vertices() const { return get_point_cloud().get_positions(); }
    const CoreArray<Vec3f>& get_motion_vectors() const { return get_point_cloud().get_velocities(); }
    bool has_motion_vectors() const {
        return late_vertices != nullptr ? has_late_motion() : point_cloud.has_velocities();
    }
    bool has_positions_sampling() const { return point_cloud.has_sampling(); }
    const GMathTimeSampling& get_positions_sampling() const { return point_cloud.get_sampling(); }
    bool is_animated() const { return has_motion_vectors() || has_positions_sampling(); }
    void get_bezier_controls(const unsigned int& patch, Vec3f* out) const {
        bezier_mesh.get_patch_controls(patch, out);
    }
    // The same in lanes, for this module's own kernels.
    void get_bezier_controls(const unsigned int& patch, sds::PointLanes* out) const {
        bezier_mesh.get_patch_controls(patch, out);
    }
    const CoreArray<SdsMeshBase::VertexInfo>& get_vertex_infos() const {
        make_late_vertices();
        return arrays.vertex_infos;
    }
    const CoreArray<SdsMeshBase::VertexLocalTopology>& get_local_topologies() const { return arrays.local_topologies; }
    const CoreArray<SdsMeshBase::PatchTangentInfo>& get_tangent_infos() const { return arrays.tangent_infos; }
    const CoreArray<SdsMeshBase::BezierPatch>& get_bezier_patches() const { return arrays.bezier_patches; }
    const CoreArray<Vec3f>& get_bezier_corners() const { return arrays.bezier_corners; }
    const CoreArray<Vec3f>& get_bezier_tangents_array() const { return arrays.bezier_tangents; }

    // Boxes of the control points. A shading group without patches has the empty box.
    const GMathBbox3<float>& get_bbox() const { return arrays.bbox; }
    const GMathBbox3<float>& get_shading_group_bbox(const unsigned int& group) const {
        return arrays.group_bboxes[group];
    }
    // Areas are summed when one is asked for first after a build, by any thread; that call may throw std::bad_alloc,
    // and the next one tries again.
    const AreaRecord& get_area_record() const {
        sum_areas();
        return arrays.area_record;
    }
    // Constant-time estimates, but for the first, under an affine map; with the identity, the summed area.
    double estimate_area(const CtxEval& ctx, const GMathMatrix4x4<double>& matrix) const;
    double estimate_shading_group_area(const CtxEval& ctx, const unsigned int& group,
                                       const GMathMatrix4x4<double>& matrix) const;
    double estimate_primitive_area(const CtxEval& ctx, const unsigned int& patch,
                                   const GMathMatrix4x4<double>& matrix) const;
    void compute_primitive_bbox(const CtxEval& ctx, const unsigned int& patch, GMathBbox3<double>& box) const;
    // The same for `count` patches from `first` on, several times as fast. `boxes` holds as many entries.
    void compute_primitive_bboxes(const unsigned int& first, const unsigned int& count,
                                  GMathBbox3<double>* boxes) const;
    // Box of the controls at a time. Where time samples of the surface lie between the shutter samples before and after
    // `time`, it holds the patch at those too: linear blends of the boxes at the shutter's samples, and at more times
    // between them, then hold the patch at every time. A shutter that has those samples itself, or none, gets the box
    // of the one moment. The shutter is that of `ctx`.
    void compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& patch, const double& time,
                                   GMathBbox3<double>& box) const;
    // Box of the vertices (not the controls, unless the surface is refined) at a time, of that moment alone; the stored
    // box for a static geometry and for |time| <= 1e-8. Points with a coordinate that is not finite are left out.
    GMathBbox3<float> get_bbox_at(const CtxEval& ctx, const double& time) const;

    // Installs lazily loaded time samples. Drops what an earlier sampling cached; not concurrent with readers. The
    // geometry must stay at its address while the samples are in use.
    void set_positions_sampling(const GMathTimeSampling& sampling,
                                CoreSharedPointer<SampleLoader, CoreSharedCounter> loader);

    // Subdivided positions of one sample: a view that lives as long as the sampling.
    const CoreBasicArray<Vec3f> get_vertices_sample(const unsigned int& sample) const;
    SdsBezierMesh get_bezier_mesh_sample(const unsigned int& sample) const;
    // The surface at a time: with time samples, linear between the two around it and clamped outside (within 1e-4 of a
    // sample it is that sample); with motion vectors, rest + time * motion; otherwise at rest.
    SdsBezierMesh get_bezier_mesh_at(const double& time) const;
    // The surface that rays, samples and boxes of a frame see, whatever the samples of its shutter: the one at rest for
    // |time| <= 1e-8, get_bezier_mesh_at(time) otherwise. Give `set` the positions of time 0, so that both agree there.
    SdsBezierMesh get_bezier_mesh_at(const double& time, const GMathTimeSampling& sampling) const;
    // Per vertex: the quad vertices of the matching mesh, or what would be where the vertices are late.
    GeometryPositionArray get_vertices_at(const double& time) const {
        return get_vertices_of(get_bezier_mesh_at(time), time);
    }
    GeometryPositionArray get_vertices_at(const double& time, const GMathTimeSampling& sampling) const {
        return get_vertices_of(get_bezier_mesh_at(time, sampling), time);
    }
    void get_bezier_controls_sample(const unsigned int& patch, const unsigned int& sample, Vec3f* out) const {
        get_bezier_mesh_sample(sample).get_patch_controls(patch, out);
    }
    void get_bezier_controls_at(const unsigned int& patch, const double& time, Vec3f* out) const {
        get_bezier_mesh_at(time).get_patch_controls(patch, out);
    }
    void get_bezier_controls_at(const unsigned int& patch, const double& time, const GMathTimeSampling& sampling,
                                Vec3f* out) const {
        get_bezier_mesh_at(time, sampling).get_patch_controls(patch, out);
    }

    // Velocities of the sixteen controls at a fragment's time, per unit of time: the motion vectors', or with time
    // samples the displacement over the fragment's interval divided by it, the interval cut off where the samples end.
    // At an end that the interval leaves, and at its own bend, it is the slope of the samples there; outside the
    // samples zero. False, and nothing written, for a static geometry and for |time_interval| <= 1e-8.
    bool get_bezier_velocities(const GeometryFragment& fragment, Vec3f* out) const;

    // The derivative nets of a patch at rest, 24 vectors: U[r][i] at 3r + i (differences along u), V[r][c] at 12 + 4r +
    // c (along v), with the limit tangents in place of the differences at irregular corners and edges. Multiply by 3
    // for derivatives.
    void get_bezier_tangents(const unsigned int& primitive, Vec3f* out) const;

    // The surface at a fragment: position on the patch at the fragment's time; first derivatives from the derivative
    // nets (dP/du, dP/dv in this order, per patch parameter), second derivatives of the control net; smoothing normal
    // and its derivatives from the nets. In motion the geometric derivatives, and with them the geometric normal, stay
    // those of the rest nets, while the smoothing normal is that of the surface as it stands at the fragment's time:
    // shade with the smoothing normal. Where the two first derivatives are parallel or zero the normal is that of the
    // nets a little nearer to the patch's center (1/1024, 1/64, 1/4 of the way), then the patch's diagonals' normal.
    // The time derivative is set for animated geometries and |time_interval| > 1e-8: the velocity of
    // get_bezier_velocities. A primitive beyond the last leaves the sample untouched.
    void compute_fragment_sample(const CtxEval& ctx, const GeometryFragment& fragment, GeometrySample& sample) const;
    // Position, first derivatives and normal of the surface at rest at many places, in single precision: what
    // compute_fragment_sample gives to a few millionths of the patch's size, several times as fast. `places` and `out`
    // hold `count` entries each and do not overlap; primitives must exist. Places in any order; allocates nothing.
    void compute_limit_points(const LimitPlace* places, const unsigned int& count, LimitPoint* out) const;
    // compute_fragment_sample at parameter t of an edge, which runs from its corner to the next (`reversed`: the other
    // way).
    void compute_edge_sample(const unsigned int& primitive, const unsigned int& edge, const double& t,
                             const bool& reversed, GeometrySample& sample) const;

    // Of a refined surface, for this module's own kernels.
    sds::PatchArrays get_refined_arrays() const;

private:
    struct CornerCache;
    struct Refinement;
    class PointCloudSampleLoader;

    // What a build makes of topology and positions, and copies have too.
    struct BuiltArrays {
        mutable CoreArray<SdsMeshBase::VertexInfo> vertex_infos;
        CoreArray<SdsMeshBase::VertexLocalTopology> local_topologies;
        CoreArray<SdsMeshBase::PatchTangentInfo> tangent_infos;
        CoreArray<SdsMeshBase::BezierPatch> bezier_patches;
        CoreArray<Vec3f> bezier_corners;
        CoreArray<Vec3f> bezier_corner_motion_vectors;
        CoreArray<Vec3f> bezier_tangents;
        bool has_great_fans = false;  // as SurfaceTopology has it
        CoreArray<GMathBbox3<float>> group_bboxes;
        mutable CoreArray<AreaRecord> group_area_records;
        GMathBbox3<float> bbox{{0, 0, 0}, {0, 0, 0}};
        mutable AreaRecord area_record;
        // Last, so that an assignment that runs out of memory does not set them.
        std::uint64_t topology_stamp = 0;  // of the base that the first four arrays were made for
        std::uint64_t positions_stamp = 0;
    };

    // A time as at most two samples.
    struct SampleBlend {
        unsigned int count = 0;
        unsigned int samples[2] = {};
        float weights[2] = {};
    };

    struct LateVertices;

    // The base's vertices with the mode's rule.
    void set_vertex_infos() const;
    // The positions, and motion vectors where there are any, of the vertices.
    void build_point_cloud(const CoreBasicArray<Vec3f>& positions, const CoreBasicArray<Vec3f>& motion_vectors,
                           AppProgressBar* progress) const;
    void make_late_vertices() const {
        if (are_vertices_due.load(std::memory_order_acquire)) build_late_vertices();
    }
    void build_late_vertices() const;
    bool has_late_motion() const;
    bool has_vertices() const { return late_vertices != nullptr || !point_cloud.is_empty(); }
    // For views: null while they are due.
    const Vec3f* get_view_vertices() const;
    const Vec3f* get_view_motion() const;
    GeometryPositionArray get_vertices_of(const SdsBezierMesh& mesh, const double& time) const;
    void build_quads(const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors, const bool& is_update,
                     AppProgressBar* progress);
    void copy_arrays(const SdsMeshGeometry& other);
    // Null `tasks`, here and below, where the calling thread is enough.
    // Per vertex in `first_edges` the least half-edge that leaves it, here and below; of a small or linear surface they
    // mean nothing.
    void build_topology(const bool& is_update, CoreArray<unsigned int>& first_edges, SysThreadTaskManager* tasks,
                        AppProgressBar* progress);
    void build_patches(const bool& is_update, const CoreArray<unsigned int>& first_edges, SysThreadTaskManager* tasks,
                       AppProgressBar* progress);
    // Where the vertices at `points` come to lie on the limit. `assigns_tangents` has the offsets of tangents set
    // meanwhile.
    void build_corners(const CoreBasicArray<Vec3f>& points, const CoreArray<unsigned int>& first_edges,
                       const bool& assigns_tangents, CoreArray<Vec3f>& corners, SysThreadTaskManager* tasks,
                       AppProgressBar* progress);
    // `former` is what the geometry had before, or null.
    void build_refined(const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors, const bool& is_update,
                       std::shared_ptr<Refinement> former, AppProgressBar* progress);
    void build_boxes(const float& weight, SysThreadTaskManager* tasks, AppProgressBar* progress);
    static std::unique_ptr<SysThreadTaskManager> make_task_manager(const unsigned int& patch_count);
    void bind_view();
    SdsMeshBase::TopologyContext get_topology_context() const;
    void update_bbox(SysThreadTaskManager* tasks, AppProgressBar* progress);
    void sum_areas() const {
        if (are_areas_due.load(std::memory_order_acquire)) build_areas();
    }
    void build_areas() const;
    // Refined surfaces have no void patches.
    bool is_patch_void(const unsigned int& patch) const {
        return refinement == nullptr && base->is_primitive_void(patch);
    }
    // As compute_fragment_sample finds it.
    LimitPoint compute_limit_point(const LimitPlace& place) const;
    // The limit corners of a sample, computed once; null in mode 0.
    const Vec3f* get_bezier_corners_sample(const unsigned int& sample) const;
    // Quads and patch records, without positions.
    SdsBezierMesh make_view() const;
    SampleBlend get_sample_blend(const double& time) const;
    void add_sample(const unsigned int& sample, const float& weight, SdsBezierMesh& mesh) const;
    void add_motion(const float& weight, SdsBezierMesh& mesh) const;
    void add_sampled_velocities(const double& time, const double& interval, SdsBezierMesh& velocities) const;
    // What a refined surface's samples are computed from.
    void keep_refined_levels();
    // The patches of a refined surface's sample, computed once.
    const sds::RefinedPatches& get_refined_sample(const unsigned int& sample) const;
    // The control positions of a sample whose vertices are loaded, from its loader, which keeps them so long.
    CoreArray<Vec3f> take_control_positions(const unsigned int& sample) const;
    // The derivative nets of a refined surface's patch, 24 vectors as get_bezier_tangents has them: weighted ones added
    // to `out`, and those at a time.
    static void add_refined_nets(const sds::RefinedPatches& patches, const unsigned int& primitive, const float& weight,
                                 Vec3f* out);
    void get_refined_nets_at(const unsigned int& primitive, const double& time, Vec3f* out) const;
    // Times at which the surface counts as standing still where it was built.
    static bool is_rest_time(const double& time) { return !(time > 1e-8 || time < -1e-8); }

    const SdsMeshBase* base = nullptr;
    InterpolationMode mode = InterpolationMode::all_fixed;
    // Late vertices are written once, with their infos among the arrays.
    mutable GeometryPointCloud point_cloud;
    BuiltArrays arrays;
    SdsBezierMesh bezier_mesh;
    mutable std::atomic<bool> are_areas_due{false};  // those of the arrays
    mutable std::atomic<bool> are_vertices_due{false};
    std::unique_ptr<LateVertices> late_vertices;  // of a refined surface whose base's step is late
    std::unique_ptr<SysThreadLock> area_lock;
    std::shared_ptr<SysThreadLock> sample_lock;
    std::shared_ptr<CornerCache> corner_cache;
    std::shared_ptr<Refinement> refinement;  // null at depth 0
    CoreSharedPointer<SampleLoader, CoreSharedCounter> sample_loader;
    CoreSharedPointer<GeometryPointCloud::SampleLoader, CoreSharedCounter> cloud_loader;
};

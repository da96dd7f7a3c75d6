#include "sds/common/point_lanes.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/position_rules.h"
#include "sds/mesh_base/task_chunks.h"

using sds::none;
using Vec3f = GMathVec3<float>;

namespace sds {

namespace {

// A point of the step, in lanes: the same bits as three scalars.
struct StepPoint {
    PointLanes lanes;

    explicit StepPoint(PointLanes l) : lanes(l) {}
    explicit StepPoint(const Vec3f& p) : lanes(p) {}
    friend StepPoint operator+(StepPoint a, StepPoint b) { return StepPoint(a.lanes + b.lanes); }
    friend StepPoint operator*(StepPoint a, float s) { return StepPoint(a.lanes * s); }
};

}  // namespace

template <>
struct ValueOps<StepPoint> {
    using Scalar = float;
    static StepPoint zero() { return StepPoint(Vec3f(0, 0, 0)); }
    static StepPoint divide(StepPoint a, float s) { return StepPoint(ValueOps<Vec3f>::divide(Vec3f(a.lanes), s)); }
};

}  // namespace sds

namespace {

using sds::StepPoint;

struct PointTarget {
    Vec3f* points;
    StepPoint get(unsigned int w) const { return StepPoint(points[w]); }
    void set(unsigned int w, StepPoint value) { value.lanes.store(points[w]); }
};

struct PairTarget {
    Vec3f* first;
    Vec3f* second;
    sds::ValuePair<Vec3f> get(unsigned int w) const { return {first[w], second[w]}; }
    void set(unsigned int w, const sds::ValuePair<Vec3f>& value) {
        first[w] = value.first;
        second[w] = value.second;
    }
};

template <class Value, class Source, class Target>
void run_step(const SdsMeshBase::TopologyContext& context, bool linear, const Source& source, Target target,
              AppProgressBar* progress) {
    if (progress == nullptr) {
        sds::subdivide_values<Value>(context, linear, source, target, [](unsigned int) {});
    } else {
        progress->set_step_count(context.subdivision->vertex_rings.get_count());
        sds::subdivide_values<Value>(context, linear, source, target,
                                     [progress](unsigned int w) { progress->step(w + 1); });
    }
}

}  // namespace

void SdsMeshBase::compute_subdivision_positions(const CoreBasicArray<Vec3f>& positions, const TopologyContext& context,
                                                Vec3f* out, const bool& linear, AppProgressBar* progress) {
    run_step<StepPoint>(
        context, linear, [&](unsigned int w) { return StepPoint(positions[w]); }, PointTarget{out}, progress);
}

void SdsMeshBase::compute_subdivision_positions(const CoreBasicArray<Vec3f>& positions,
                                                const CoreBasicArray<Vec3f>& positions2, const TopologyContext& context,
                                                Vec3f* out, Vec3f* out2, const bool& linear, AppProgressBar* progress) {
    run_step<sds::ValuePair<Vec3f>>(
        context, linear,
        [&](unsigned int w) {
            return sds::ValuePair<Vec3f>{positions[w], positions2[w]};
        },
        PairTarget{out, out2}, progress);
}

void SdsMeshBase::compute_bezier_corner(const TopologyContext& context, const unsigned int& e, const Vec3f* positions,
                                        Vec3f& corner) {
    // In double, rounded once: the sum over a pole of valence n grows to n^2 times the result.
    corner = Vec3f(sds::limit_point<GMathVec3<double>>(
        context, e, [positions](unsigned int w) { return GMathVec3<double>(positions[w]); }));
}

void SdsMeshBase::compute_bezier_corners(const TopologyContext& context, const CoreBasicArray<Vec3f>& positions,
                                         Vec3f* corners, AppProgressBar* progress) {
    sds::progress_steps(progress, positions.get_count());
    CoreArray<unsigned char> visited(positions.get_count(), 0);
    const CoreBasicArray<unsigned int>& quad_indices = *context.quad_indices;
    for (unsigned int e = 0; e < quad_indices.get_count(); ++e) {
        const unsigned int v = quad_indices[e];
        if (v == none || visited[v] != 0) continue;
        compute_bezier_corner(context, e, positions.get_data(), corners[v]);
        visited[v] = 1;
        sds::progress_step(progress, v);
    }
}

void SdsMeshBase::compute_bezier_corners(const TopologyContext& context, const CoreBasicArray<Vec3f>& positions,
                                         Vec3f* corners, SysThreadTaskManager* tasks, AppProgressBar* progress) {
    if (tasks == nullptr) return compute_bezier_corners(context, positions, corners, progress);
    // The half-edge that each vertex is computed from: the least, as when they are taken one after the other.
    CoreArray<unsigned int> first_edges(positions.get_count(), none);
    const CoreBasicArray<unsigned int>& quad_indices = *context.quad_indices;
    for (unsigned int e = 0; e < quad_indices.get_count(); ++e) {
        const unsigned int v = quad_indices[e];
        if (v != none && first_edges[v] == none) first_edges[v] = e;
    }
    sds::for_each_entry(tasks, positions.get_count(), progress, [&](unsigned int v) {
        if (first_edges[v] != none) compute_bezier_corner(context, first_edges[v], positions.get_data(), corners[v]);
    });
}

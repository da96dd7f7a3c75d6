#include "sds/mesh_geometry/late_vertices.h"

#include "sds/common/progress.h"
#include "sds/mesh_base/task_chunks.h"

using Vec3f = GMathVec3<float>;

void SdsMeshGeometry::set_vertex_infos() const {
    arrays.vertex_infos = base->get_vertex_infos();
    // Borders are sharp: where no vertex has a sharp edge, none is a border's corner, and none has been fixed.
    unsigned char bits = 0;
    for (const SdsMeshBase::VertexInfo& info : arrays.vertex_infos) bits |= info.bits;
    if (bits == 0 && mode == InterpolationMode::corners_fixed) return;
    SdsMeshBase::set_vertices_by_rule(base->get_quad_indices(), base->get_edges(),
                                      static_cast<SdsMeshBase::VertexRule>(mode), arrays.vertex_infos);
}

void SdsMeshGeometry::build_point_cloud(const CoreBasicArray<Vec3f>& positions,
                                        const CoreBasicArray<Vec3f>& motion_vectors, AppProgressBar* progress) const {
    const bool has_motion = motion_vectors.get_count() == positions.get_count() && !positions.is_empty();
    const bool linear = mode == InterpolationMode::all_fixed;
    const sds::ProgressTask task(progress, "compute subdivision positions", 0.1f);
    if (base->get_subdivision() == nullptr) {
        const unsigned int count = positions.get_count();
        point_cloud.init(count, false, has_motion, false);
        sds::copy_elements(positions.get_data(), count, point_cloud.get_positions().get_data());
        if (has_motion) sds::copy_elements(motion_vectors.get_data(), count, point_cloud.get_velocities().get_data());
        return;
    }
    // Zeroed, because vertices that no quad uses are never written.
    point_cloud.init(arrays.vertex_infos.get_count(), false, has_motion, true);
    Vec3f* out = point_cloud.get_positions().get_data();
    if (has_motion)
        SdsMeshBase::compute_subdivision_positions(positions, motion_vectors, get_topology_context(), out,
                                                   point_cloud.get_velocities().get_data(), linear, progress);
    else
        SdsMeshBase::compute_subdivision_positions(positions, get_topology_context(), out, linear, progress);
}

void SdsMeshGeometry::build_late_vertices() const {
    const SysThreadLockGuard guard(late_vertices->lock);
    if (!are_vertices_due.load(std::memory_order_relaxed)) return;
    set_vertex_infos();
    build_point_cloud(late_vertices->positions, late_vertices->motion_vectors, nullptr);
    late_vertices->positions.clear();
    late_vertices->motion_vectors.clear();
    are_vertices_due.store(false, std::memory_order_release);
}

bool SdsMeshGeometry::has_late_motion() const { return late_vertices->has_motion; }

const Vec3f* SdsMeshGeometry::get_view_vertices() const {
    return are_vertices_due.load(std::memory_order_acquire) ? nullptr : point_cloud.get_positions().get_data();
}

const Vec3f* SdsMeshGeometry::get_view_motion() const {
    return are_vertices_due.load(std::memory_order_acquire) ? nullptr : point_cloud.get_velocities().get_data();
}

GeometryPositionArray SdsMeshGeometry::get_vertices_of(const SdsBezierMesh& mesh, const double& time) const {
    if (late_vertices == nullptr || has_positions_sampling()) return mesh.get_quad_vertices();
    make_late_vertices();
    const Vec3f* const sources[4] = {point_cloud.get_positions().get_data(), point_cloud.get_velocities().get_data()};
    const float weights[4] = {1.0f, static_cast<float>(time)};
    return {point_cloud.get_count(), mesh.get_source_count(), sources, weights};
}

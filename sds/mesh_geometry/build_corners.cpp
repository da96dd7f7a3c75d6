// The limit corners of a whole mesh.
#include "sds/mesh_base/task_chunks.h"
#include "sds/mesh_geometry/patch_arrays.h"

using Vec3f = GMathVec3<float>;

void SdsMeshGeometry::build_corners(const CoreBasicArray<Vec3f>& points, const CoreArray<unsigned int>& first_edges,
                                    const bool& assigns_tangents, CoreArray<Vec3f>& corners,
                                    SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const SdsMeshBase::TopologyContext context = get_topology_context();
    const auto assign_tangents = [&] {
        CoreArray<SdsMeshBase::PatchTangentInfo>& infos = arrays.tangent_infos;
        if (assigns_tangents) SdsMeshBase::assign_tangent_offsets(infos.get_count(), infos.get_data());
    };
    // Vertices that no quad uses stay where they are.
    if (tasks == nullptr) {
        assign_tangents();
        sds::copy_array(points, corners);
        return SdsMeshBase::compute_bezier_corners(context, points, corners.get_data(), progress);
    }
    corners.resize(0);
    corners.resize(points.get_count());
    const sds::CornerArrays mesh{context.quad_indices->get_data(),
                                 context.edges->opposite_edges.get_data(),
                                 arrays.vertex_infos.get_data(),
                                 context.local_topologies,
                                 arrays.tangent_infos.get_data(),
                                 first_edges.get_data(),
                                 points[0].get_data()};
    const auto work = [&](const sds::WorkRange& range) {
        for (unsigned int v = range.begin; v < range.end; ++v) {
            v = sds::get_pair_kernels().compute_corners(mesh, v, range.end, corners[0].get_data());
            if (v < range.end)
                SdsMeshBase::compute_bezier_corner(context, mesh.first_edges[v], points.get_data(), corners[v]);
        }
    };
    sds::run_tasks<sds::RangeTask<decltype(work)>>(tasks, points.get_count(), sds::tasks_per_thread(points.get_count()),
                                                   progress, work, assign_tangents);
}

// The limit corners of a whole mesh.
#include "sds/mesh_base/task_chunks.h"
#include "sds/mesh_geometry/patch_arrays.h"

using Vec3f = GMathVec3<float>;

void SdsMeshGeometry::build_corners(const CoreBasicArray<Vec3f>& points, const CoreArray<unsigned int>& first_edges,
                                    CoreArray<Vec3f>& corners, SysThreadTaskManager* tasks,
                                    AppProgressBar* progress) const {
    const SdsMeshBase::TopologyContext context = get_topology_context();
    // Vertices that no quad uses stay where they are.
    if (tasks == nullptr) {
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
    sds::run_tasks<sds::RangeTask<decltype(work)>>(tasks, points.get_count(), 4, progress, work);
}

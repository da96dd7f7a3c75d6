// The limit corners of a whole mesh.
#include "sds/common/kept_scratch.h"
#include "sds/mesh_base/task_chunks.h"
#include "sds/mesh_geometry/patch_arrays.h"

using Vec3f = GMathVec3<float>;
using sds::none;

namespace {

struct FirstEdges {
    CoreArray<unsigned int> of;  // per vertex the least half-edge that leaves it, or none

    size_t get_memory_size() const { return sizeof(unsigned int) * of.get_count(); }
    void find(const CoreBasicArray<unsigned int>& quad_indices, unsigned int vertex_count) {
        of.assign(vertex_count, none);
        // The last one written is the least.
        for (unsigned int first = quad_indices.get_count(); first != 0;) {
            first -= 4;
            const unsigned int* const quad = quad_indices.get_data() + first;
            const bool is_void = sds::is_void_quad(quad);
            for (unsigned int k = 4; k-- > 0;)
                if (!is_void || quad[k] != none) of[quad[k]] = first + k;
        }
    }
};

}  // namespace

void SdsMeshGeometry::build_corners(const CoreBasicArray<Vec3f>& points, CoreArray<Vec3f>& corners,
                                    SysThreadTaskManager* tasks, AppProgressBar* progress) const {
    // Vertices that no quad uses stay where they are.
    sds::copy_array(points, corners);
    const SdsMeshBase::TopologyContext context = get_topology_context();
    if (tasks == nullptr) return SdsMeshBase::compute_bezier_corners(context, points, corners.get_data(), progress);
    sds::KeptScratch<FirstEdges> first_edges;
    first_edges->find(*context.quad_indices, points.get_count());
    const sds::CornerArrays mesh{context.quad_indices->get_data(),
                                 context.edges->opposite_edges.get_data(),
                                 arrays.vertex_infos.get_data(),
                                 context.local_topologies,
                                 arrays.tangent_infos.get_data(),
                                 first_edges->of.get_data(),
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

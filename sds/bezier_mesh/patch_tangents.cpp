// The tangent operations of SdsMeshBase. They stand here because they read positions and controls through the view.
#include "qn_sys/sys_thread.h"
#include "sds/bezier_mesh/sds_bezier_mesh.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/tangent_rules.h"
#include "sds/mesh_base/task_chunks.h"

using Vec3f = GMathVec3<float>;

namespace {

class ComputeBezierTangentsTask : public SysThreadTask {
public:
    ComputeBezierTangentsTask() = default;
    ComputeBezierTangentsTask(const SdsBezierMesh& mesh, const SdsMeshBase::EdgesTopology& edges,
                              const SdsMeshBase::PatchTangentInfo* infos,
                              const SdsMeshBase::VertexLocalTopology* topologies, Vec3f* tangents, unsigned int begin,
                              unsigned int end, AppProgressBar* progress, float share)
        : m_mesh(&mesh),
          m_edges(&edges),
          m_infos(infos),
          m_topologies(topologies),
          m_tangents(tangents),
          m_begin(begin),
          m_end(end),
          m_progress(progress),
          m_share(share) {}

    void run(const unsigned int&) override {
        for (unsigned int q = m_begin; q < m_end; ++q)
            SdsMeshBase::compute_bezier_tangents(*m_mesh, *m_edges, q, m_infos[q], m_topologies + 4 * size_t{q},
                                                 m_tangents + m_infos[q].tangent_offset);
        sds::progress_increment(m_progress, static_cast<float>(m_end - m_begin) * m_share);
    }

private:
    const SdsBezierMesh* m_mesh = nullptr;
    const SdsMeshBase::EdgesTopology* m_edges = nullptr;
    const SdsMeshBase::PatchTangentInfo* m_infos = nullptr;
    const SdsMeshBase::VertexLocalTopology* m_topologies = nullptr;
    Vec3f* m_tangents = nullptr;
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
    AppProgressBar* m_progress = nullptr;
    float m_share = 0.0f;
};

}  // namespace

void SdsMeshBase::compute_vertex_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                          const VertexLocalTopology& topology, Vec3f& t1, Vec3f& t2) {
    const auto t = sds::vertex_tangents<sds::TableTrig>(mesh.get_vertex_indices(), edges, e, topology.valence,
                                                        [&mesh](unsigned int w) { return mesh.get_quad_vertex(w); });
    t1 = t.t1;
    t2 = t.t2;
}

void SdsMeshBase::compute_corner_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                          const VertexLocalTopology& topology, Vec3f& t1, Vec3f& t2) {
    const auto t = sds::corner_tangents<sds::TableTrig>(mesh.get_vertex_indices(), edges, e, topology,
                                                        [&mesh](unsigned int w) { return mesh.get_quad_vertex(w); });
    t1 = t.t1;
    t2 = t.t2;
}

void SdsMeshBase::compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& q,
                                          const PatchTangentInfo& info, const VertexLocalTopology* corners,
                                          Vec3f* tangents) {
    if ((info.irregular & 0xFFu) == 0) return;
    Vec3f controls[16];
    mesh.get_local_patch_controls(q, controls);
    sds::DerivativeNets<Vec3f> nets(controls);
    sds::replace_irregular_entries<sds::TableTrig>(
        mesh.get_vertex_indices(), edges, q, info.irregular, corners,
        [&mesh](unsigned int w) { return mesh.get_quad_vertex(w); }, nets);
    unsigned int slot = 0;
    for (unsigned int bit = 0; bit < 8; ++bit) {
        if (((info.irregular >> bit) & 1u) == 0) continue;
        for (unsigned int i = 0; i < 2; ++i)
            tangents[slot++] = bit < 4 ? nets.corner_entry(bit, i) : nets.edge_entry(bit - 4, i);
    }
}

void SdsMeshBase::compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                          const CoreBasicArray<PatchTangentInfo>& infos,
                                          const CoreBasicArray<VertexLocalTopology>& topologies, Vec3f* tangents,
                                          SysThreadTaskManager& tasks, AppProgressBar* progress) {
    const float share = 1.0f / static_cast<float>(infos.get_count());
    sds::run_chunked<ComputeBezierTangentsTask>(tasks, infos.get_count(), 8, [&](unsigned int begin, unsigned int end) {
        return ComputeBezierTangentsTask(mesh, edges, infos.get_data(), topologies.get_data(), tangents, begin, end,
                                         progress, share);
    });
}

void SdsMeshBase::compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                          const CoreBasicArray<PatchTangentInfo>& infos,
                                          const CoreBasicArray<VertexLocalTopology>& topologies, Vec3f* tangents,
                                          AppProgressBar* progress) {
    sds::progress_steps(progress, infos.get_count());
    for (unsigned int q = 0; q < infos.get_count(); ++q) {
        compute_bezier_tangents(mesh, edges, q, infos[q], topologies.get_data() + 4 * size_t{q},
                                tangents + infos[q].tangent_offset);
        sds::progress_step(progress, q + 1);
    }
}

// The tangent operations of SdsMeshBase. They stand here because they read positions and controls through the view.
#include <algorithm>
#include <bit>
#include <utility>

#include "sds/bezier_mesh/sds_bezier_mesh.h"
#include "sds/common/point_lanes.h"
#include "sds/mesh_base/tangent_rules.h"
#include "sds/mesh_base/task_chunks.h"

using Vec3f = GMathVec3<float>;

namespace {

using EdgesTopology = SdsMeshBase::EdgesTopology;
using VertexLocalTopology = SdsMeshBase::VertexLocalTopology;
using TangentPair = sds::TangentPair<float>;
using sds::PointLanes;

// The tangents of all corners in fans of more than max_summed_valence quads, each fan walked once. Corners that a walk
// meets but that have another fan, beyond an edge whose two sides differ, or lie at another vertex are left to a walk
// of their own.
class GreatFanTangents {
public:
    GreatFanTangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                     const CoreBasicArray<SdsMeshBase::PatchTangentInfo>& infos,
                     const CoreBasicArray<VertexLocalTopology>& fans, bool has_any) {
        if (!has_any) return;
        const GeometryPositionArray positions = mesh.get_quad_vertices();
        for (unsigned int q = 0; q < infos.get_count(); ++q)
            // The corners of great fans are irregular.
            for (unsigned int corners = infos[q].irregular & 15u; corners != 0; corners &= corners - 1) {
                const unsigned int e = 4 * q + static_cast<unsigned int>(std::countr_zero(corners));
                if (is_great(fans[e]) && !sds::is_void_quad(mesh.get_vertex_indices() + 4 * size_t{q}))
                    m_corners.add({e, false, {}});
            }

        struct Member {
            Corner* corner;
            unsigned int number;
        };
        const unsigned int* vertices = mesh.get_vertex_indices();
        CoreArray<Member> members;
        for (Corner& first : m_corners) {
            if (first.is_known) continue;
            const VertexLocalTopology& fan = fans[first.edge];
            const auto is_in_fan = [&](unsigned int h) {
                const VertexLocalTopology& other = fans[h];
                if (other.closed != fan.closed || other.valence != fan.valence) return false;
                return fan.closed || (other.first_edge == fan.first_edge && other.last_edge == fan.last_edge &&
                                      vertices[h] == vertices[first.edge]);
            };
            members.resize(0);
            members.add({&first, 0});
            const sds::FanFrame<double> frame = sds::great_fan_frame(
                vertices, edges, sds::great_fan_start(vertices, edges, first.edge, fan), fan,
                [&positions](unsigned int w) { return positions[w]; },
                [&](unsigned int h, unsigned int i) {
                    Corner* const corner = is_in_fan(h) ? find(h) : nullptr;
                    if (corner != nullptr && corner != m_corners.end() && corner->edge == h) members.add({corner, i});
                });
            for (const Member& member : members) {
                member.corner->is_known = true;
                member.corner->tangents = sds::great_fan_tangents<float>(frame, fan, member.number);
            }
        }
    }

    static bool is_great(const VertexLocalTopology& fan) { return fan.valence > sds::max_summed_valence; }
    const TangentPair& get(unsigned int e) const { return find(e)->tangents; }

private:
    struct Corner {
        unsigned int edge;
        bool is_known;
        TangentPair tangents;
    };

    const Corner* find(unsigned int e) const {
        return std::lower_bound(m_corners.begin(), m_corners.end(), e,
                                [](const Corner& corner, unsigned int edge) { return corner.edge < edge; });
    }
    Corner* find(unsigned int e) { return const_cast<Corner*>(std::as_const(*this).find(e)); }

    CoreArray<Corner> m_corners;  // by half-edge, ascending
};

void store(const Vec3f& from, Vec3f& to) { to = from; }
void store(const PointLanes& from, Vec3f& to) { from.store(to); }

// One quad's tangents, computed with vectors of type Vec; tangents_at(e, fan) returns the limit tangents of a corner.
template <class Vec, class TangentsAt>
void compute_quad_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, unsigned int q,
                           unsigned int irregular, const VertexLocalTopology* fans, const TangentsAt& tangents_at,
                           Vec3f* tangents) {
    if ((irregular & 0xFFu) == 0) return;
    Vec controls[16];
    mesh.get_local_patch_controls(q, controls);
    sds::DerivativeNets<Vec> nets(controls);
    if (!sds::is_void_quad(mesh.get_vertex_indices() + 4 * size_t{q}))
        sds::replace_irregular_entries<sds::TableTrig>(edges, q, irregular, fans, tangents_at, nets);
    unsigned int slot = 0;
    for (unsigned int bit = 0; bit < 8; ++bit) {
        if (((irregular >> bit) & 1u) == 0) continue;
        for (unsigned int i = 0; i < 2; ++i) store(nets.entry(bit, i), tangents[slot++]);
    }
}

// What the tangents of all quads are computed from and written to.
struct TangentWork {
    const SdsBezierMesh& mesh;
    const EdgesTopology& edges;
    const CoreBasicArray<SdsMeshBase::PatchTangentInfo>& infos;
    const CoreBasicArray<VertexLocalTopology>& fans;
    Vec3f* tangents;
    bool has_great_fans;
    GeometryPositionArray positions = mesh.get_quad_vertices();
    GreatFanTangents great_fans{mesh, edges, infos, fans, has_great_fans};

    void operator()(const sds::WorkRange& range) const {
        for (unsigned int q = range.begin; q < range.end; ++q) {
            compute(q);
            range.step(q);
        }
    }

private:
    void compute(unsigned int q) const {
        if ((infos[q].irregular & 0xFFu) == 0) return;
        // Points that need no weight are read where they are.
        const bool is_plain = mesh.get_source_count() == 1 && mesh.get_weight(0) == 1.0f;
        if (const Vec3f* points = is_plain ? mesh.get_quad_vertices(0) : nullptr; points != nullptr)
            compute(q, [points](unsigned int w) { return PointLanes(points[w]); });
        else
            compute(q, [this](unsigned int w) { return positions[w]; });
    }
    template <class Position>
    void compute(unsigned int q, const Position& position) const {
        using Vec = sds::PositionVec<Position>;
        const auto tangents_at = [&](unsigned int e, const VertexLocalTopology& fan) -> sds::VecTangents<Vec> {
            if (GreatFanTangents::is_great(fan)) {
                const TangentPair& t = great_fans.get(e);
                return {Vec(t.t1), Vec(t.t2)};
            }
            return sds::limit_tangents<sds::TableTrig>(mesh.get_vertex_indices(), edges, e, fan, position);
        };
        compute_quad_tangents<Vec>(mesh, edges, q, infos[q].irregular, fans.get_data() + 4 * size_t{q}, tangents_at,
                                   tangents + infos[q].tangent_offset);
    }
};

using ComputeBezierTangentsTask = sds::RangeTask<TangentWork>;

}  // namespace

void SdsMeshBase::compute_vertex_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges, const unsigned int& e,
                                          const VertexLocalTopology& topology, Vec3f& t1, Vec3f& t2) {
    const auto t = sds::vertex_tangents<sds::TableTrig>(mesh.get_vertex_indices(), edges, e, topology,
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
    const auto tangents_at = [&](unsigned int e, const VertexLocalTopology& fan) {
        return sds::limit_tangents<sds::TableTrig>(mesh.get_vertex_indices(), edges, e, fan,
                                                   [&mesh](unsigned int w) { return mesh.get_quad_vertex(w); });
    };
    compute_quad_tangents<Vec3f>(mesh, edges, q, info.irregular, corners, tangents_at, tangents);
}

void SdsMeshBase::compute_bezier_tangents(const SdsBezierMesh& mesh, const EdgesTopology& edges,
                                          const CoreBasicArray<PatchTangentInfo>& infos,
                                          const CoreBasicArray<VertexLocalTopology>& topologies, Vec3f* tangents,
                                          SysThreadTaskManager* tasks, AppProgressBar* progress,
                                          const bool& has_great_fans) {
    sds::run_tasks<ComputeBezierTangentsTask>(tasks, infos.get_count(), 8, progress,
                                              {mesh, edges, infos, topologies, tangents, has_great_fans});
}

#include "oracles/double_surface.h"

#include "sds/mesh_base/control_rules.h"
#include "sds/mesh_base/position_rules.h"

namespace sds_test {

namespace {

struct VectorTarget {
    std::vector<Vec3d>& points;
    const Vec3d& get(unsigned int w) const { return points[w]; }
    void set(unsigned int w, const Vec3d& value) { points[w] = value; }
};

}  // namespace

SurfacePoint evaluate_nets(const NetsD& nets, double u, double v) {
    const sds::CubicBasis<double> cu(u), cv(v);
    const sds::QuadraticBasis<double> qu(u), qv(v);
    Vec3d rows[4];
    for (unsigned int r = 0; r < 4; ++r) rows[r] = sds::quadratic_sum(qu, nets.u[r][0], nets.u[r][1], nets.u[r][2]);
    SurfacePoint point{{0, 0, 0}, sds::cubic_sum(cv, rows[0], rows[1], rows[2], rows[3]) * 3.0, {0, 0, 0}};
    for (unsigned int r = 0; r < 3; ++r)
        rows[r] = sds::cubic_sum(cu, nets.v[r][0], nets.v[r][1], nets.v[r][2], nets.v[r][3]);
    point.dv = sds::quadratic_sum(qv, rows[0], rows[1], rows[2]) * 3.0;
    return point;
}

DoubleSurface::DoubleSurface(const ZooMesh& cage, const BuiltSurface& surface) : m_surface(surface) {
    const SdsMeshBase::TopologyContext context = surface.context();
    const auto control_point = [&cage](unsigned int w) { return Vec3d(cage.positions[w]); };
    m_vertices.assign(context.vertex_infos->get_count(), Vec3d(0, 0, 0));
    if (context.subdivision != nullptr) {
        VectorTarget target{m_vertices};
        sds::subdivide_values<Vec3d>(context, false, control_point, target, [](unsigned int) {});
    } else {
        for (unsigned int w = 0; w < m_vertices.size(); ++w) m_vertices[w] = control_point(w);
    }

    // From the first corner that uses the vertex, as the limit corners are.
    m_corners = m_vertices;
    std::vector<unsigned char> visited(m_vertices.size(), 0);
    for (unsigned int e = 0; e < context.quad_indices->get_count(); ++e) {
        const unsigned int v = (*context.quad_indices)[e];
        if (visited[v] != 0) continue;
        visited[v] = 1;
        m_corners[v] = sds::limit_point<Vec3d>(context, e, [this](unsigned int w) { return m_vertices[w]; });
    }
}

void DoubleSurface::get_controls(unsigned int quad, Vec3d* out) const {
    sds::smooth_controls(
        m_surface.base.get_quad_indices(quad), m_surface.geometry.get_bezier_patches()[quad],
        [this](unsigned int w) { return m_vertices[w]; }, [this](unsigned int w) { return m_corners[w]; }, out);
}

NetsD DoubleSurface::get_nets(unsigned int quad) const {
    Vec3d controls[16];
    get_controls(quad, controls);
    NetsD nets(controls);
    const SdsMeshBase::EdgesTopology& edges = m_surface.base.get_edges();
    sds::replace_irregular_entries<sds::ExactTrig>(
        edges, quad, m_surface.geometry.get_tangent_infos()[quad].irregular,
        m_surface.geometry.get_local_topologies().get_data() + 4 * size_t{quad},
        [&](unsigned int e, const SdsMeshBase::VertexLocalTopology& fan) {
            return sds::limit_tangents<sds::ExactTrig>(m_surface.base.get_quad_indices().get_data(), edges, e, fan,
                                                       [this](unsigned int w) { return m_vertices[w]; });
        },
        nets);
    return nets;
}

SurfacePoint DoubleSurface::evaluate(unsigned int quad, double u, double v) const {
    Vec3d controls[16];
    get_controls(quad, controls);
    SurfacePoint point = evaluate_nets(get_nets(quad), u, v);
    point.position = sds::evaluate_patch(controls, sds::CubicBasis<double>(u), sds::CubicBasis<double>(v));
    return point;
}

}  // namespace sds_test

#include "bench/support/cages.h"

#include <cstdlib>
#include <filesystem>

#include "bench/support/figure_cage.h"
#include "io/obj/read_obj.h"
#include "sds/common/cubic_basis.h"
#include "sds/common/half_edge.h"

namespace sds_bench {

namespace {

namespace fs = std::filesystem;

fs::path get_path(const std::string& name) {
    const fs::path source(QN_SOURCE_DIR);
    if (name == "body" || name == "knot") return source / "assets" / (name + ".obj");
    const char* folder = std::getenv("QN_MESHES");
    const fs::path meshes = folder != nullptr ? fs::path(folder) : source.parent_path() / "shared" / "meshes";
    return meshes / (name + ".obj");
}

std::unique_ptr<HostCage> read_cage(const std::string& name) {
    const fs::path path = get_path(name);
    if (!fs::exists(path)) return nullptr;
    const sds_io::ReadObjResult result = sds_io::read_obj(path.string());
    return result.cage ? std::make_unique<HostCage>(*result.cage, name) : nullptr;
}

// Cuts per side that give the body's 544 quads the named size.
unsigned int get_cut_count(const std::string& name) {
    static const std::map<std::string, unsigned int> counts{
        {"10k", 4}, {"28k", 7}, {"100k", 14}, {"1M", 43}, {"10M", 136}};
    const auto found = counts.find(name);
    return found == counts.end() ? 0 : found->second;
}

// Vertices of the cut cage: the old vertices, then n - 1 on every edge, then (n - 1)^2 inside every quad.
class CutVertices {
public:
    CutVertices(const SdsMeshBase& base, unsigned int vertex_count, unsigned int n)
        : m_base(base), m_n(n), m_edge_points(base.get_quad_indices().get_count()) {
        unsigned int next = vertex_count;
        for (unsigned int e = 0; e < m_edge_points.get_count(); ++e) {
            m_edge_points[e] = next;
            if (owner_of(e) == e) next += n - 1;
        }
        m_first_inner = next;
    }

    unsigned int get_count() const { return m_first_inner + m_base.get_primitive_count() * (m_n - 1) * (m_n - 1); }

    // The vertex at (i, j) of a quad's grid, i along u.
    unsigned int get(unsigned int quad, unsigned int i, unsigned int j) const {
        const unsigned int* corners = m_base.get_quad_indices(quad);
        const bool i_end = i == 0 || i == m_n, j_end = j == 0 || j == m_n;
        if (i_end && j_end) return corners[j == 0 ? (i == 0 ? 0 : 1) : (i == 0 ? 3 : 2)];
        if (j == 0) return get_on_edge(4 * quad, i);
        if (i == m_n) return get_on_edge(4 * quad + 1, j);
        if (j == m_n) return get_on_edge(4 * quad + 2, m_n - i);
        if (i == 0) return get_on_edge(4 * quad + 3, m_n - j);
        return m_first_inner + (quad * (m_n - 1) + (j - 1)) * (m_n - 1) + (i - 1);
    }

private:
    unsigned int owner_of(unsigned int e) const {
        const unsigned int opposite = m_base.get_edges().opposite_edges[e];
        return opposite == sds::none || opposite > e ? e : opposite;
    }
    // `step` counts from the half-edge's start.
    unsigned int get_on_edge(unsigned int e, unsigned int step) const {
        const unsigned int owner = owner_of(e);
        const CoreBasicArray<unsigned int>& corners = m_base.get_quad_indices();
        return m_edge_points[owner] + (corners[owner] == corners[e] ? step - 1 : m_n - 1 - step);
    }

    const SdsMeshBase& m_base;
    unsigned int m_n;
    CoreArray<unsigned int> m_edge_points;  // first vertex, per owning half-edge
    unsigned int m_first_inner;
};

}  // namespace

sds_model::ControlCage cut_quads(const HostCage& cage, unsigned int n) {
    OurSurface surface;
    surface.build(cage);
    const SdsMeshBase& base = surface.base;
    const CutVertices vertices(base, cage.get_vertex_count(), n);

    sds_model::ControlCage cut;
    cut.group_names = {"default"};
    cut.positions.resize(3 * size_t{vertices.get_count()});
    const size_t quads = size_t{base.get_primitive_count()} * n * n;
    cut.polygon_counts.assign(quads, 4);
    cut.polygon_groups.assign(quads, 0);
    cut.polygon_indices.reserve(4 * quads);
    cut.corner_creases.reserve(4 * quads);
    for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
        Vec3f controls[16];
        surface.geometry.get_bezier_controls(q, controls);
        const auto is_crease = [&](unsigned int edge, bool on_it) {
            return static_cast<unsigned char>(on_it && base.is_primitive_edge_crease(q, edge) ? 1 : 0);
        };
        for (unsigned int j = 0; j <= n; ++j)
            for (unsigned int i = 0; i <= n; ++i) {
                const float step = 1.0f / static_cast<float>(n);
                const Vec3f point = sds::evaluate_patch(controls, sds::CubicBasis<float>(static_cast<float>(i) * step),
                                                        sds::CubicBasis<float>(static_cast<float>(j) * step));
                for (unsigned int c = 0; c < 3; ++c) cut.positions[3 * size_t{vertices.get(q, i, j)} + c] = point[c];
                if (i == n || j == n) continue;
                for (const unsigned int vertex : {vertices.get(q, i, j), vertices.get(q, i + 1, j),
                                                  vertices.get(q, i + 1, j + 1), vertices.get(q, i, j + 1)})
                    cut.polygon_indices.push_back(vertex);
                for (const unsigned char crease :
                     {is_crease(0, j == 0), is_crease(1, i + 1 == n), is_crease(2, j + 1 == n), is_crease(3, i == 0)})
                    cut.corner_creases.push_back(crease);
            }
    }
    return cut;
}

const HostCage* CageStore::find(const std::string& name) {
    const auto found = m_cages.find(name);
    if (found != m_cages.end()) return found->second.get();
    std::unique_ptr<HostCage> cage;
    if (name == "figure")
        cage = std::make_unique<HostCage>(make_figure_cage(), name);
    else if (const unsigned int n = get_cut_count(name); n == 0)
        cage = read_cage(name);
    else if (const HostCage* body = find("body"); body != nullptr)
        cage = std::make_unique<HostCage>(cut_quads(*body, n), name);
    return (m_cages[name] = std::move(cage)).get();
}

}  // namespace sds_bench

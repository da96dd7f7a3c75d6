#include "model/tessellate.h"

#include "model/array_size.h"
#include "model/quad_places.h"
#include "qn_ctx/ctx_eval.h"
#include "sds/common/cubic_basis.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace sds_model {

namespace {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;

/// The corners of every cell in the quad's grid.
constexpr std::pair<unsigned int, unsigned int> cell_corner_offsets[] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};

/// Positions at the points of a grid: point(quad, i, j) is one. A task of `weight` of the progress, which may be null.
template <class Point>
std::vector<float> evaluate_points(const WeldedGrid& grid, std::uint32_t quads, unsigned int cells,
                                   AppProgressBar* progress, float weight, const Point& point) {
    const AppProgressTask task(progress, "tessellation", weight);
    std::vector<float> xyz(3 * std::size_t{grid.get_point_count()});
    for (std::uint32_t q = 0; q < quads; ++q) {
        if (progress != nullptr) progress->set_value(static_cast<float>(q) / static_cast<float>(quads));
        if (!grid.has_quad(q)) continue;
        for (unsigned int j = 0; j <= cells; ++j)
            for (unsigned int i = 0; i <= cells; ++i) {
                const Vec3d p = point(q, i, j);
                float* out = &xyz[3 * std::size_t{grid.point(q, i, j)}];
                for (unsigned int c = 0; c < 3; ++c) out[c] = static_cast<float>(p[c]);
            }
    }
    return xyz;
}

/// Evaluates patches in double precision, of which it keeps the last: `controls(patch, out)` gives sixteen controls.
template <class Controls>
class PatchEvaluator {
public:
    explicit PatchEvaluator(Controls controls) : m_controls(std::move(controls)) {}

    Vec3d operator()(std::uint32_t patch, const sds::CubicBasis<double>& u, const sds::CubicBasis<double>& v) {
        if (patch != m_last) {
            Vec3f narrow[16];
            m_controls(patch, narrow);
            std::transform(narrow, narrow + 16, m_patch, [](const Vec3f& p) { return Vec3d(p); });
            m_last = patch;
        }
        return sds::evaluate_patch(m_patch, u, v);
    }

private:
    Controls m_controls;
    std::uint32_t m_last = 0xFFFFFFFFu;
    Vec3d m_patch[16] = {};
};

/// The four points of every cell of the quads that `kept` has, none where `grid` has no points.
std::vector<std::uint32_t> cell_corners(const WeldedGrid& grid, const WeldedGrid& kept, std::uint32_t quads,
                                        unsigned int cells) {
    std::vector<std::uint32_t> corners;
    corners.reserve(4 * std::size_t{quads} * cells * cells);
    for (std::uint32_t q = 0; q < quads; ++q) {
        if (!kept.has_quad(q)) continue;
        for (unsigned int j = 0; j < cells; ++j)
            for (unsigned int i = 0; i < cells; ++i)
                for (const auto& [di, dj] : cell_corner_offsets)
                    corners.push_back(grid.has_quad(q) ? grid.point(q, i + di, j + dj) : unmapped_corner);
    }
    return corners;
}

/// The quads' vertices, none on quads without a surface.
CoreArray<unsigned int> surface_quads(const SdsMesh& mesh) {
    CoreArray<unsigned int> quads(mesh.get_base()->get_quad_indices());
    for (unsigned int q = 0; q < quads.get_count() / 4; ++q)
        if (!has_surface(mesh, q)) std::fill_n(&quads[4 * std::size_t{q}], 4, 0xFFFFFFFFu);
    return quads;
}

}  // namespace

WeldedGrid::WeldedGrid(const CoreBasicArray<unsigned int>& quad_indices,
                       const CoreBasicArray<unsigned int>& opposite_edges, unsigned int cells)
    : m_quad_indices(quad_indices), m_cells(cells) {
    const std::uint32_t half_edges = quad_indices.get_count();
    std::uint64_t count = 0;
    const auto take = [&count](std::uint64_t points) {
        const std::uint64_t first = count;
        count += points;
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(first, none));
    };

    m_interiors.assign(half_edges / 4, 0);
    for (std::uint32_t e = 0; e < half_edges; ++e)
        if (quad_indices[e] == none) m_interiors[e / 4] = none;

    for (std::uint32_t e = 0; e < half_edges; ++e) {
        if (!has_quad(e / 4)) continue;
        const std::uint32_t vertex = quad_indices[e];
        if (vertex >= m_corners.size()) m_corners.resize(vertex + 1, none);
        if (m_corners[vertex] == none) m_corners[vertex] = take(1);
    }

    m_owners.resize(half_edges);
    m_edges.assign(half_edges, none);
    const std::uint64_t inner = cells - 1;
    for (std::uint32_t e = 0; e < half_edges; ++e) {
        if (!has_quad(e / 4)) continue;
        const std::uint32_t opposite = opposite_edges[e];
        const bool is_shared =
            opposite != none && opposite < e && has_quad(opposite / 4) && quad_indices[opposite] != quad_indices[e];
        m_owners[e] = is_shared ? opposite : e;
        if (!is_shared) m_edges[e] = take(inner);
    }
    for (std::uint32_t& first : m_interiors)
        if (first != none) first = take(inner * inner);

    if (count >= none) throw std::length_error(std::to_string(count) + " vertices are more than a file can number");
    m_point_count = static_cast<std::uint32_t>(count);
}

std::uint32_t WeldedGrid::edge_point(std::uint32_t half_edge, unsigned int t) const {
    if (t == 0) return m_corners[m_quad_indices[half_edge]];
    if (t == m_cells) return m_corners[end_vertex(half_edge)];
    const std::uint32_t owner = m_owners[half_edge];
    return m_edges[owner] + (owner != half_edge ? m_cells - t : t) - 1;  // neighbors run the other way
}

std::uint32_t WeldedGrid::point(std::uint32_t quad, unsigned int i, unsigned int j) const {
    if (j == 0) return edge_point(4 * quad, i);
    if (i == m_cells) return edge_point(4 * quad + 1, j);
    if (j == m_cells) return edge_point(4 * quad + 2, m_cells - i);
    if (i == 0) return edge_point(4 * quad + 3, m_cells - j);
    return m_interiors[quad] + (j - 1) * (m_cells - 1) + (i - 1);
}

std::size_t tessellated_cell_size(const Surface& surface, unsigned int uv_map) {
    // A cell has four corners and, all in all, one point.
    constexpr std::size_t corners = 4 * sizeof(std::uint32_t), point = 3 * sizeof(float);
    const bool has_uvs = uv_map < surface.get_maps().get_uv_map_count();
    return sizeof(std::uint32_t) + (corners + point) * (has_uvs ? 2 : 1);
}

Tessellation tessellate(const Surface& surface, unsigned int level, double time, unsigned int uv_map,
                        AppProgressBar* progress) {
    const SdsMeshBase& base = surface.get_base();
    const std::uint32_t quads = base.get_primitive_count();
    const unsigned int cells = base.get_tessellation_sample_count(level) - 1;
    surface.check_time(time);
    const std::uint64_t faces = checked_count({quads, cells, cells}, 8 * sizeof(std::uint32_t));
    if (4 * faces >= unmapped_corner)
        throw std::length_error(std::to_string(faces) + " faces are more than a file can number");

    Tessellation out;
    std::vector<sds::CubicBasis<double>> bases;
    for (unsigned int i = 0; i <= cells; ++i) bases.emplace_back(static_cast<double>(i) / cells);
    const SdsMesh mesh = surface.make_mesh(0);
    const bool is_refined = surface.get_geometry().is_refined();
    const CoreArray<unsigned int> quad_indices = surface_quads(mesh);
    const WeldedGrid grid(quad_indices, base.get_edges().opposite_edges, cells);
    const SdsBezierMesh patches = surface.get_geometry().get_bezier_mesh_at(time);
    PatchEvaluator evaluate([&](std::uint32_t p, Vec3f* c) { patches.get_patch_controls(p, c); });
    const SdsMeshMaps& maps = surface.get_maps();
    const bool has_uvs = uv_map < maps.get_uv_map_count();
    const float weight = has_uvs ? 0.5f : 1.0f;
    const auto evaluate_position = [&](std::uint32_t q, unsigned int i, unsigned int j) {
        if (!is_refined) return evaluate(q, bases[i], bases[j]);
        const auto at = mesh.find_primitive(q, static_cast<double>(i) / cells, static_cast<double>(j) / cells);
        return evaluate(at.primitive, sds::CubicBasis<double>(at.u), sds::CubicBasis<double>(at.v));
    };
    out.positions = evaluate_points(grid, quads, cells, progress, weight, evaluate_position);
    out.polygon_indices = cell_corners(grid, grid, quads, cells);
    out.polygon_counts.assign(out.polygon_indices.size() / 4, 4);

    if (!has_uvs) return out;
    const SdsMeshMaps::SdsUvMap& map = maps.get_uv_map(uv_map);
    const WeldedGrid uv_grid(map.quad_indices, map.edges.opposite_edges, cells);
    PatchEvaluator evaluate_uv([&](std::uint32_t q, Vec3f* c) { maps.get_bezier_controls(uv_map, q, c); });
    const CtxShader shader;
    const CtxEval ctx(shader);
    const bool is_map_refined = maps.is_uv_map_refined(uv_map);
    const auto evaluate_map = [&](std::uint32_t q, unsigned int i, unsigned int j) {
        if (!is_map_refined) return evaluate_uv(q, bases[i], bases[j]);
        const GeometryFragment at{q, static_cast<double>(i) / cells, static_cast<double>(j) / cells, 0.0, 0.0};
        Vec3d uvw, du, dv;
        maps.compute_fragment_uvw(ctx, at, uv_map, uvw, du, dv);
        return uvw;
    };
    out.uv_points = evaluate_points(uv_grid, quads, cells, progress, weight, evaluate_map);
    out.uv_indices = cell_corners(uv_grid, grid, quads, cells);
    return out;
}

}  // namespace sds_model

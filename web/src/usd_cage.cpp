#include "web/src/usd_cage.h"

#include "model/array_view.h"
#include "model/creases.h"
#include "qn_poly/poly_check.h"

#include <algorithm>

namespace sds_page {

namespace {

using namespace sds_model;
using namespace sds_usda;

/// What becomes one cage, while it is put together.
class CageMaker {
public:
    CageMaker(const UsdScene& scene, bool is_refined, Findings& findings)
        : m_scene(scene), m_is_refined(is_refined), m_findings(findings) {}

    std::optional<ControlCage> make();

private:
    void add_mesh(const UsdMesh& mesh);
    void add_points(const UsdMesh& mesh);
    void add_polygons(const UsdMesh& mesh);
    void add_tags(const UsdMesh& mesh);
    void add_uvs(const UsdMesh& mesh);
    bool check();
    void settle_tags();

    FirstCase in_mesh(const std::string& detail) const { return {prim_path(m_scene, m_node), detail, {}}; }

    const UsdScene& m_scene;
    bool m_is_refined;
    Findings& m_findings;
    ControlCage m_cage;
    std::vector<CreaseEdge> m_creases;
    std::vector<SharpCorner> m_corners;
    std::uint64_t m_holes = 0;
    std::uint32_t m_node = 0;
    // of the mesh at hand: its first vertex and polygon, and what became of its faces
    std::uint32_t m_first_vertex = 0;
    std::vector<std::uint32_t> m_polygons;
    std::vector<std::uint32_t> m_source_corners;  // per face-corner added
};

constexpr std::uint32_t dropped = 0xFFFFFFFFu;

void CageMaker::add_points(const UsdMesh& mesh) {
    const double time = m_scene.start_time_code.value_or(0.0);
    const Matrix4 m = world_matrix(m_scene, mesh.node, time);
    const std::span<const float> points = mesh.points.sample(0);
    for (std::size_t i = 0; i + 2 < points.size(); i += 3)
        for (std::size_t c = 0; c < 3; ++c)
            m_cage.positions.push_back(static_cast<float>(double{points[i]} * m[c] + double{points[i + 1]} * m[4 + c] +
                                                          double{points[i + 2]} * m[8 + c] + m[12 + c]));
}

void CageMaker::add_polygons(const UsdMesh& mesh) {
    const auto group = static_cast<std::uint32_t>(m_cage.group_names.size());
    m_cage.group_names.push_back(m_scene.nodes[mesh.node].name);
    m_polygons.assign(mesh.counts.size(), dropped);
    m_source_corners.clear();
    std::uint32_t first = 0;
    for (std::size_t f = 0; f < mesh.counts.size(); first += mesh.counts[f++]) {
        const std::uint32_t count = mesh.counts[f];
        if (count < 3) {
            m_findings.record(FindingCode::two_corner_polygon,
                              [&] { return in_mesh("face " + std::to_string(f) + ", 0-based"); });
            continue;
        }
        m_polygons[f] = static_cast<std::uint32_t>(m_cage.polygon_counts.size());
        m_cage.polygon_counts.push_back(count);
        m_cage.polygon_groups.push_back(group);
        // Faces that wind the other way are turned over, so that normals point out.
        for (std::uint32_t k = 0; k < count; ++k) {
            const std::uint32_t corner = first + (mesh.is_left_handed ? count - 1 - k : k);
            m_cage.polygon_indices.push_back(m_first_vertex + mesh.indices[corner]);
            m_source_corners.push_back(corner);
        }
    }
}

void CageMaker::add_tags(const UsdMesh& mesh) {
    std::size_t at = 0, edge = 0;
    const bool is_per_chain = mesh.crease_sharpnesses.size() == mesh.crease_lengths.size();
    for (std::size_t chain = 0; chain < mesh.crease_lengths.size(); at += mesh.crease_lengths[chain++])
        for (std::size_t k = 0; k + 1 < mesh.crease_lengths[chain]; ++k, ++edge) {
            const std::size_t entry = is_per_chain ? chain : edge;
            if (entry < mesh.crease_sharpnesses.size())
                m_creases.push_back({m_first_vertex + mesh.crease_indices[at + k],
                                     m_first_vertex + mesh.crease_indices[at + k + 1], mesh.crease_sharpnesses[entry]});
        }
    for (std::size_t i = 0; i < mesh.corner_indices.size() && i < mesh.corner_sharpnesses.size(); ++i)
        m_corners.push_back({m_first_vertex + mesh.corner_indices[i], mesh.corner_sharpnesses[i]});
    for (const std::uint32_t face : mesh.hole_indices) {
        if (m_polygons[face] == dropped) continue;
        ++m_holes;
        if (!m_is_refined) continue;
        m_cage.holes.resize(m_cage.get_polygon_count(), 0);
        m_cage.holes[m_polygons[face]] = 1;
    }
}

const UsdPrimvar* find_uvs(const UsdMesh& mesh) {
    const auto is_pair = [](const UsdPrimvar& primvar) {
        const auto* const values = std::get_if<Timed<float>>(&primvar.values);
        return primvar.components == 2 && primvar.element_size == 1 && values != nullptr && !values->is_empty() &&
               (primvar.interpolation == Interpolation::face_varying ||
                primvar.interpolation == Interpolation::vertex || primvar.interpolation == Interpolation::varying);
    };
    const auto named = std::find_if(mesh.primvars.begin(), mesh.primvars.end(),
                                    [&](const UsdPrimvar& p) { return p.name == "st" && is_pair(p); });
    if (named != mesh.primvars.end()) return &*named;
    const auto any = std::find_if(mesh.primvars.begin(), mesh.primvars.end(), [&](const UsdPrimvar& p) {
        return is_pair(p) && p.type_name.starts_with("texCoord2");
    });
    return any == mesh.primvars.end() ? nullptr : &*any;
}

void CageMaker::add_uvs(const UsdMesh& mesh) {
    const UsdPrimvar* const primvar = find_uvs(mesh);
    const std::size_t before = m_cage.get_corner_count() - m_source_corners.size();
    if (primvar == nullptr) {
        if (m_cage.has_uvs()) m_cage.uv_indices.resize(m_cage.get_corner_count(), unmapped_corner);
        return;
    }
    m_cage.uv_indices.resize(before, unmapped_corner);
    const auto first_point = static_cast<std::uint32_t>(m_cage.get_uv_count());
    const std::span<const float> values = std::get<Timed<float>>(primvar->values).sample(0);
    for (std::size_t i = 0; i + 1 < values.size(); i += 2)
        m_cage.uv_points.insert(m_cage.uv_points.end(), {values[i], values[i + 1], 0.0f});
    const bool is_per_corner = primvar->interpolation == Interpolation::face_varying;
    for (const std::uint32_t corner : m_source_corners) {
        const std::uint32_t place = is_per_corner ? corner : mesh.indices[corner];
        m_cage.uv_indices.push_back(first_point +
                                    (primvar->indices.is_empty() ? place : primvar->indices.sample(0)[place]));
    }
}

void CageMaker::add_mesh(const UsdMesh& mesh) {
    m_node = mesh.node;
    m_first_vertex = static_cast<std::uint32_t>(m_cage.get_vertex_count());
    if (m_cage.group_names.empty()) {
        constexpr CageRules::Borders borders[] = {CageRules::Borders::none, CageRules::Borders::edges,
                                                  CageRules::Borders::edges_and_corners};
        m_cage.rules.borders = borders[static_cast<std::size_t>(mesh.interpolate_boundary)];
        m_cage.rules.smooth_triangles = mesh.triangle_rule == TriangleRule::smooth;
    }
    add_points(mesh);
    add_polygons(mesh);
    add_tags(mesh);
    add_uvs(mesh);
}

bool CageMaker::check() {
    PolyFindings found;
    const auto counts = view_of(m_cage.polygon_counts), indices = view_of(m_cage.polygon_indices);
    const auto vertices = static_cast<std::uint32_t>(m_cage.get_vertex_count());
    if (m_cage.polygon_counts.empty()) found.record(PolyFindingCode::no_polygons, {});
    poly_check_vectors(points_view(m_cage.positions), vertices, PolyArray::positions, found);
    if (!m_cage.polygon_counts.empty() && poly_check_polygons(vertices, counts, indices, found))
        poly_check_edges(vertices, counts, indices, found);
    if (m_cage.has_uvs()) poly_check_uvs(points_view(m_cage.uv_points), view_of(m_cage.uv_indices), counts, found);
    add_mesh_findings(found, m_findings, [this](PolyFindingCode, const PolyPlace& place) {
        const bool has_polygon = place.polygon < m_cage.polygon_groups.size();
        return FirstCase{has_polygon ? m_cage.group_names[m_cage.polygon_groups[place.polygon]] : "",
                         has_polygon ? "polygon " + std::to_string(place.polygon) + ", 0-based" : "",
                         {}};
    });
    return !m_findings.has_errors();
}

void CageMaker::settle_tags() {
    const auto describe = [](FindingCode, std::size_t) { return FirstCase{}; };
    PolyEdgeBuckets edges(m_cage.polygon_indices.data(), view_of(m_cage.polygon_counts),
                          static_cast<unsigned int>(m_cage.get_vertex_count()));
    edges.sort();
    const auto fractional = m_is_refined ? FractionalSharpness::exact : FractionalSharpness::harden;
    SettledCreases settled =
        settle_creases(edges, m_cage.get_corner_count(), m_creases, fractional, m_findings, describe);
    m_cage.corner_creases = std::move(settled.flags);
    m_cage.corner_sharpness = std::move(settled.sharpness);
    if (m_is_refined)
        m_cage.vertex_sharpness =
            settle_corners(m_cage.get_vertex_count(), m_corners, fractional, m_findings, describe);
    else
        m_findings.record(
            FindingCode::unkept_corner, [] { return FirstCase{}; }, m_corners.size());
    if (!m_is_refined)
        m_findings.record(
            FindingCode::unkept_hole, [] { return FirstCase{}; }, m_holes);
}

std::optional<ControlCage> CageMaker::make() {
    for (const UsdMesh& mesh : m_scene.meshes) {
        const UsdNode& node = m_scene.nodes[mesh.node];
        const bool is_shown = node.purpose == Purpose::default_ || node.purpose == Purpose::render;
        if (is_shown && !mesh.points.is_empty() &&
            is_visible(m_scene, mesh.node, m_scene.start_time_code.value_or(0.0)))
            add_mesh(mesh);
    }
    if (!m_cage.holes.empty()) m_cage.holes.resize(m_cage.get_polygon_count(), 0);
    if (!check()) return std::nullopt;
    settle_tags();
    if (m_findings.has_errors()) return std::nullopt;
    return std::move(m_cage);
}

}  // namespace

std::optional<ControlCage> make_cage(const UsdScene& scene, bool is_refined, Findings& findings) {
    return CageMaker(scene, is_refined, findings).make();
}

}  // namespace sds_page

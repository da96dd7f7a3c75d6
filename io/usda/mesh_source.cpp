#include "io/usda/mesh_source.h"

#include "model/array_view.h"
#include "qn_poly/poly_check.h"
#include "qn_poly/poly_edge_buckets.h"

#include <algorithm>
#include <numeric>

namespace sds_usda {

namespace {

using sds_model::ControlCage;
using sds_model::FindingCode;
using sds_model::Findings;
using sds_model::FirstCase;
using sds_model::view_of;

class SourceMaker {
public:
    SourceMaker(const UsdMesh& mesh, const std::string& place, const UsdFrame& frame, const UsdMeshOptions& options,
                sds_model::MeshSource& out, Findings& findings)
        : m_mesh(mesh), m_place(place), m_frame(frame), m_options(options), m_out(out), m_findings(findings) {}

    void make();

private:
    FirstCase at(std::string detail) const { return {m_place, detail + " of '" + m_out.name + "'", {}}; }
    void map_faces();
    void check_polygons();
    void check_vectors(const std::vector<float>& vectors, PolyArray array, const char* what);
    void set_motion();
    std::vector<float> points_at(double time, bool extrapolates) const;
    void set_groups();
    void set_creases();
    void set_corners_and_holes();
    void set_rules();

    const UsdMesh& m_mesh;
    const std::string& m_place;
    const UsdFrame& m_frame;
    const UsdMeshOptions& m_options;
    sds_model::MeshSource& m_out;
    Findings& m_findings;
    FaceMap m_map;
};

void SourceMaker::map_faces() {
    ControlCage& cage = m_out.cage;
    std::uint32_t first = 0;
    for (std::uint32_t f = 0; f < m_mesh.counts.size(); ++f) {
        const std::uint32_t count = m_mesh.counts[f];
        if (count < 3) {
            m_findings.record(FindingCode::two_corner_polygon, [&] {
                return at("face " + std::to_string(f) + ", " + std::to_string(count) + " corners,");
            });
        } else {
            m_map.faces.push_back(f);
            for (std::uint32_t k = 0; k < count; ++k)
                m_map.corners.push_back(first + (m_mesh.is_left_handed && k != 0 ? count - k : k));
            cage.polygon_counts.push_back(count);
        }
        first += count;
    }
    cage.polygon_indices.resize(m_map.corners.size());
    for (std::size_t c = 0; c < m_map.corners.size(); ++c) cage.polygon_indices[c] = m_mesh.indices[m_map.corners[c]];
}

void SourceMaker::check_polygons() {
    const ControlCage& cage = m_out.cage;
    const auto counts = view_of(cage.polygon_counts), indices = view_of(cage.polygon_indices);
    const auto vertices = static_cast<unsigned int>(cage.get_vertex_count());
    PolyFindings found;
    if (poly_check_polygons(vertices, counts, indices, found)) poly_check_edges(vertices, counts, indices, found);
    sds_model::add_mesh_findings(found, m_findings, [&](PolyFindingCode code, const PolyPlace& place) {
        if (code == PolyFindingCode::no_polygons) return FirstCase{m_place, "'" + m_out.name + "'", {}};
        const bool has_face = place.polygon != 0xFFFFFFFF;
        return at(has_face ? "face " + std::to_string(m_map.faces[place.polygon])
                           : "point " + std::to_string(place.item));
    });
}

void SourceMaker::check_vectors(const std::vector<float>& vectors, PolyArray array, const char* what) {
    PolyFindings found;
    poly_check_vectors(sds_model::points_view(vectors), static_cast<unsigned int>(vectors.size() / 3), array, found);
    sds_model::add_mesh_findings(found, m_findings, [&](PolyFindingCode, const PolyPlace& place) {
        return at(what + std::to_string(place.item));
    });
}

/// Along the velocities of the frame's sample where there are any, else straight between samples.
std::vector<float> SourceMaker::points_at(double time, bool extrapolates) const {
    const Timed<float>& points = m_mesh.points;
    const auto [base, share] = find_sample(points.times, extrapolates ? m_frame.time : time);
    const std::span<const float> from = points.sample(base);
    std::vector<float> out(from.begin(), from.end());
    if (extrapolates) {
        const double origin = points.times.empty() ? m_frame.time : points.times[base];
        const double seconds = (time - origin) / m_frame.codes_per_second;
        const auto add = [&](const Timed<float>& rates, double factor) {
            if (rates.is_empty()) return;
            const std::span<const float> rate = rates.sample(find_sample(rates.times, m_frame.time).sample);
            for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<float>(out[i] + factor * rate[i]);
        };
        add(m_mesh.velocities, seconds);
        add(m_mesh.accelerations, 0.5 * seconds * seconds);
    } else if (share > 0.0) {
        const std::span<const float> to = points.sample(base + 1);
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = static_cast<float>((1.0 - share) * from[i] + share * to[i]);
    }
    return out;
}

void SourceMaker::set_motion() {
    const bool has_velocities = !m_mesh.velocities.is_empty();
    m_out.cage.positions = points_at(m_frame.time, has_velocities);
    check_vectors(m_out.cage.positions, PolyArray::positions, "point ");
    const bool is_moving = has_velocities || m_mesh.points.get_sample_count() > 1;
    if (m_frame.is_moment() || !is_moving) return;
    std::vector<double> codes{m_frame.time};
    if (!has_velocities) codes.insert(codes.end(), m_mesh.points.times.begin(), m_mesh.points.times.end());
    constexpr int steps = 8;  // of a curved way
    for (int i = 1; i < steps && !m_mesh.accelerations.is_empty(); ++i)
        codes.push_back(m_frame.time + m_frame.open + (m_frame.close - m_frame.open) * i / steps);
    m_out.motion.times = span_times(m_frame, codes);
    for (const double time : m_out.motion.times) {
        m_out.motion.samples.push_back(points_at(m_frame.time + time, has_velocities));
        check_vectors(m_out.motion.samples.back(), PolyArray::motion, "motion of point ");
    }
}

/// Of the subsets that materials are bound to where there are any, else of all. A face belongs to the first that has
/// it, one that none has to "default".
void SourceMaker::set_groups() {
    constexpr std::uint32_t none = 0xFFFFFFFFu;
    const auto is_bound = [](const UsdSubset& subset) { return subset.family == "materialBind"; };
    const bool has_bound = std::any_of(m_mesh.subsets.begin(), m_mesh.subsets.end(), is_bound);
    std::vector<std::uint32_t> subset_of(m_mesh.counts.size(), none);
    for (std::uint32_t s = 0; s < m_mesh.subsets.size(); ++s) {
        if (has_bound && !is_bound(m_mesh.subsets[s])) continue;
        for (const std::uint32_t face : m_mesh.subsets[s].faces)
            if (subset_of[face] == none) subset_of[face] = s;
    }
    ControlCage& cage = m_out.cage;
    std::vector<std::uint32_t> group_of(m_mesh.subsets.size() + 1, none);
    for (const std::uint32_t face : m_map.faces) {
        const std::size_t subset = std::min<std::size_t>(subset_of[face], m_mesh.subsets.size());
        if (group_of[subset] == none) {
            group_of[subset] = static_cast<std::uint32_t>(cage.group_names.size());
            cage.group_names.push_back(subset < m_mesh.subsets.size() ? m_mesh.subsets[subset].name : "default");
        }
        cage.polygon_groups.push_back(group_of[subset]);
    }
    if (cage.group_names.empty()) cage.group_names.push_back("default");
}

void SourceMaker::set_creases() {
    if (m_mesh.crease_lengths.empty()) {
        m_out.cage.corner_creases.assign(m_map.corners.size(), 0);
        return;
    }
    std::vector<sds_model::CreaseEdge> creases;
    const bool is_per_edge = m_mesh.crease_sharpnesses.size() != m_mesh.crease_lengths.size();
    std::size_t point = 0, edge = 0;
    for (std::size_t c = 0; c < m_mesh.crease_lengths.size(); ++c) {
        for (std::uint32_t k = 1; k < m_mesh.crease_lengths[c]; ++k, ++point, ++edge)
            creases.push_back({m_mesh.crease_indices[point], m_mesh.crease_indices[point + 1],
                               m_mesh.crease_sharpnesses[is_per_edge ? edge : c]});
        ++point;
    }
    const ControlCage& cage = m_out.cage;
    PolyEdgeBuckets edges(cage.polygon_indices.data(), view_of(cage.polygon_counts),
                          static_cast<unsigned int>(cage.get_vertex_count()));
    edges.sort();
    // An edge that is not there is no reason to refuse a mesh that others take.
    std::erase_if(creases, [&](const sds_model::CreaseEdge& crease) {
        const bool is_lost = edges.find(crease.a, crease.b).empty();
        if (is_lost)
            m_findings.record(FindingCode::lost_crease, [&] {
                return at("points " + std::to_string(crease.a) + " and " + std::to_string(crease.b));
            });
        return is_lost;
    });
    const auto fractional = m_options.is_refined || m_options.fractional != sds_model::FractionalSharpness::exact
                                ? m_options.fractional
                                : sds_model::FractionalSharpness::harden;
    sds_model::SettledCreases settled = sds_model::settle_creases(
        edges, cage.get_corner_count(), creases, fractional, m_findings, [&](FindingCode, std::size_t entry) {
            return at("crease between points " + std::to_string(creases[entry].a) + " and " +
                      std::to_string(creases[entry].b));
        });
    m_out.cage.corner_creases = std::move(settled.flags);
    m_out.cage.corner_sharpness = std::move(settled.sharpness);
}

void SourceMaker::set_corners_and_holes() {
    ControlCage& cage = m_out.cage;
    if (!m_options.is_refined) {
        for (std::size_t i = 0; i < m_mesh.corner_indices.size(); ++i)
            if (m_mesh.corner_sharpnesses[i] > 0.0f)
                m_findings.record(FindingCode::unkept_corner,
                                  [&] { return at("point " + std::to_string(m_mesh.corner_indices[i])); });
        m_findings.record(
            FindingCode::unkept_hole, [&] { return at("face " + std::to_string(m_mesh.hole_indices[0])); },
            m_mesh.hole_indices.size());
        return;
    }
    std::vector<sds_model::SharpCorner> corners;
    for (std::size_t i = 0; i < m_mesh.corner_indices.size(); ++i)
        corners.push_back({m_mesh.corner_indices[i], m_mesh.corner_sharpnesses[i]});
    cage.vertex_sharpness = sds_model::settle_corners(
        cage.get_vertex_count(), corners, m_options.fractional, m_findings,
        [&](FindingCode, std::size_t entry) { return at("point " + std::to_string(corners[entry].vertex)); });
    if (m_mesh.hole_indices.empty()) return;
    std::vector<std::uint8_t> is_hole(m_mesh.counts.size(), 0);
    for (const std::uint32_t face : m_mesh.hole_indices) is_hole[face] = 1;
    for (const std::uint32_t face : m_map.faces) cage.holes.push_back(is_hole[face]);
}

void SourceMaker::set_rules() {
    using Borders = sds_model::CageRules::Borders;
    using Rule = sds_model::CageRules::FaceVarying;
    sds_model::CageRules& rules = m_out.cage.rules;
    rules.is_linear = m_mesh.scheme != SubdivisionScheme::catmull_clark;
    constexpr Borders borders[] = {Borders::none, Borders::edges, Borders::edges_and_corners};
    rules.borders = borders[static_cast<std::size_t>(m_mesh.interpolate_boundary)];
    constexpr Rule uvs[] = {Rule::none,          Rule::corners_only, Rule::corners_plus1,
                            Rule::corners_plus2, Rule::boundaries,   Rule::all};
    rules.face_varying = uvs[static_cast<std::size_t>(m_mesh.face_varying_linear)];
    rules.smooth_triangles = m_mesh.triangle_rule == TriangleRule::smooth;
    if (m_options.is_refined || rules.is_linear) return;
    if (rules.borders == Borders::none) {
        m_findings.record(FindingCode::unkept_rule, [&] { return at("interpolateBoundary none"); });
        rules.borders = Borders::edges_and_corners;
    }
    if (rules.smooth_triangles)
        m_findings.record(FindingCode::unkept_rule, [&] { return at("triangleSubdivisionRule smooth"); });
}

void SourceMaker::make() {
    map_faces();
    set_motion();
    check_polygons();
    if (m_findings.has_errors()) return;
    set_groups();
    set_creases();
    set_corners_and_holes();
    set_rules();
    add_primvars(m_mesh, m_map, m_frame, m_options, m_place, m_out, m_findings);
}

}  // namespace

std::vector<double> span_times(const UsdFrame& frame, const std::vector<double>& codes) {
    std::vector<double> times{frame.open, frame.close};
    for (const double code : codes)
        if (const double time = code - frame.time; time > frame.open && time < frame.close) times.push_back(time);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
}

sds_model::MeshSource make_mesh_source(const UsdMesh& mesh, const std::string& path, const std::string& place,
                                       const UsdFrame& frame, const UsdMeshOptions& options, Findings& findings) {
    sds_model::MeshSource out;
    out.name = path;
    SourceMaker(mesh, place, frame, options, out, findings).make();
    return out;
}

}  // namespace sds_usda

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
        : mesh_(mesh), place_(place), frame_(frame), options_(options), out_(out), findings_(findings) {}

    void make();

private:
    FirstCase at(std::string detail) const { return {place_, detail + " of '" + out_.name + "'", {}}; }
    void map_faces();
    void check_polygons();
    void check_vectors(const std::vector<float>& vectors, PolyArray array, const char* what);
    void set_motion();
    std::vector<float> points_at(double time, bool extrapolates) const;
    void set_groups();
    void set_creases();
    void set_corners_and_holes();
    void set_rules();

    const UsdMesh& mesh_;
    const std::string& place_;
    const UsdFrame& frame_;
    const UsdMeshOptions& options_;
    sds_model::MeshSource& out_;
    Findings& findings_;
    FaceMap map_;
};

void SourceMaker::map_faces() {
    ControlCage& cage = out_.cage;
    std::uint32_t first = 0;
    for (std::uint32_t f = 0; f < mesh_.counts.size(); ++f) {
        const std::uint32_t count = mesh_.counts[f];
        if (count < 3) {
            findings_.record(FindingCode::two_corner_polygon, [&] {
                return at("face " + std::to_string(f) + ", " + std::to_string(count) + " corners,");
            });
        } else {
            map_.faces.push_back(f);
            for (std::uint32_t k = 0; k < count; ++k)
                map_.corners.push_back(first + (mesh_.is_left_handed && k != 0 ? count - k : k));
            cage.polygon_counts.push_back(count);
        }
        first += count;
    }
    cage.polygon_indices.resize(map_.corners.size());
    for (std::size_t c = 0; c < map_.corners.size(); ++c) cage.polygon_indices[c] = mesh_.indices[map_.corners[c]];
}

void SourceMaker::check_polygons() {
    const ControlCage& cage = out_.cage;
    const auto counts = view_of(cage.polygon_counts), indices = view_of(cage.polygon_indices);
    const auto vertices = static_cast<unsigned int>(cage.get_vertex_count());
    PolyFindings found;
    if (poly_check_polygons(vertices, counts, indices, found)) poly_check_edges(vertices, counts, indices, found);
    sds_model::add_mesh_findings(found, findings_, [&](PolyFindingCode code, const PolyPlace& place) {
        if (code == PolyFindingCode::no_polygons) return FirstCase{place_, "'" + out_.name + "'", {}};
        const bool has_face = place.polygon != 0xFFFFFFFF;
        return at(has_face ? "face " + std::to_string(map_.faces[place.polygon])
                           : "point " + std::to_string(place.item));
    });
}

void SourceMaker::check_vectors(const std::vector<float>& vectors, PolyArray array, const char* what) {
    PolyFindings found;
    poly_check_vectors(sds_model::points_view(vectors), static_cast<unsigned int>(vectors.size() / 3), array, found);
    sds_model::add_mesh_findings(found, findings_, [&](PolyFindingCode, const PolyPlace& place) {
        return at(what + std::to_string(place.item));
    });
}

/// Along the velocities of the frame's sample where there are any, else straight between samples.
std::vector<float> SourceMaker::points_at(double time, bool extrapolates) const {
    const Timed<float>& points = mesh_.points;
    const auto [base, share] = find_sample(points.times, extrapolates ? frame_.time : time);
    const std::span<const float> from = points.sample(base);
    std::vector<float> out(from.begin(), from.end());
    if (extrapolates) {
        const double origin = points.times.empty() ? frame_.time : points.times[base];
        const double seconds = (time - origin) / frame_.codes_per_second;
        const auto add = [&](const Timed<float>& rates, double factor) {
            if (rates.is_empty()) return;
            const std::span<const float> rate = rates.sample(find_sample(rates.times, frame_.time).sample);
            for (std::size_t i = 0; i < out.size(); ++i) out[i] = static_cast<float>(out[i] + factor * rate[i]);
        };
        add(mesh_.velocities, seconds);
        add(mesh_.accelerations, 0.5 * seconds * seconds);
    } else if (share > 0.0) {
        const std::span<const float> to = points.sample(base + 1);
        for (std::size_t i = 0; i < out.size(); ++i)
            out[i] = static_cast<float>((1.0 - share) * from[i] + share * to[i]);
    }
    return out;
}

void SourceMaker::set_motion() {
    const bool has_velocities = !mesh_.velocities.is_empty();
    out_.cage.positions = points_at(frame_.time, has_velocities);
    check_vectors(out_.cage.positions, PolyArray::positions, "point ");
    const bool is_moving = has_velocities || mesh_.points.sample_count() > 1;
    if (frame_.is_moment() || !is_moving) return;
    std::vector<double> codes{frame_.time};
    if (!has_velocities) codes.insert(codes.end(), mesh_.points.times.begin(), mesh_.points.times.end());
    constexpr int steps = 8;  // of a curved way
    for (int i = 1; i < steps && !mesh_.accelerations.is_empty(); ++i)
        codes.push_back(frame_.time + frame_.open + (frame_.close - frame_.open) * i / steps);
    out_.motion.times = span_times(frame_, codes);
    for (const double time : out_.motion.times) {
        out_.motion.samples.push_back(points_at(frame_.time + time, has_velocities));
        check_vectors(out_.motion.samples.back(), PolyArray::motion, "motion of point ");
    }
}

/// Of the subsets that materials are bound to where there are any, else of all. A face belongs to the first that has
/// it, one that none has to "default".
void SourceMaker::set_groups() {
    constexpr std::uint32_t none = 0xFFFFFFFFu;
    const auto is_bound = [](const UsdSubset& subset) { return subset.family == "materialBind"; };
    const bool has_bound = std::any_of(mesh_.subsets.begin(), mesh_.subsets.end(), is_bound);
    std::vector<std::uint32_t> subset_of(mesh_.counts.size(), none);
    for (std::uint32_t s = 0; s < mesh_.subsets.size(); ++s) {
        if (has_bound && !is_bound(mesh_.subsets[s])) continue;
        for (const std::uint32_t face : mesh_.subsets[s].faces)
            if (subset_of[face] == none) subset_of[face] = s;
    }
    ControlCage& cage = out_.cage;
    std::vector<std::uint32_t> group_of(mesh_.subsets.size() + 1, none);
    for (const std::uint32_t face : map_.faces) {
        const std::size_t subset = std::min<std::size_t>(subset_of[face], mesh_.subsets.size());
        if (group_of[subset] == none) {
            group_of[subset] = static_cast<std::uint32_t>(cage.group_names.size());
            cage.group_names.push_back(subset < mesh_.subsets.size() ? mesh_.subsets[subset].name : "default");
        }
        cage.polygon_groups.push_back(group_of[subset]);
    }
    if (cage.group_names.empty()) cage.group_names.push_back("default");
}

void SourceMaker::set_creases() {
    if (mesh_.crease_lengths.empty()) {
        out_.cage.corner_creases.assign(map_.corners.size(), 0);
        return;
    }
    std::vector<sds_model::CreaseEdge> creases;
    const bool is_per_edge = mesh_.crease_sharpnesses.size() != mesh_.crease_lengths.size();
    std::size_t point = 0, edge = 0;
    for (std::size_t c = 0; c < mesh_.crease_lengths.size(); ++c) {
        for (std::uint32_t k = 1; k < mesh_.crease_lengths[c]; ++k, ++point, ++edge)
            creases.push_back({mesh_.crease_indices[point], mesh_.crease_indices[point + 1],
                               mesh_.crease_sharpnesses[is_per_edge ? edge : c]});
        ++point;
    }
    const ControlCage& cage = out_.cage;
    PolyEdgeBuckets edges(cage.polygon_indices.data(), view_of(cage.polygon_counts),
                          static_cast<unsigned int>(cage.get_vertex_count()));
    edges.sort();
    // An edge that is not there is no reason to refuse a mesh that others take.
    std::erase_if(creases, [&](const sds_model::CreaseEdge& crease) {
        const bool is_lost = edges.find(crease.a, crease.b).empty();
        if (is_lost)
            findings_.record(FindingCode::lost_crease, [&] {
                return at("points " + std::to_string(crease.a) + " and " + std::to_string(crease.b));
            });
        return is_lost;
    });
    const auto fractional = options_.is_refined || options_.fractional != sds_model::FractionalSharpness::exact
                                ? options_.fractional
                                : sds_model::FractionalSharpness::harden;
    sds_model::SettledCreases settled = sds_model::settle_creases(
        edges, cage.get_corner_count(), creases, fractional, findings_, [&](FindingCode, std::size_t entry) {
            return at("crease between points " + std::to_string(creases[entry].a) + " and " +
                      std::to_string(creases[entry].b));
        });
    out_.cage.corner_creases = std::move(settled.flags);
    out_.cage.corner_sharpness = std::move(settled.sharpness);
}

void SourceMaker::set_corners_and_holes() {
    ControlCage& cage = out_.cage;
    if (!options_.is_refined) {
        for (std::size_t i = 0; i < mesh_.corner_indices.size(); ++i)
            if (mesh_.corner_sharpnesses[i] > 0.0f)
                findings_.record(FindingCode::unkept_corner,
                                 [&] { return at("point " + std::to_string(mesh_.corner_indices[i])); });
        findings_.record(
            FindingCode::unkept_hole, [&] { return at("face " + std::to_string(mesh_.hole_indices[0])); },
            mesh_.hole_indices.size());
        return;
    }
    std::vector<sds_model::SharpCorner> corners;
    for (std::size_t i = 0; i < mesh_.corner_indices.size(); ++i)
        corners.push_back({mesh_.corner_indices[i], mesh_.corner_sharpnesses[i]});
    cage.vertex_sharpness = sds_model::settle_corners(
        cage.get_vertex_count(), corners, options_.fractional, findings_,
        [&](FindingCode, std::size_t entry) { return at("point " + std::to_string(corners[entry].vertex)); });
    if (mesh_.hole_indices.empty()) return;
    std::vector<std::uint8_t> is_hole(mesh_.counts.size(), 0);
    for (const std::uint32_t face : mesh_.hole_indices) is_hole[face] = 1;
    for (const std::uint32_t face : map_.faces) cage.holes.push_back(is_hole[face]);
}

void SourceMaker::set_rules() {
    using Borders = sds_model::CageRules::Borders;
    using Rule = sds_model::CageRules::FaceVarying;
    sds_model::CageRules& rules = out_.cage.rules;
    rules.is_linear = mesh_.scheme != SubdivisionScheme::catmull_clark;
    constexpr Borders borders[] = {Borders::none, Borders::edges, Borders::edges_and_corners};
    rules.borders = borders[static_cast<std::size_t>(mesh_.interpolate_boundary)];
    constexpr Rule uvs[] = {Rule::none,          Rule::corners_only, Rule::corners_plus1,
                            Rule::corners_plus2, Rule::boundaries,   Rule::all};
    rules.face_varying = uvs[static_cast<std::size_t>(mesh_.face_varying_linear)];
    rules.smooth_triangles = mesh_.triangle_rule == TriangleRule::smooth;
    if (options_.is_refined || rules.is_linear) return;
    if (rules.borders == Borders::none) {
        findings_.record(FindingCode::unkept_rule, [&] { return at("interpolateBoundary none"); });
        rules.borders = Borders::edges_and_corners;
    }
    if (rules.smooth_triangles)
        findings_.record(FindingCode::unkept_rule, [&] { return at("triangleSubdivisionRule smooth"); });
}

void SourceMaker::make() {
    map_faces();
    set_motion();
    check_polygons();
    if (findings_.has_errors()) return;
    set_groups();
    set_creases();
    set_corners_and_holes();
    set_rules();
    add_primvars(mesh_, map_, frame_, options_, place_, out_, findings_);
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

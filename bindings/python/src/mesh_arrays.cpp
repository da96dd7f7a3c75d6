#include "mesh_arrays.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "model/array_view.h"
#include "model/finding.h"
#include "qn_poly/poly_check.h"
#include "qn_poly/poly_edge_buckets.h"

namespace sds_python {

namespace {

using sds_model::FindingCode;
using sds_model::Findings;
using sds_model::FirstCase;

/// As the caller wrote it: indices below zero arrive wrapped around.
std::string index_of(std::uint32_t index, std::size_t count) {
    const std::string text =
        index > 0x7FFFFFFFu ? std::to_string(static_cast<std::int32_t>(index)) : std::to_string(index);
    return "index " + text + " of " + std::to_string(count);
}

std::string corner_place(std::size_t face, std::size_t corner) {
    return "face " + std::to_string(face) + ", corner " + std::to_string(corner);
}

std::string crease_place(std::size_t entry) { return "crease edge " + std::to_string(entry); }

std::string corner_entry_place(std::size_t entry) { return "sharp corner " + std::to_string(entry); }

std::string hole_place(std::size_t entry) { return "hole " + std::to_string(entry); }

std::uint32_t first_corner(std::span<const std::uint32_t> face_counts, std::uint32_t face) {
    return std::accumulate(face_counts.begin(), face_counts.begin() + face, std::uint32_t{0});
}

/// Adds what the host's checker found in an array of vectors; `what` names one of them.
void add_vector_findings(const PolyFindings& found, std::span<const float> values, const std::string& what,
                         Findings& findings) {
    sds_model::add_mesh_findings(found, findings, [&](PolyFindingCode, const PolyPlace& place) {
        std::uint32_t axis = 0;
        while (axis < 2 && std::fabs(values[3 * place.item + axis]) <= poly_max_coordinate) ++axis;
        return FirstCase{what + " " + std::to_string(place.item), std::string(1, "xyz"[axis]), {}};
    });
}

/// Where the host's checker found something in the faces.
FirstCase describe_face(const MeshArrays& mesh, PolyFindingCode code, const PolyPlace& place) {
    const std::string face = "face " + std::to_string(place.polygon);
    const auto count = [&] { return mesh.face_counts[place.polygon]; };
    const auto corner = [&] { return place.corner - first_corner(mesh.face_counts, place.polygon); };
    switch (code) {
        case PolyFindingCode::no_polygons:
            return {"face_counts", {}, {}};
        case PolyFindingCode::too_many_elements:
            return {poly_array_name(place.array), std::to_string(place.item), {}};
        case PolyFindingCode::small_polygon:
            return {face, std::to_string(count()) + " corners, at least 3", {}};
        case PolyFindingCode::index_out_of_range:
            return {corner_place(place.polygon, corner()), index_of(place.item, mesh.points.size() / 3), {}};
        case PolyFindingCode::void_polygon:
            return {corner_place(place.polygon, corner()), "index -1", {}};
        case PolyFindingCode::repeated_vertex:
        case PolyFindingCode::nonmanifold_vertex:
            return {corner_place(place.polygon, corner()), "point " + std::to_string(place.item), {}};
        case PolyFindingCode::nonmanifold_edge:
        case PolyFindingCode::opposite_winding: {
            const std::uint32_t next = place.corner - corner() + (corner() + 1) % count();
            return {"edge of points " + std::to_string(mesh.face_indices[place.corner]) + " and " +
                        std::to_string(mesh.face_indices[next]),
                    face,
                    {}};
        }
        default:
            return {"point " + std::to_string(place.item), {}, {}};
    }
}

void check_faces(const MeshArrays& mesh, Findings& findings) {
    const auto counts = sds_model::view_of(mesh.face_counts), indices = sds_model::view_of(mesh.face_indices);
    const auto point_count = static_cast<std::uint32_t>(mesh.points.size() / 3);
    PolyFindings found;
    if (poly_check_polygons(point_count, counts, indices, found)) poly_check_edges(point_count, counts, indices, found);
    sds_model::add_mesh_findings(found, findings, [&](PolyFindingCode code, const PolyPlace& place) {
        return describe_face(mesh, code, place);
    });
}

void settle_uvs(std::span<const std::uint32_t> face_counts, sds_model::UvSource& uvs, Findings& findings) {
    const std::string name = "UV map '" + uvs.name + "', ";
    check_finite(uvs.points, name + "point", findings);
    PolyFindings found;
    poly_check_uvs(sds_model::points_view(uvs.points), sds_model::view_of(uvs.indices), sds_model::view_of(face_counts),
                   found);
    for (const PolyFindingCode code : {PolyFindingCode::index_out_of_range, PolyFindingCode::half_mapped_polygon}) {
        const auto describe = [&] {
            const PolyPlace& place = found.first(code);
            if (code == PolyFindingCode::half_mapped_polygon)
                return FirstCase{name + "face " + std::to_string(place.polygon), {}, {}};
            const std::uint32_t corner = place.corner - first_corner(face_counts, place.polygon);
            return FirstCase{
                name + corner_place(place.polygon, corner), index_of(place.item, uvs.points.size() / 3), {}};
        };
        findings.record(sds_model::to_finding_code(code, PolyArray::uvs), describe, found.count(code));
    }
    if (found.count(PolyFindingCode::half_mapped_polygon) == 0) return;
    std::size_t first = 0;
    for (std::size_t f = 0; f < face_counts.size(); first += face_counts[f++]) {
        const std::span corners(uvs.indices.data() + first, face_counts[f]);
        if (std::find(corners.begin(), corners.end(), sds_model::unmapped_corner) != corners.end())
            std::fill(corners.begin(), corners.end(), sds_model::unmapped_corner);
    }
}

void check_colors(const MeshArrays& mesh, Findings& findings) {
    const std::size_t count = mesh.colors.size() / 4;
    for (std::size_t c = 0; c < mesh.color_indices.size(); ++c)
        if (mesh.color_indices[c] >= count)
            findings.record(FindingCode::index_out_of_range, [&] {
                return FirstCase{
                    "colors, face-corner " + std::to_string(c), index_of(mesh.color_indices[c], count), {}};
            });
}

void check_properties(const MeshArrays& mesh, Findings& findings) {
    if (mesh.properties.empty()) return;
    PolyMesh polygons;
    polygons.set_polygons(sds_model::view_of(mesh.face_counts), sds_model::view_of(mesh.face_indices), {});
    for (const sds_model::PropertySource& source : mesh.properties) {
        PolyFindings found;
        poly_check_property(sds_model::make_host_property(polygons, source),
                            static_cast<std::uint32_t>(mesh.points.size() / 3), found);
        poly_check_times(sds_model::view_of(source.times), found);
        sds_model::add_mesh_findings(found, findings, [&](PolyFindingCode code, const PolyPlace& place) {
            const std::string name = "property '" + source.name + "'";
            if (code == PolyFindingCode::index_out_of_range)
                return FirstCase{name + ", face-corner " + std::to_string(place.corner),
                                 index_of(place.item, source.get_item_count()),
                                 {}};
            return FirstCase{name, std::string(poly_array_name(place.array)) + ", " + std::to_string(place.item), {}};
        });
    }
}

void check_creases(const MeshArrays& mesh, Findings& findings) {
    const std::size_t point_count = mesh.points.size() / 3;
    for (std::size_t i = 0; i < mesh.creases.sharpness.size(); ++i) {
        const std::string place = crease_place(i);
        for (const std::uint32_t point : mesh.creases.vertices.subspan(2 * i, 2))
            if (point >= point_count)
                findings.record(FindingCode::tag_index_out_of_range, [&] {
                    return FirstCase{place, index_of(point, point_count), {}};
                });
        if (std::isnan(mesh.creases.sharpness[i]))
            findings.record(FindingCode::non_finite_number, [&] { return FirstCase{place, "sharpness NaN", {}}; });
    }
}

void check_corners_and_holes(const MeshArrays& mesh, Findings& findings) {
    const std::size_t point_count = mesh.points.size() / 3;
    for (std::size_t i = 0; i < mesh.corners.vertices.size(); ++i) {
        const std::string place = corner_entry_place(i);
        if (mesh.corners.vertices[i] >= point_count)
            findings.record(FindingCode::tag_index_out_of_range, [&] {
                return FirstCase{place, index_of(mesh.corners.vertices[i], point_count), {}};
            });
        if (std::isnan(mesh.corners.sharpness[i]))
            findings.record(FindingCode::non_finite_number, [&] { return FirstCase{place, "sharpness NaN", {}}; });
    }
    for (std::size_t i = 0; i < mesh.holes.size(); ++i)
        if (mesh.holes[i] >= mesh.face_counts.size())
            findings.record(FindingCode::tag_without_polygon, [&] {
                return FirstCase{hole_place(i), index_of(mesh.holes[i], mesh.face_counts.size()), {}};
            });
}

sds_model::FractionalSharpness get_fractional(const MeshArrays& mesh) {
    using sds_model::FractionalSharpness;
    const bool is_kept = mesh.is_refined || mesh.creases.fractional != FractionalSharpness::exact;
    return is_kept ? mesh.creases.fractional : FractionalSharpness::harden;
}

sds_model::SettledCreases settle_creases(const MeshArrays& mesh, Findings& findings) {
    const CreaseArrays& given = mesh.creases;
    std::vector<sds_model::CreaseEdge> creases(given.sharpness.size());
    for (std::size_t i = 0; i < creases.size(); ++i)
        creases[i] = {given.vertices[2 * i], given.vertices[2 * i + 1], given.sharpness[i]};
    PolyEdgeBuckets edges(mesh.face_indices.data(), sds_model::view_of(mesh.face_counts),
                          static_cast<unsigned int>(mesh.points.size() / 3));
    edges.sort();
    const auto describe = [&](FindingCode, std::size_t entry) {
        return FirstCase{crease_place(entry),
                         "points " + std::to_string(creases[entry].a) + " and " + std::to_string(creases[entry].b),
                         {}};
    };
    return sds_model::settle_creases(edges, mesh.face_indices.size(), creases, get_fractional(mesh), findings,
                                     describe);
}

}  // namespace

void throw_errors(const Findings& findings) {
    if (!findings.has_errors()) return;
    std::string text;
    for (const sds_model::Finding& finding : findings.get_entries())
        if (sds_model::severity_of(finding.code) == sds_model::Severity::error)
            text += (text.empty() ? "" : "\n") + sds_model::to_text(finding);
    throw MeshError(text, findings);
}

void check_finite(std::span<const float> values, const std::string& what, Findings& findings) {
    const auto vectors = sds_model::points_view(values);
    PolyFindings found;
    poly_check_vectors(vectors, vectors.get_count(), PolyArray::positions, found);
    add_vector_findings(found, values, what, findings);
}

void check_arrays(MeshArrays& mesh, Findings& findings) {
    const auto name_all = [](const std::string& what) { return [what] { return FirstCase{what, {}, {}}; }; };
    if (mesh.points.empty()) findings.record(FindingCode::no_vertices, name_all("points"));
    check_finite(mesh.points, "point", findings);
    check_finite(mesh.motion, "motion of point", findings);
    check_faces(mesh, findings);
    check_creases(mesh, findings);
    check_corners_and_holes(mesh, findings);
    for (sds_model::UvSource& uvs : mesh.uvs) settle_uvs(mesh.face_counts, uvs, findings);
    check_colors(mesh, findings);
    if (!findings.has_errors()) check_properties(mesh, findings);
}

Sharpness settle_sharpness(const MeshArrays& mesh, Findings& findings) {
    Sharpness settled;
    settled.creases = settle_creases(mesh, findings);
    const std::size_t entries = mesh.corners.vertices.size();
    if (!mesh.is_refined) {
        for (std::size_t i = 0; i < entries; ++i)
            if (const float sharpness = mesh.corners.sharpness[i]; sharpness != 0.0f)
                findings.record(sharpness > 0.0f ? FindingCode::unkept_corner : FindingCode::negative_sharpness, [&] {
                    return FirstCase{corner_entry_place(i), {}, {}};
                });
        findings.record(
            FindingCode::unkept_hole,
            [&] {
                return FirstCase{hole_place(0), {}, {}};
            },
            mesh.holes.size());
        return settled;
    }
    std::vector<sds_model::SharpCorner> corners;
    for (std::size_t i = 0; i < entries; ++i) corners.push_back({mesh.corners.vertices[i], mesh.corners.sharpness[i]});
    const auto describe = [](FindingCode, std::size_t entry) { return FirstCase{corner_entry_place(entry), {}, {}}; };
    settled.vertices =
        sds_model::settle_corners(mesh.points.size() / 3, corners, get_fractional(mesh), findings, describe);
    if (!mesh.holes.empty()) settled.holes.assign(mesh.face_counts.size(), 0);
    for (const std::uint32_t face : mesh.holes) settled.holes[face] = 1;
    return settled;
}

}  // namespace sds_python

#include "mesh_arrays.h"

#include <algorithm>
#include <cmath>

#include "cli/cage_edges.h"

namespace sds_python {

namespace {

using sds_cli::FindingCode;
using sds_cli::Findings;
using sds_cli::FirstCase;

constexpr float infinite_sharpness = 10.0f;

/// As the caller wrote it: indices below zero arrive wrapped around.
std::string index_of(std::uint32_t index, std::size_t count) {
    const std::string text =
        index > 0x7FFFFFFFu ? std::to_string(static_cast<std::int32_t>(index)) : std::to_string(index);
    return "index " + text + " of " + std::to_string(count);
}

std::string corner_place(std::size_t face, std::size_t corner) {
    return "face " + std::to_string(face) + ", corner " + std::to_string(corner);
}

void check_faces(const MeshArrays& mesh, Findings& findings) {
    const std::size_t point_count = mesh.points.size() / 3;
    std::vector<std::uint32_t> last_face(point_count, 0);  // 1 + the face that met the point last
    std::size_t first = 0;
    for (std::uint32_t f = 0; f < mesh.face_counts.size(); ++f) {
        const std::uint32_t count = mesh.face_counts[f];
        if (count < 3)
            findings.record(FindingCode::one_corner_polygon, [&] {
                return FirstCase{"face " + std::to_string(f), std::to_string(count) + " corners, at least 3", {}};
            });
        for (std::uint32_t k = 0; k < count; ++k) {
            const std::uint32_t point = mesh.face_indices[first + k];
            const auto place = [&](const std::string& detail) {
                return [&, detail] { return FirstCase{corner_place(f, k), detail, {}}; };
            };
            if (point >= point_count) {
                findings.record(FindingCode::vertex_index_out_of_range, place(index_of(point, point_count)));
                continue;
            }
            if (last_face[point] == f + 1)
                findings.record(FindingCode::repeated_vertex, place("point " + std::to_string(point)));
            last_face[point] = f + 1;
        }
        first += count;
    }
    const auto unused = static_cast<std::uint64_t>(std::count(last_face.begin(), last_face.end(), 0u));
    const auto describe = [&] {
        const auto where = std::find(last_face.begin(), last_face.end(), 0u) - last_face.begin();
        return FirstCase{"point " + std::to_string(where), {}, {}};
    };
    findings.record(FindingCode::unused_vertex, describe, unused);
}

void settle_uvs(std::span<const std::uint32_t> face_counts, sds_cli::UvSource& uvs, Findings& findings) {
    check_finite(uvs.points, "UV map '" + uvs.name + "', point", findings);
    const std::size_t uv_count = uvs.points.size() / 3;
    std::size_t first = 0;
    for (std::size_t f = 0; f < face_counts.size(); first += face_counts[f++]) {
        const std::span corners(uvs.indices.data() + first, face_counts[f]);
        std::size_t unmapped = 0;
        for (std::size_t k = 0; k < corners.size(); ++k) {
            unmapped += corners[k] == sds_cli::unmapped_corner ? 1 : 0;
            if (corners[k] == sds_cli::unmapped_corner || corners[k] < uv_count) continue;
            findings.record(FindingCode::uv_index_out_of_range, [&] {
                return FirstCase{
                    "UV map '" + uvs.name + "', " + corner_place(f, k), index_of(corners[k], uv_count), {}};
            });
        }
        if (unmapped == 0 || unmapped == corners.size()) continue;
        findings.record(FindingCode::half_mapped_polygon, [&] {
            return FirstCase{"UV map '" + uvs.name + "', face " + std::to_string(f),
                             std::to_string(unmapped) + " of " + std::to_string(corners.size()) + " corners without",
                             {}};
        });
        std::fill(corners.begin(), corners.end(), sds_cli::unmapped_corner);
    }
}

void check_creases(const MeshArrays& mesh, Findings& findings) {
    const std::size_t point_count = mesh.points.size() / 3;
    for (std::size_t i = 0; i < mesh.creases.sharpness.size(); ++i) {
        const std::string place = "crease edge " + std::to_string(i);
        for (const std::uint32_t point : mesh.creases.vertices.subspan(2 * i, 2))
            if (point >= point_count)
                findings.record(FindingCode::tag_index_out_of_range, [&] {
                    return FirstCase{place, index_of(point, point_count), {}};
                });
        if (std::isnan(mesh.creases.sharpness[i]))
            findings.record(FindingCode::non_finite_number, [&] { return FirstCase{place, "sharpness NaN", {}}; });
    }
}

void report_edges(const sds_cli::CageEdges& edges, Findings& findings) {
    edges.for_each_edge([&](std::span<const std::uint32_t> sides) {
        const auto describe = [&] {
            const std::uint32_t corner = sides.back();
            return FirstCase{
                "edge of points " + std::to_string(edges.start(corner)) + " and " + std::to_string(edges.end(corner)),
                std::to_string(sides.size()) + " faces",
                {}};
        };
        if (sides.size() > 2)
            findings.record(FindingCode::nonmanifold_edge, describe);
        else if (sides.size() == 2 && edges.start(sides[0]) == edges.start(sides[1]))
            findings.record(FindingCode::opposite_winding, describe);
    });
}

}  // namespace

void throw_errors(const Findings& findings) {
    if (!findings.has_errors()) return;
    std::string text;
    for (const sds_cli::Finding& finding : findings.entries())
        if (sds_cli::severity_of(finding.code) == sds_cli::Severity::error)
            text += (text.empty() ? "" : "\n") + sds_cli::to_text(finding);
    throw MeshError(text, findings);
}

void check_finite(std::span<const float> values, const std::string& what, Findings& findings) {
    for (std::size_t i = 0; i < values.size(); ++i)
        if (!std::isfinite(values[i]))
            findings.record(FindingCode::non_finite_number, [&] {
                return FirstCase{what + " " + std::to_string(i / 3), std::string(1, "xyz"[i % 3]), {}};
            });
}

void check_arrays(MeshArrays& mesh, Findings& findings) {
    const auto name_all = [](std::string what) { return [what] { return FirstCase{what, {}, {}}; }; };
    if (mesh.points.empty()) findings.record(FindingCode::no_vertices, name_all("points"));
    if (mesh.face_counts.empty()) findings.record(FindingCode::no_polygons, name_all("face_counts"));
    check_finite(mesh.points, "point", findings);
    check_finite(mesh.motion, "motion of point", findings);
    check_faces(mesh, findings);
    check_creases(mesh, findings);
    for (sds_cli::UvSource& uvs : mesh.uvs) settle_uvs(mesh.face_counts, uvs, findings);
}

std::vector<std::uint8_t> settle_creases(const MeshArrays& mesh, Findings& findings) {
    const sds_cli::CageEdges edges(mesh.points.size() / 3, mesh.face_counts, mesh.face_indices);
    report_edges(edges, findings);
    std::vector<std::uint8_t> flags(mesh.face_indices.size(), 0);
    for (std::size_t i = 0; i < mesh.creases.sharpness.size(); ++i) {
        const std::uint32_t a = mesh.creases.vertices[2 * i], b = mesh.creases.vertices[2 * i + 1];
        const std::string place = "crease edge " + std::to_string(i);
        const auto sides = edges.sides(a, b);
        if (sides.empty())
            findings.record(FindingCode::tag_without_edge, [&] {
                return FirstCase{place, "points " + std::to_string(a) + " and " + std::to_string(b), {}};
            });
        const float sharpness = mesh.creases.sharpness[i];
        const bool is_fractional = sharpness > 0.0f && sharpness < infinite_sharpness;
        if (is_fractional)
            findings.record(FindingCode::fractional_sharpness, [&] {
                return FirstCase{place, "sharpness " + std::to_string(sharpness),
                                 mesh.creases.harden_fractional ? "" : "left smooth"};
            });
        const bool is_crease = sharpness >= infinite_sharpness || (is_fractional && mesh.creases.harden_fractional);
        for (const std::uint32_t corner : sides) flags[corner] = is_crease ? 1 : 0;
    }
    return flags;
}

}  // namespace sds_python

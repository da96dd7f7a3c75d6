#include "web/src/usd_cage.h"

#include "io/usda/scene_source.h"
#include "model/array_view.h"
#include "qn_poly/poly_check.h"

namespace sds_page {

namespace {

using namespace sds_model;

void add_points(const std::vector<float>& points, const sds_render::Matrix4& matrix, std::vector<float>& out) {
    for (std::size_t i = 0; i < points.size(); i += 3) {
        const sds_render::Vec3 point = sds_render::transform_point(matrix, {points[i], points[i + 1], points[i + 2]});
        for (unsigned int c = 0; c < 3; ++c) out.push_back(static_cast<float>(point[c]));
    }
}

/// A transform may leave what numbers hold.
void check_points(const std::vector<float>& points, const std::string& file, Findings& findings) {
    PolyFindings found;
    poly_check_vectors(points_view(points), static_cast<unsigned int>(points.size() / 3), PolyArray::positions, found);
    add_mesh_findings(found, findings, [&](PolyFindingCode, const PolyPlace& place) {
        return FirstCase{file, "point " + std::to_string(place.item), {}};
    });
}

/// Adds values that a cage may go without: whoever has none has `fill`, `before` and `count` of them.
template <class T>
void add_values(const std::vector<T>& values, std::size_t before, std::size_t count, T fill, std::vector<T>& out) {
    if (values.empty() && out.empty()) return;
    out.resize(before, fill);
    out.insert(out.end(), values.begin(), values.end());
    out.resize(before + count, fill);
}

void add_indices(const std::vector<std::uint32_t>& indices, std::size_t first, std::vector<std::uint32_t>& out) {
    for (const std::uint32_t index : indices)
        out.push_back(index == unmapped_corner ? index : static_cast<std::uint32_t>(first + index));
}

/// Adds a cage where an instance has it, all its polygons in one group.
void add_cage(const ControlCage& cage, const MeshInstance& instance, ControlCage& out) {
    const std::size_t vertices = out.get_vertex_count(), polygons = out.get_polygon_count(),
                      corners = out.get_corner_count();
    add_values(cage.corner_sharpness, corners, cage.get_corner_count(), 0.0f, out.corner_sharpness);
    add_values(cage.vertex_sharpness, vertices, cage.get_vertex_count(), 0.0f, out.vertex_sharpness);
    add_values<std::uint8_t>(cage.holes, polygons, cage.get_polygon_count(), 0, out.holes);
    std::vector<std::uint32_t> uvs;
    add_indices(cage.uv_indices, out.get_uv_count(), uvs);
    add_values(uvs, corners, cage.get_corner_count(), unmapped_corner, out.uv_indices);
    out.uv_points.insert(out.uv_points.end(), cage.uv_points.begin(), cage.uv_points.end());
    add_points(cage.positions, instance.transform.at(0.0), out.positions);
    add_indices(cage.polygon_indices, vertices, out.polygon_indices);
    out.polygon_counts.insert(out.polygon_counts.end(), cage.polygon_counts.begin(), cage.polygon_counts.end());
    out.corner_creases.insert(out.corner_creases.end(), cage.corner_creases.begin(), cage.corner_creases.end());
    out.polygon_groups.resize(out.get_polygon_count(), static_cast<std::uint32_t>(out.group_names.size()));
    out.group_names.push_back(instance.name.substr(instance.name.rfind('/') + 1));
}

}  // namespace

std::optional<ControlCage> make_cage(const sds_usda::UsdScene& scene, bool is_refined, const std::string& file,
                                     Findings& findings) {
    const sds_usda::UsdFrame frame{.time = sds_usda::first_frame(scene)};
    const sds_usda::UsdMeshOptions options{.fractional = FractionalSharpness::exact, .is_refined = is_refined};
    const sds_usda::SceneSource source = sds_usda::make_scene_source(scene, frame, options, file);
    for (const Findings& of_mesh : source.findings)
        for (const Finding& finding : of_mesh.get_entries())
            findings.record(
                finding.code, [&] { return finding.first; }, finding.count);
    if (source.instances.empty())
        findings.record(FindingCode::no_polygons, [&] { return FirstCase{file, "no visible Mesh", {}}; });
    if (findings.has_errors()) return std::nullopt;
    ControlCage cage;
    for (const MeshInstance& instance : source.instances) add_cage(source.meshes[instance.mesh].cage, instance, cage);
    cage.rules = source.meshes.front().cage.rules;
    check_points(cage.positions, file, findings);
    if (findings.has_errors()) return std::nullopt;
    return cage;
}

}  // namespace sds_page

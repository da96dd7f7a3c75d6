#include "io/usda/write_cage.h"

#include <algorithm>
#include <set>
#include <utility>

namespace sds_usda {

namespace {

InterpolateBoundary to_boundary(const sds_model::SurfaceModes& modes) {
    if (modes.open_borders) return InterpolateBoundary::none;
    return modes.positions == SdsMeshGeometry::InterpolationMode::all_smoothed ? InterpolateBoundary::edge_only
                                                                               : InterpolateBoundary::edge_and_corner;
}

/// The rule that comes closest to a mode.
FaceVaryingLinear to_rule(SdsMeshMaps::InterpolationMode mode) {
    using Mode = SdsMeshMaps::InterpolationMode;
    switch (mode) {
        case Mode::all_fixed:
            return FaceVaryingLinear::all;
        case Mode::all_smoothed:
            return FaceVaryingLinear::none;
        case Mode::borders_fixed:
        case Mode::smoothed_seams_fixed:
        case Mode::corners_and_seams_fixed:
            return FaceVaryingLinear::boundaries;
        case Mode::corners_plus1:
            return FaceVaryingLinear::corners_plus1;
        case Mode::corners_plus2:
            return FaceVaryingLinear::corners_plus2;
        case Mode::corners_fixed:
        case Mode::smoothed_seam_corners_fixed:
            break;
    }
    return FaceVaryingLinear::corners_only;
}

}  // namespace

UsdaCage::UsdaCage(const std::string& name, const sds_model::ControlCage& cage,
                   const std::vector<sds_model::UvSource>& further_uvs, const sds_model::SurfaceModes& modes,
                   std::span<const sds_model::PropertySource> properties)
    : m_mesh{name, cage.positions, cage.polygon_counts, cage.polygon_indices} {
    const bool is_linear = modes.positions == SdsMeshGeometry::InterpolationMode::all_fixed;
    m_mesh.scheme = is_linear ? SubdivisionScheme::bilinear : SubdivisionScheme::catmull_clark;
    m_mesh.interpolate_boundary = to_boundary(modes);
    m_mesh.face_varying_linear = to_rule(modes.uvs);
    m_mesh.triangle_rule = modes.smooth_triangles ? TriangleRule::smooth : TriangleRule::catmull_clark;
    add_creases(cage);
    for (std::uint32_t f = 0; f < cage.holes.size(); ++f)
        if (cage.holes[f] != 0) m_holes.push_back(f);
    m_mesh.hole_indices = m_holes;
    for (std::uint32_t v = 0; v < cage.vertex_sharpness.size(); ++v) {
        if (!(cage.vertex_sharpness[v] > 0.0f)) continue;
        m_corner_indices.push_back(v);
        m_corner_sharpnesses.push_back(cage.vertex_sharpness[v]);
    }
    m_mesh.corner_indices = m_corner_indices;
    m_mesh.corner_sharpnesses = m_corner_sharpnesses;
    if (cage.has_uvs()) add_uvs("st", cage.uv_points, cage.uv_indices);
    for (const sds_model::UvSource& uvs : further_uvs) add_uvs(uvs.name, uvs.points, uvs.indices);
    if (cage.has_colors()) add_colors(cage);
    m_mesh.properties = properties;
    if (cage.group_names.size() < 2) return;
    m_mesh.polygon_groups = cage.polygon_groups;
    m_mesh.group_names = cage.group_names;
}

/// One chain per edge.
void UsdaCage::add_creases(const sds_model::ControlCage& cage) {
    constexpr float infinite = 10.0f;
    std::set<std::pair<std::uint32_t, std::uint32_t>> known;
    std::size_t first = 0;
    for (const std::uint32_t count : cage.polygon_counts) {
        for (std::uint32_t k = 0; k < count; ++k) {
            const std::size_t corner = first + k;
            const bool is_crease = !cage.corner_creases.empty() && cage.corner_creases[corner] != 0;
            const float kept = cage.corner_sharpness.empty() ? 0.0f : cage.corner_sharpness[corner];
            const float sharpness = is_crease ? infinite : kept;
            const std::uint32_t a = cage.polygon_indices[corner], b = cage.polygon_indices[first + (k + 1) % count];
            if (!(sharpness > 0.0f) || !known.insert(std::minmax(a, b)).second) continue;
            m_crease_indices.insert(m_crease_indices.end(), {a, b});
            m_crease_lengths.push_back(2);
            m_crease_sharpnesses.push_back(sharpness);
        }
        first += count;
    }
    m_mesh.crease_indices = m_crease_indices;
    m_mesh.crease_lengths = m_crease_lengths;
    m_mesh.crease_sharpnesses = m_crease_sharpnesses;
}

void UsdaCage::add_uvs(const std::string& name, std::span<const float> points, std::span<const std::uint32_t> indices) {
    m_mesh.primvars.push_back({name, "texCoord2f", Interpolation::face_varying, 2, 3, points, indices});
}

void UsdaCage::add_colors(const sds_model::ControlCage& cage) {
    for (const std::uint8_t byte : cage.vertex_colors) m_colors.push_back(static_cast<float>(byte) / 255.0f);
    const bool is_per_vertex = cage.color_indices.empty();
    m_mesh.primvars.push_back({"displayColor", "color3f",
                               is_per_vertex ? Interpolation::vertex : Interpolation::face_varying, 3, 4, m_colors,
                               cage.color_indices});
}

void write_usda_file(const std::string& path, std::span<const UsdaMesh> meshes, const UsdaStage& stage) {
    sds_io::AtomicFile file(path);
    write_usda(meshes, stage, [&](std::string_view bytes) { file.write(bytes); });
    file.commit();
}

}  // namespace sds_usda

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
    : mesh_{name, cage.positions, cage.polygon_counts, cage.polygon_indices} {
    const bool is_linear = modes.positions == SdsMeshGeometry::InterpolationMode::all_fixed;
    mesh_.scheme = is_linear ? SubdivisionScheme::bilinear : SubdivisionScheme::catmull_clark;
    mesh_.interpolate_boundary = to_boundary(modes);
    mesh_.face_varying_linear = to_rule(modes.uvs);
    mesh_.triangle_rule = modes.smooth_triangles ? TriangleRule::smooth : TriangleRule::catmull_clark;
    add_creases(cage);
    for (std::uint32_t f = 0; f < cage.holes.size(); ++f)
        if (cage.holes[f] != 0) holes_.push_back(f);
    mesh_.hole_indices = holes_;
    for (std::uint32_t v = 0; v < cage.vertex_sharpness.size(); ++v) {
        if (!(cage.vertex_sharpness[v] > 0.0f)) continue;
        corner_indices_.push_back(v);
        corner_sharpnesses_.push_back(cage.vertex_sharpness[v]);
    }
    mesh_.corner_indices = corner_indices_;
    mesh_.corner_sharpnesses = corner_sharpnesses_;
    if (cage.has_uvs()) add_uvs("st", cage.uv_points, cage.uv_indices);
    for (const sds_model::UvSource& uvs : further_uvs) add_uvs(uvs.name, uvs.points, uvs.indices);
    if (cage.has_colors()) add_colors(cage);
    mesh_.properties = properties;
    if (cage.group_names.size() < 2) return;
    mesh_.polygon_groups = cage.polygon_groups;
    mesh_.group_names = cage.group_names;
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
            crease_indices_.insert(crease_indices_.end(), {a, b});
            crease_lengths_.push_back(2);
            crease_sharpnesses_.push_back(sharpness);
        }
        first += count;
    }
    mesh_.crease_indices = crease_indices_;
    mesh_.crease_lengths = crease_lengths_;
    mesh_.crease_sharpnesses = crease_sharpnesses_;
}

void UsdaCage::add_uvs(const std::string& name, std::span<const float> points, std::span<const std::uint32_t> indices) {
    mesh_.primvars.push_back({name, "texCoord2f", Interpolation::face_varying, 2, 3, points, indices});
}

void UsdaCage::add_colors(const sds_model::ControlCage& cage) {
    for (const std::uint8_t byte : cage.vertex_colors) colors_.push_back(static_cast<float>(byte) / 255.0f);
    const bool is_per_vertex = cage.color_indices.empty();
    mesh_.primvars.push_back({"displayColor", "color3f",
                              is_per_vertex ? Interpolation::vertex : Interpolation::face_varying, 3, 4, colors_,
                              cage.color_indices});
}

void write_usda_file(const std::string& path, std::span<const UsdaMesh> meshes, const UsdaStage& stage) {
    sds_io::AtomicFile file(path);
    write_usda(meshes, stage, [&](std::string_view bytes) { file.write(bytes); });
    file.commit();
}

}  // namespace sds_usda

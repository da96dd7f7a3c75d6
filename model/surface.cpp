#include "model/surface.h"

#include "model/array_view.h"
#include "qn_poly/poly_check.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace sds_model {

namespace {

using Vec3f = GMathVec3<float>;

CoreArray<Vec3f> to_points(std::span<const float> xyz) {
    CoreArray<Vec3f> points(static_cast<unsigned int>(xyz.size() / 3));
    for (std::size_t i = 0; i < points.get_count(); ++i) points[i] = {xyz[3 * i], xyz[3 * i + 1], xyz[3 * i + 2]};
    return points;
}

GeometryUvMap to_uv_map(const std::string& name, std::span<const float> points,
                        std::span<const std::uint32_t> indices) {
    return {name, to_points(points), CoreArray<unsigned int>(view_of(indices))};
}

GeometryColorMap to_color_map(std::span<const std::uint8_t> rgba, std::span<const std::uint32_t> indices) {
    GeometryColorMap map{"color", CoreArray<GMathVec4<unsigned char>>(static_cast<unsigned int>(rgba.size() / 4)),
                         CoreArray<unsigned int>(view_of(indices))};
    for (std::size_t i = 0; i < map.colors.get_count(); ++i)
        map.colors[i] = {rgba[4 * i], rgba[4 * i + 1], rgba[4 * i + 2], rgba[4 * i + 3]};
    return map;
}

SdsRefinement to_refinement(const CageView& cage, const SurfaceModes& modes) {
    SdsRefinement refinement;
    refinement.depth = modes.depth;
    refinement.error = modes.error;
    refinement.chaikin = modes.chaikin;
    refinement.smooth_triangles = modes.smooth_triangles;
    refinement.open_borders = modes.open_borders;
    refinement.refine_maps = true;
    refinement.edge_sharpness = view_of(cage.corner_sharpness);
    refinement.vertex_sharpness = view_of(cage.vertex_sharpness);
    refinement.holes = view_of(cage.holes);
    return refinement;
}

}  // namespace

SdsMeshMaps::InterpolationMode to_uv_mode(CageRules::FaceVarying rule) {
    using Rule = CageRules::FaceVarying;
    using Mode = SdsMeshMaps::InterpolationMode;
    switch (rule) {
        case Rule::none:
            return Mode::all_smoothed;
        case Rule::boundaries:
            return Mode::borders_fixed;
        case Rule::all:
            return Mode::all_fixed;
        case Rule::corners_plus1:
            return Mode::corners_plus1;
        case Rule::corners_plus2:
            return Mode::corners_plus2;
        case Rule::unsaid:
        case Rule::corners_only:
            break;
    }
    return Mode::corners_fixed;
}

SurfaceModes follow_rules(SurfaceModes modes, const CageRules& rules, bool has_border_rule, bool has_uv_rule) {
    using Borders = CageRules::Borders;
    modes.chaikin |= rules.chaikin;
    modes.smooth_triangles |= rules.smooth_triangles;
    if (!has_uv_rule && rules.face_varying != CageRules::FaceVarying::unsaid)
        modes.uvs = to_uv_mode(rules.face_varying);
    if (!has_uv_rule && rules.is_linear) modes.uvs = SdsMeshMaps::InterpolationMode::all_fixed;
    if (has_border_rule) return modes;
    modes.open_borders = rules.borders == Borders::none && !rules.is_linear;
    if (rules.borders == Borders::edges) modes.positions = SdsMeshGeometry::InterpolationMode::all_smoothed;
    if (rules.is_linear) modes.positions = SdsMeshGeometry::InterpolationMode::all_fixed;
    return modes;
}

Surface::Surface(const CageView& cage, const std::vector<UvSource>& further_uvs, std::span<const float> motion,
                 const SurfaceModes& modes, AppProgressBar* progress)
    : m_base(std::make_shared<SdsMeshBase>()), m_maps(std::make_shared<SdsMeshMaps>()) {
    measure(cage.positions, motion);
    StageTimer timer(progress);
    build_base(cage, modes, timer);
    {
        const AppProgressTask task(&timer, "geometry", 0.5f);
        m_geometry.set(*m_base, to_points(cage.positions), to_points(motion), modes.positions, &timer);
    }
    build_maps(cage, further_uvs, modes.uvs, timer);
    m_stages = timer.get_stages();
}

void Surface::build_base(const CageView& cage, const SurfaceModes& modes, AppProgressBar& progress) {
    const AppProgressTask task(&progress, "topology", 0.3f);
    CoreArray<CoreString> groups;
    for (const std::string& name : cage.group_names) groups.add(CoreString(name));
    const PolyCreaseScope creases(view_of(cage.corner_creases));
    if (modes.is_refined()) m_base->set_refinement(to_refinement(cage, modes));
    m_base->set(static_cast<unsigned int>(cage.get_vertex_count()), view_of(cage.polygon_indices),
                view_of(cage.polygon_counts), view_of(cage.polygon_groups), groups, &progress);
}

void Surface::build_maps(const CageView& cage, const std::vector<UvSource>& further_uvs,
                         SdsMeshMaps::InterpolationMode mode, AppProgressBar& progress) {
    const AppProgressTask task(&progress, "maps", 0.2f);
    CoreArray<GeometryUvMap> uv_maps;
    if (!cage.uv_indices.empty()) uv_maps.add(to_uv_map("uv", cage.uv_points, cage.uv_indices));
    for (const UvSource& source : further_uvs) uv_maps.add(to_uv_map(source.name, source.points, source.indices));
    CoreArray<GeometryColorMap> color_maps;
    if (!cage.vertex_colors.empty()) color_maps.add(to_color_map(cage.vertex_colors, cage.color_indices));
    const PolyCreaseScope creases(view_of(cage.corner_creases));
    m_maps->set(*m_base, CoreArray<unsigned int>(view_of(cage.polygon_counts)), uv_maps, color_maps, mode, &progress);
}

std::unique_ptr<Surface> Surface::moved(std::span<const float> positions, std::span<const float> motion) const {
    // A copy of the geometry keeps what positions do not enter.
    std::unique_ptr<Surface> result(new Surface(m_base, m_maps, m_geometry));
    result->m_geometry.set(*m_base, to_points(positions), to_points(motion), m_geometry.get_interpolation_mode(),
                           nullptr);
    result->measure(positions, motion);
    return result;
}

void Surface::measure(std::span<const float> positions, std::span<const float> motion) {
    const auto greatest = [](std::span<const float> values) {
        float most = 0.0f;
        for (const float value : values) most = std::max(most, std::fabs(value));
        return static_cast<double>(most);
    };
    m_reach = greatest(positions);
    m_velocity = greatest(motion);
}

void Surface::check_time(double time) const {
    if (!std::isfinite(time)) throw std::invalid_argument("time is not finite");
    // What one unit of time can do to coordinates and vectors that were checked.
    constexpr double farthest = 2.0 * static_cast<double>(poly_max_coordinate);
    if (m_velocity == 0.0 || std::fabs(time) * m_velocity + m_reach <= farthest) return;
    char text[80];
    std::snprintf(text, sizeof(text), "time %.9g may carry a vertex beyond %.3g", time, farthest);
    throw std::invalid_argument(text);
}

SdsMesh Surface::make_mesh(unsigned int level) const {
    SdsMesh mesh;
    mesh.set(m_geometry, *m_maps, level, nullptr);
    return mesh;
}

std::size_t Surface::get_memory_size() const {
    return m_base->get_memory_size() + m_geometry.get_memory_size() + m_maps->get_memory_size();
}

double Surface::get_build_seconds() const {
    double seconds = 0.0;
    for (const Stage& stage : m_stages)
        if (stage.depth == 0) seconds += stage.seconds;
    return seconds;
}

}  // namespace sds_model

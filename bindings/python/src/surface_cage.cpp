#include <pybind11/stl.h>

#include <limits>

#include "surface_object.h"

namespace py = pybind11;

namespace sds_python {

py::dict SurfaceObject::cage() const {
    const sds_model::ControlCage& cage = *m_cage;
    const auto view = [&](const auto& values, Shape shape) { return to_view(values.data(), shape, m_cage); };
    std::vector<std::uint32_t> edges, corners, holes;
    std::vector<float> edge_sharpness, corner_sharpness;
    std::size_t first = 0;
    for (const std::uint32_t count : cage.polygon_counts) {
        for (std::uint32_t k = 0; k < count; ++k) {
            const bool is_crease = !cage.corner_creases.empty() && cage.corner_creases[first + k] != 0;
            const float fractional = cage.corner_sharpness.empty() ? 0.0f : cage.corner_sharpness[first + k];
            if (!is_crease && fractional == 0.0f) continue;
            edges.push_back(cage.polygon_indices[first + k]);
            edges.push_back(cage.polygon_indices[first + (k + 1) % count]);
            edge_sharpness.push_back(is_crease ? std::numeric_limits<float>::infinity() : fractional);
        }
        first += count;
    }
    for (std::size_t v = 0; v < cage.vertex_sharpness.size(); ++v)
        if (cage.vertex_sharpness[v] > 0.0f) {
            corners.push_back(static_cast<std::uint32_t>(v));
            corner_sharpness.push_back(cage.vertex_sharpness[v]);
        }
    for (std::size_t f = 0; f < cage.holes.size(); ++f)
        if (cage.holes[f] != 0) holes.push_back(static_cast<std::uint32_t>(f));

    const auto edge_count = extent(edge_sharpness.size()), corner_count = extent(corners.size()),
               hole_count = extent(holes.size());
    py::dict out;
    out["points"] = view(cage.positions, {extent(cage.get_vertex_count()), 3});
    out["face_counts"] = view(cage.polygon_counts, {extent(cage.get_polygon_count())});
    out["face_indices"] = view(cage.polygon_indices, {extent(cage.get_corner_count())});
    out["creases"] =
        py::make_tuple(to_numpy(std::move(edges), {edge_count, 2}), to_numpy(std::move(edge_sharpness), {edge_count}));
    out["corners"] = py::make_tuple(to_numpy(std::move(corners), {corner_count}),
                                    to_numpy(std::move(corner_sharpness), {corner_count}));
    out["holes"] = to_numpy(std::move(holes), {hole_count});
    out["groups"] = view(cage.polygon_groups, {extent(cage.get_polygon_count())});
    out["group_names"] = py::cast(cage.group_names);
    py::dict uvs;
    if (cage.has_uvs())
        uvs["uv"] = py::make_tuple(view(cage.uv_points, {extent(cage.get_uv_count()), 3}),
                                   view(cage.uv_indices, {extent(cage.get_corner_count())}));
    out["uvs"] = uvs;
    out["colors"] = py::none();
    if (cage.has_colors()) out["colors"] = view(cage.vertex_colors, {extent(cage.get_vertex_count()), 4});
    out["interpolation"] =
        m_modes.open_borders ? ModeWords::open_borders : static_cast<unsigned int>(m_modes.positions);
    out["uv_interpolation"] = static_cast<unsigned int>(m_modes.uvs);
    out["isolation"] = m_modes.depth;
    out["isolation_error"] = m_modes.error;
    out["crease_method"] = m_modes.chaikin;
    out["triangle_rule"] = m_modes.smooth_triangles;
    return out;
}

}  // namespace sds_python

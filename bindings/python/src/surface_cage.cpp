#include <pybind11/stl.h>

#include <algorithm>
#include <limits>

#include "surface_object.h"

namespace py = pybind11;

namespace sds_python {

namespace {

/// Values, kind, indices and times, as qn_sds.Property has them.
template <class Owner>
py::tuple to_tuple(const sds_model::PropertySource& source, const std::shared_ptr<Owner>& owner) {
    const bool is_constant = source.kind == PolyMeshProperty::Type::constant;
    Shape item;
    if (!is_constant) item.push_back(extent(source.get_item_count()));
    if (source.extent > 1) item.push_back(extent(source.extent));
    Shape shape = item;
    if (!source.times.empty()) shape.insert(shape.begin(), extent(source.times.size()));
    const std::size_t size = std::size_t{source.extent} * (is_constant ? 1 : source.get_item_count()) *
                             ResourceProperty::get_type_size(source.type);
    py::array values(py::dtype(ResourceProperty::get_type_name(source.type)), shape);
    auto* out = static_cast<std::uint8_t*>(values.mutable_data());
    for (const ResourceProperty& sample : source.samples)
        out = std::copy_n(sample.get_item_values<std::uint8_t>(0), size, out);
    py::object indices = py::none(), times = py::none();
    if (!source.indices.empty()) indices = to_view(source.indices.data(), {extent(source.indices.size())}, owner);
    if (!source.times.empty()) times = to_view(source.times.data(), {extent(source.times.size())}, owner);
    return py::make_tuple(values, sds_model::to_name(source.kind), indices, times);
}

}  // namespace

py::dict SurfaceObject::cage() const {
    const sds_model::ControlCage& cage = m_source->cage;
    const auto view = [&](const auto& values, Shape shape) { return to_view(values.data(), shape, m_source); };
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
    const auto add_map = [&](const std::string& name, const auto& points, const auto& indices) {
        uvs[py::cast(name)] = py::make_tuple(view(points, {extent(points.size() / 3), 3}),
                                             view(indices, {extent(cage.get_corner_count())}));
    };
    if (cage.has_uvs()) add_map("uv", cage.uv_points, cage.uv_indices);
    for (const sds_model::UvSource& map : m_source->further_uvs) add_map(map.name, map.points, map.indices);
    out["uvs"] = uvs;
    out["colors"] = py::none();
    if (cage.has_colors()) {
        const py::array colors = view(cage.vertex_colors, {extent(cage.vertex_colors.size() / 4), 4});
        out["colors"] = colors;
        if (!cage.color_indices.empty())
            out["colors"] = py::make_tuple(colors, view(cage.color_indices, {extent(cage.get_corner_count())}));
    }
    out["motion"] = py::none();
    const sds_model::MeshMotion& motion = m_source->motion;
    if (!motion.times.empty()) {
        py::list samples;
        for (const std::vector<float>& each : motion.samples)
            samples.append(view(each, {extent(cage.get_vertex_count()), 3}));
        out["motion"] = py::make_tuple(view(motion.times, {extent(motion.times.size())}), samples);
    }
    py::dict properties;
    for (const sds_model::PropertySource& source : m_source->properties)
        properties[py::cast(source.name)] = to_tuple(source, m_source);
    out["properties"] = properties;
    out["interpolation"] =
        m_modes.open_borders ? ModeWords::open_borders : static_cast<unsigned int>(m_modes.positions);
    out["uv_interpolation"] = static_cast<unsigned int>(m_modes.uvs);
    // sharpness that the surface does not follow was settled when the file was read
    out["fractional"] = m_modes.is_refined() ? "exact" : "drop";
    out["isolation"] = m_modes.depth;
    out["isolation_error"] = m_modes.error;
    out["crease_method"] = m_modes.chaikin;
    out["triangle_rule"] = m_modes.smooth_triangles;
    return out;
}

}  // namespace sds_python

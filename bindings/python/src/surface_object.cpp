#include "surface_object.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "io/json.h"
#include "io/obj/read_obj.h"
#include "lock_release.h"
#include "model/sample_grid.h"
#include "model/surface_statistics.h"
#include "model/uv_join.h"
#include "qn_ctx/ctx_eval.h"
#include "render/batch.h"
#include "sds/mesh_property/element_types.h"

namespace py = pybind11;

namespace sds_python {

namespace {

constexpr std::size_t rays_per_chunk = 1u << 17;  // between two looks at signals
constexpr unsigned int max_level = 12;

TimeSamples make_time_samples(const Array<double>& times, const Array<float>& samples) {
    const auto t = span_of(times);
    const auto s = span_of(samples);
    return {{t.begin(), t.end()}, {s.begin(), s.end()}};
}

sds_model::PropertySource make_source(const PropertyArrays& given) {
    sds_model::PropertySource source{given.name, {}, {}, given.extent, {}, {}, {}};
    using Kind = PolyMeshProperty::Type;
    const Kind kinds[] = {Kind::per_vertex, Kind::varying, Kind::per_polygon, Kind::constant};
    const auto* const kind =
        std::find_if(std::begin(kinds), std::end(kinds), [&](Kind k) { return given.kind == sds_model::to_name(k); });
    if (kind == std::end(kinds) || !ResourceProperty::find_type(CoreString(given.type), source.type))
        throw std::invalid_argument("property '" + given.name + "': unknown kind or type");
    source.kind = *kind;
    const auto indices = span_of(given.indices);
    const auto times = span_of(given.times);
    source.indices.assign(indices.begin(), indices.end());
    source.times.assign(times.begin(), times.end());
    const std::size_t samples = std::max<std::size_t>(times.size(), 1);
    const std::size_t item_size = std::size_t{given.extent} * ResourceProperty::get_type_size(source.type);
    const auto bytes = span_of(given.bytes);
    if (given.extent == 0 || bytes.size() % (samples * item_size) != 0)
        throw std::invalid_argument("property '" + given.name + "': values of another size");
    const std::size_t items = bytes.size() / (samples * item_size);
    for (std::size_t s = 0; s < samples; ++s) {
        ResourceProperty& values = source.samples.emplace_back(CoreString(given.name));
        values.init(source.type, given.extent, static_cast<unsigned int>(items));
        const std::uint8_t* at = bytes.data() + s * items * item_size;
        sds::with_element(source.type, [&](auto element) {
            using T = decltype(element);
            for (std::size_t i = 0; i < items; ++i)
                values.set_item_values(static_cast<unsigned int>(i), reinterpret_cast<const T*>(at + i * item_size),
                                       given.extent);
        });
    }
    return source;
}

void check_level(unsigned int level) {
    if (level > max_level) throw std::invalid_argument("level " + std::to_string(level) + ", at most 12");
}

Fragments make_fragments(const Array<std::int32_t>& primitives, const Array<double>& uv,
                         std::span<const double> times) {
    return {span_of(primitives), span_of(uv), times};
}

GeometryPlane to_plane(const double* row) { return {{row[0], row[1], row[2]}, row[3]}; }

template <class Counts>
py::dict to_counts(const Counts& items) {
    py::dict counts;
    for (const auto& [key, value] : items) counts[py::cast(key)] = value;
    return counts;
}

}  // namespace

sds_model::SurfaceModes ModeWords::get_modes() const {
    using Mode = SdsMeshGeometry::InterpolationMode;
    using UvMode = SdsMeshMaps::InterpolationMode;
    if (isolation > SdsRefinement::max_depth)
        throw std::invalid_argument("isolation " + std::to_string(isolation) + ", at most " +
                                    std::to_string(SdsRefinement::max_depth));
    if (!(isolation_error >= 0.0f && isolation_error <= 1.0f))
        throw std::invalid_argument("isolation_error is a share, from 0 to 1");
    if (interpolation == open_borders && isolation == 0)
        throw std::invalid_argument("interpolation 'none' needs an isolation of 1 and more");
    sds_model::SurfaceModes modes;
    if (interpolation < open_borders) modes.positions = static_cast<Mode>(interpolation);
    if (uv_interpolation < uvs_as_file_says) modes.uvs = static_cast<UvMode>(uv_interpolation);
    modes.depth = isolation;
    modes.error = isolation_error;
    modes.open_borders = interpolation == open_borders;
    modes.chaikin = chaikin;
    modes.smooth_triangles = smooth_triangles;
    return modes;
}

sds_model::SurfaceModes ModeWords::get_modes(const sds_model::CageRules& rules) const {
    return follow_rules(get_modes(), rules, interpolation != as_file_says, uv_interpolation != uvs_as_file_says);
}

py::str to_path_text(const std::string& text) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeFSDefaultAndSize(text.data(), static_cast<Py_ssize_t>(text.size())));
}

py::list to_list(const sds_model::Findings& findings) {
    py::list list;
    for (const nlohmann::json& finding : sds_io::to_json(findings)) {
        py::dict entry;
        for (const char* key : {"code", "severity", "message", "detail", "action"})
            entry[key] = finding[key].get<std::string>();
        entry["place"] = to_path_text(finding["first"].get<std::string>());
        entry["cases"] = finding["count"].get<std::uint64_t>();
        list.append(entry);
    }
    return list;
}

SurfaceObject::SurfaceObject(MeshWords words, const ModeWords& mode_words) {
    const sds_model::SurfaceModes modes = mode_words.get_modes();
    MeshArrays mesh{span_of(words.points),
                    span_of(words.face_counts),
                    span_of(words.face_indices),
                    {span_of(words.crease_vertices), span_of(words.crease_sharpness), mode_words.get_fractional()},
                    {span_of(words.corner_vertices), span_of(words.corner_sharpness)},
                    span_of(words.holes),
                    modes.is_refined(),
                    span_of(words.groups),
                    std::move(words.group_names),
                    {},
                    span_of(words.colors),
                    span_of(words.color_indices),
                    span_of(words.motion)};
    for (const UvArrays& uv : words.uvs) {
        const auto uv_points = span_of(uv.points);
        const auto uv_indices = span_of(uv.indices);
        mesh.uvs.push_back({uv.name, {uv_points.begin(), uv_points.end()}, {uv_indices.begin(), uv_indices.end()}});
    }
    for (const PropertyArrays& property : words.properties) mesh.properties.push_back(make_source(property));
    TimeSamples time_samples = make_time_samples(words.times, words.samples);
    m_facts.point_count = mesh.points.size() / 3;
    m_facts.face_count = mesh.face_counts.size();

    const LockRelease release;
    check_arrays(mesh, m_facts.findings);
    check_finite(time_samples.positions, "time samples, point", m_facts.findings);
    throw_errors(m_facts.findings);
    const Sharpness sharpness = settle_sharpness(mesh, m_facts.findings);
    throw_errors(m_facts.findings);
    const sds_model::CageView cage{mesh.points,
                                   mesh.face_counts,
                                   mesh.face_indices,
                                   sharpness.creases.flags,
                                   mesh.groups,
                                   mesh.group_names,
                                   {},
                                   {},
                                   mesh.colors,
                                   sharpness.creases.sharpness,
                                   sharpness.vertices,
                                   sharpness.holes,
                                   mesh.color_indices};
    for (sds_model::UvSource& map : mesh.uvs) {
        join_uvs(cage, map);
        m_facts.uv_joins.push_back(map.join);
    }
    std::shared_ptr<CageProperties> properties;
    if (!mesh.properties.empty())
        properties =
            std::make_shared<CageProperties>(CageProperties{{mesh.face_counts.begin(), mesh.face_counts.end()},
                                                            {mesh.face_indices.begin(), mesh.face_indices.end()},
                                                            sharpness.creases.flags,
                                                            std::move(mesh.properties)});
    m_state = std::make_shared<const SurfaceState>(
        std::make_unique<sds_model::Surface>(cage, mesh.uvs, mesh.motion, modes, nullptr), std::move(time_samples),
        std::move(properties));
}

SurfaceObject::SurfaceObject(sds_model::MeshSource source, sds_model::Findings findings, const ModeWords& words) {
    throw_errors(findings);
    m_source = std::make_shared<const sds_model::MeshSource>(std::move(source));
    const sds_model::ControlCage& cage = m_source->cage;
    m_facts = {cage.get_vertex_count(), cage.get_polygon_count(), std::move(findings), {}};
    m_modes = words.get_modes(cage.rules);
    std::vector<sds_model::UvSource> maps = m_source->further_uvs;
    if (cage.has_uvs()) maps.insert(maps.begin(), {"uv", cage.uv_points, cage.uv_indices});
    for (sds_model::UvSource& map : maps) {
        join_uvs(cage.view(), map);
        m_facts.uv_joins.push_back(map.join);
    }
    sds_model::CageView view = cage.view();
    view.uv_points = {};
    view.uv_indices = {};
    TimeSamples samples{m_source->motion.times, {}};
    for (const std::vector<float>& each : m_source->motion.samples)
        samples.positions.insert(samples.positions.end(), each.begin(), each.end());
    std::shared_ptr<const CageProperties> properties;
    if (!m_source->properties.empty())
        properties = std::make_shared<const CageProperties>(
            CageProperties{cage.polygon_counts, cage.polygon_indices, cage.corner_creases, m_source->properties});
    m_state = std::make_shared<const SurfaceState>(
        std::make_unique<sds_model::Surface>(view, maps, m_source->motion.vectors, m_modes, nullptr),
        std::move(samples), std::move(properties));
}

std::unique_ptr<SurfaceObject> SurfaceObject::load_obj(const std::string& path, const ModeWords& words) {
    const LockRelease release;
    sds_io::ReadObjResult read =
        sds_io::read_obj(path, {.fractional = words.get_fractional(), .is_refined = words.get_modes().is_refined()});
    throw_errors(read.findings);
    sds_model::MeshSource source;
    source.name = path;
    source.cage = std::move(*read.cage);
    return std::make_unique<SurfaceObject>(std::move(source), std::move(read.findings), words);
}

void SurfaceObject::update(const Array<float>& points, const Array<float>& motion, const Array<double>& times,
                           const Array<float>& samples) {
    const std::shared_ptr<const SurfaceState> state = m_state;
    TimeSamples time_samples = make_time_samples(times, samples);
    std::shared_ptr<const SurfaceState> next;
    {
        const LockRelease release;
        sds_model::Findings findings;
        check_finite(span_of(points), "point", findings);
        check_finite(span_of(motion), "motion of point", findings);
        check_finite(time_samples.positions, "time samples, point", findings);
        throw_errors(findings);
        next = std::make_shared<const SurfaceState>(state->surface().moved(span_of(points), span_of(motion)),
                                                    std::move(time_samples), state->get_properties());
    }
    m_state = std::move(next);
}

py::tuple SurfaceObject::intersect(const Array<double>& origins, const Array<double>& directions,
                                   const Array<double>& tnear, const Array<double>& tfar, const Array<double>& times,
                                   unsigned int level) const {
    const RayArrays rays{span_of(origins), span_of(directions), span_of(tnear), span_of(tfar), span_of(times)};
    const Shape shape{extent(rays.size())};
    py::array_t<std::int32_t> primitives(shape);
    py::array_t<double> u(shape), v(shape), t(shape);
    const HitArrays hits{primitives.mutable_data(), u.mutable_data(), v.mutable_data(), t.mutable_data()};
    trace_chunks(rays, level,
                 [&](const SurfaceState& state, const sds_render::Shutter& shutter, std::size_t first,
                     std::size_t last) { state.intersect(rays, first, last, level, shutter, hits); });
    return py::make_tuple(primitives, u, v, t);
}

py::array SurfaceObject::occluded(const Array<double>& origins, const Array<double>& directions,
                                  const Array<double>& tnear, const Array<double>& tfar, const Array<double>& times,
                                  unsigned int level) const {
    const RayArrays rays{span_of(origins), span_of(directions), span_of(tnear), span_of(tfar), span_of(times)};
    py::array_t<bool> out(Shape{extent(rays.size())});
    bool* data = out.mutable_data();
    trace_chunks(rays, level,
                 [&](const SurfaceState& state, const sds_render::Shutter& shutter, std::size_t first,
                     std::size_t last) { state.find_occluded(rays, first, last, level, shutter, data); });
    return out;
}

template <class Trace>
void SurfaceObject::trace_chunks(const RayArrays& rays, unsigned int level, const Trace& trace) const {
    check_level(level);
    const std::shared_ptr<const SurfaceState> state = m_state;
    const sds_render::Shutter shutter =
        sds_render::get_shutter_of(rays.size(), [&](std::size_t i) { return rays.at(i); });
    for (const double time : {shutter.open, shutter.close}) state->surface().check_time(time);
    for (std::size_t first = 0; first < rays.size(); first += rays_per_chunk) {
        {
            const LockRelease release;
            trace(*state, shutter, first, std::min(first + rays_per_chunk, rays.size()));
        }
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
}

py::array SurfaceObject::sample(const Array<std::int32_t>& primitives, const Array<double>& uv,
                                const Array<double>& times, unsigned int level) const {
    check_level(level);
    const std::shared_ptr<const SurfaceState> state = m_state;
    const Fragments fragments = make_fragments(primitives, uv, span_of(times));
    py::array_t<double> out(Shape{extent(fragments.size()), sds_model::sample_row_size});
    double* data = out.mutable_data();
    {
        const LockRelease release;
        state->sample(fragments, level, data);
    }
    return out;
}

py::array SurfaceObject::limit_points(const Array<std::int32_t>& primitives, const Array<double>& uv) const {
    const std::shared_ptr<const SurfaceState> state = m_state;
    const double at_rest = 0.0;
    const Fragments fragments = make_fragments(primitives, uv, {&at_rest, 1});
    py::array_t<float> out(Shape{extent(fragments.size()), extent(limit_row_size)});
    float* data = out.mutable_data();
    {
        const LockRelease release;
        state->compute_limit_points(fragments, data);
    }
    return out;
}

py::array SurfaceObject::limit_grid(unsigned int cells, double time) const {
    if (cells == 0) throw std::invalid_argument("a grid has at least one cell");
    const std::shared_ptr<const SurfaceState> state = m_state;
    std::vector<double> rows;
    {
        const LockRelease release;
        rows = sds_model::sample_surface(state->surface(), cells, time);
    }
    const auto side = extent(cells) + 1;
    return to_numpy(std::move(rows), {extent(quad_count()), side, side, sds_model::sample_row_size});
}

py::array SurfaceObject::patches(double time) const {
    const std::shared_ptr<const SurfaceState> state = m_state;
    std::vector<float> controls;
    {
        const LockRelease release;
        controls = sds_model::patch_controls(state->surface(), time);
    }
    const auto count = extent(controls.size()) / 48;
    return to_numpy(std::move(controls), {count, 16, 3});
}

py::array SurfaceObject::patch_places() const {
    std::vector<std::int32_t> places = sds_model::patch_places(m_state->surface());
    const auto count = extent(places.size()) / sds_model::patch_place_size;
    return to_numpy(std::move(places), {count, sds_model::patch_place_size});
}

py::array SurfaceObject::look_up_uvs(const Array<std::int32_t>& primitives, const Array<double>& uv,
                                     unsigned int map) const {
    constexpr double rest = 0.0;
    const std::shared_ptr<const SurfaceState> state = m_state;
    const Fragments fragments = make_fragments(primitives, uv, {&rest, 1});
    py::array_t<double> out(Shape{extent(fragments.size()), sds_model::uv_row_size});
    double* data = out.mutable_data();
    {
        const LockRelease release;
        state->look_up_uvs(fragments, map, data);
    }
    return out;
}

py::array SurfaceObject::look_up_property(const Array<std::int32_t>& primitives, const Array<double>& uv,
                                          const Array<double>& times, unsigned int property) const {
    const std::shared_ptr<const SurfaceState> state = m_state;
    const Fragments fragments = make_fragments(primitives, uv, span_of(times));
    const auto width = extent(state->get_properties()->sources.at(property).extent);
    py::array_t<double> out(Shape{extent(fragments.size()), 3, width});
    double* data = out.mutable_data();
    {
        const LockRelease release;
        state->look_up_property(fragments, property, data);
    }
    return out;
}

std::vector<std::string> SurfaceObject::property_names() const {
    std::vector<std::string> names;
    if (const auto& properties = m_state->get_properties())
        for (const sds_model::PropertySource& source : properties->sources) names.push_back(source.name);
    return names;
}

py::array SurfaceObject::look_up_colors(const Array<std::int32_t>& primitives, const Array<double>& uv,
                                        unsigned int map) const {
    constexpr double rest = 0.0;
    const std::shared_ptr<const SurfaceState> state = m_state;
    const Fragments fragments = make_fragments(primitives, uv, {&rest, 1});
    py::array_t<float> out(Shape{extent(fragments.size()), 4});
    float* data = out.mutable_data();
    {
        const LockRelease release;
        state->look_up_colors(fragments, map, data);
    }
    return out;
}

py::array SurfaceObject::select(const Array<double>& sides, const Array<double>& near_plane,
                                const Array<double>& far_plane, bool inside, unsigned int level) const {
    check_level(level);
    const auto side_rows = span_of(sides);
    if (side_rows.size() > 4 * GeometryFrustum::max_side_count)
        throw std::invalid_argument("a frustum has up to four sides");
    GeometryFrustum frustum;
    for (std::size_t i = 0; i < side_rows.size(); i += 4) frustum.sides[frustum.side_count++] = to_plane(&side_rows[i]);
    if (near_plane.size() == 4) frustum.near_plane = to_plane(near_plane.data());
    if (far_plane.size() == 4) frustum.far_plane = to_plane(far_plane.data());

    const std::shared_ptr<const SurfaceState> state = m_state;
    std::vector<unsigned int> selected;
    {
        const LockRelease release;
        selected =
            state->select(frustum, inside ? sds_render::SelectMode::inside : sds_render::SelectMode::touch, level);
    }
    const auto count = extent(selected.size());
    return to_numpy(std::move(selected), {count});
}

py::array SurfaceObject::bbox() const {
    const GMathBbox3<double> box = m_state->surface().make_mesh(0).get_bbox();
    py::array_t<double> out({2, 3});
    std::copy_n(box.get_max().get_data(), 3, std::copy_n(box.get_min().get_data(), 3, out.mutable_data()));
    return out;
}

double SurfaceObject::area() const {
    const CtxShader shader;
    return m_state->surface().make_mesh(0).estimate_area(CtxEval(shader), {});
}

py::dict SurfaceObject::info() const {
    const sds_model::Surface& surface = m_state->surface();
    const sds_model::VertexClasses vertices = sds_model::classify_vertices(surface);
    const sds_model::PatchClasses patches = sds_model::classify_patches(surface);
    py::dict info;
    info["points"] = m_facts.point_count;
    info["faces"] = m_facts.face_count;
    info["quads"] = surface.get_base().get_primitive_count();
    info["subdivision_step"] = surface.get_base().get_base_tessellation_level();
    info["vertices"] = py::dict(py::arg("smooth") = vertices.smooth, py::arg("dart") = vertices.dart,
                                py::arg("crease") = vertices.crease, py::arg("corner") = vertices.corner,
                                py::arg("border") = vertices.border);
    info["patches"] = py::dict(py::arg("regular") = patches.regular, py::arg("boundary") = patches.boundary,
                               py::arg("irregular") = patches.irregular);
    const sds_model::RefinementStatistics refined = sds_model::refinement_statistics(surface);
    info["isolation"] =
        py::dict(py::arg("depth") = refined.depth, py::arg("patches") = refined.patches,
                 py::arg("leaves") = refined.leaves, py::arg("levels") = to_counts(refined.patch_levels));
    info["valences"] = to_counts(sds_model::valence_histogram(surface.get_base()));
    info["shading_groups"] = py::cast(group_names());
    info["uv_maps"] = py::cast(uv_names());
    std::uint32_t split = 0, welded = 0;
    for (const sds_model::UvJoinCounts& join : m_facts.uv_joins) {
        split += join.split_points;
        welded += join.welded_points;
    }
    info["uv_points"] = py::dict(py::arg("split") = split, py::arg("welded") = welded);
    py::dict bytes;
    for (const sds_model::ArraySize& size : sds_model::array_sizes(surface)) bytes[py::cast(size.name)] = size.bytes;
    info["bytes"] = bytes;
    return info;
}

py::list SurfaceObject::findings() const { return to_list(m_facts.findings); }

std::vector<std::string> SurfaceObject::uv_names() const {
    const SdsMeshMaps& maps = m_state->surface().get_maps();
    std::vector<std::string> names;
    for (unsigned int m = 0; m < maps.get_uv_map_count(); ++m) names.push_back(maps.get_uv_map_name(m).to_std());
    return names;
}

std::vector<std::string> SurfaceObject::group_names() const {
    std::vector<std::string> names;
    for (const CoreString& name : m_state->surface().get_base().get_shading_group_names())
        names.push_back(name.to_std());
    return names;
}

py::array SurfaceObject::quads() const { return to_view(m_state->surface().get_base().get_quad_indices(), 4, m_state); }

py::array SurfaceObject::neighbours() const {
    return to_view(m_state->surface().get_base().get_edges().opposite_edges, 4, m_state);
}

py::array SurfaceObject::vertices() const {
    return to_view(m_state->surface().get_geometry().get_vertices(), 3, m_state);
}

py::array SurfaceObject::quad_groups() const {
    const SdsMeshBase& base = m_state->surface().get_base();
    std::vector<std::uint32_t> groups(quad_count());
    for (unsigned int q = 0; q < groups.size(); ++q) groups[q] = base.get_primitive_shading_group_index(q);
    return to_numpy(std::move(groups), {extent(quad_count())});
}

py::array SurfaceObject::quad_faces() const {
    const SdsMeshBase& base = m_state->surface().get_base();
    std::vector<std::uint32_t> faces(quad_count());
    for (unsigned int q = 0; q < faces.size(); ++q) faces[q] = base.get_primitive_polygon_id(q);
    return to_numpy(std::move(faces), {extent(quad_count())});
}

}  // namespace sds_python

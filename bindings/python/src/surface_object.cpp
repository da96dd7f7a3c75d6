#include "surface_object.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "io/json.h"
#include "io/obj/read_obj.h"
#include "model/sample_grid.h"
#include "model/surface_statistics.h"
#include "model/uv_join.h"
#include "qn_ctx/ctx_eval.h"
#include "render/batch.h"

namespace py = pybind11;

namespace sds_python {

namespace {

constexpr std::size_t rays_per_chunk = 1u << 17;  // between two looks at signals
constexpr unsigned int max_level = 12;

sds_model::FractionalSharpness get_fractional(const ModeWords& words) {
    return static_cast<sds_model::FractionalSharpness>(words.fractional);
}

sds_model::SurfaceModes make_modes(const ModeWords& words) {
    using Mode = SdsMeshGeometry::InterpolationMode;
    if (words.isolation > SdsRefinement::max_depth)
        throw std::invalid_argument("isolation " + std::to_string(words.isolation) + ", at most " +
                                    std::to_string(SdsRefinement::max_depth));
    if (!(words.isolation_error >= 0.0f && words.isolation_error <= 1.0f))
        throw std::invalid_argument("isolation_error is a share, from 0 to 1");
    if (words.interpolation == ModeWords::open_borders && words.isolation == 0)
        throw std::invalid_argument("interpolation 'none' needs an isolation of 1 and more");
    sds_model::SurfaceModes modes;
    modes.positions =
        words.interpolation < ModeWords::open_borders ? static_cast<Mode>(words.interpolation) : Mode::corners_fixed;
    modes.uvs = static_cast<SdsMeshMaps::InterpolationMode>(words.uv_interpolation);
    modes.depth = words.isolation;
    modes.error = words.isolation_error;
    modes.open_borders = words.interpolation == ModeWords::open_borders;
    modes.chaikin = words.chaikin;
    modes.smooth_triangles = words.smooth_triangles;
    return modes;
}

TimeSamples make_time_samples(const Array<double>& times, const Array<float>& samples) {
    const auto t = span_of(times);
    const auto s = span_of(samples);
    return {{t.begin(), t.end()}, {s.begin(), s.end()}};
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
    const sds_model::SurfaceModes modes = make_modes(mode_words);
    MeshArrays mesh{span_of(words.points),
                    span_of(words.face_counts),
                    span_of(words.face_indices),
                    {span_of(words.crease_vertices), span_of(words.crease_sharpness), get_fractional(mode_words)},
                    {span_of(words.corner_vertices), span_of(words.corner_sharpness)},
                    span_of(words.holes),
                    modes.is_refined(),
                    span_of(words.groups),
                    std::move(words.group_names),
                    {},
                    span_of(words.colors),
                    span_of(words.motion)};
    for (const UvArrays& uv : words.uvs) {
        const auto uv_points = span_of(uv.points);
        const auto uv_indices = span_of(uv.indices);
        mesh.uvs.push_back({uv.name, {uv_points.begin(), uv_points.end()}, {uv_indices.begin(), uv_indices.end()}});
    }
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
                                   sharpness.holes};
    for (sds_model::UvSource& map : mesh.uvs) {
        join_uvs(cage, map);
        m_facts.uv_joins.push_back(map.join);
    }
    m_state = std::make_shared<const SurfaceState>(
        std::make_unique<sds_model::Surface>(cage, mesh.uvs, mesh.motion, modes, nullptr), std::move(time_samples));
}

std::unique_ptr<SurfaceObject> SurfaceObject::load_obj(const std::string& path, const ModeWords& words) {
    const LockRelease release;
    const sds_model::SurfaceModes modes = make_modes(words);
    sds_io::ReadObjResult read =
        sds_io::read_obj(path, {.fractional = get_fractional(words), .is_refined = modes.is_refined()});
    throw_errors(read.findings);
    join_uvs(*read.cage);
    std::unique_ptr<SurfaceObject> object(new SurfaceObject);
    object->m_facts = {read.cage->get_vertex_count(), read.cage->get_polygon_count(), read.findings, {}};
    if (read.cage->has_uvs()) object->m_facts.uv_joins.push_back(read.cage->uv_join);
    const bool has_border_rule = words.interpolation != ModeWords::as_file_says;
    object->m_state = std::make_shared<const SurfaceState>(
        std::make_unique<sds_model::Surface>(read.cage->view(), std::vector<sds_model::UvSource>{},
                                             std::span<const float>{},
                                             follow_rules(modes, read.cage->rules, has_border_rule, true), nullptr),
        TimeSamples{});
    return object;
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
                                                    std::move(time_samples));
    }
    m_state = std::move(next);
}

py::tuple SurfaceObject::intersect(const Array<double>& origins, const Array<double>& directions,
                                   const Array<double>& tnear, const Array<double>& tfar, const Array<double>& times,
                                   unsigned int level) const {
    check_level(level);
    const std::shared_ptr<const SurfaceState> state = m_state;
    const RayArrays rays{span_of(origins), span_of(directions), span_of(tnear), span_of(tfar), span_of(times)};
    const Shape shape{extent(rays.size())};
    py::array_t<std::int32_t> primitives(shape);
    py::array_t<double> u(shape), v(shape), t(shape);
    const HitArrays hits{primitives.mutable_data(), u.mutable_data(), v.mutable_data(), t.mutable_data()};
    const sds_render::Shutter shutter =
        sds_render::get_shutter_of(rays.size(), [&](std::size_t i) { return rays.at(i); });
    for (const double time : {shutter.open, shutter.close}) state->surface().check_time(time);
    for (std::size_t first = 0; first < rays.size(); first += rays_per_chunk) {
        {
            const LockRelease release;
            state->intersect(rays, first, std::min(first + rays_per_chunk, rays.size()), level, shutter, hits);
        }
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
    return py::make_tuple(primitives, u, v, t);
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

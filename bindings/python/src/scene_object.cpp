#include "scene_object.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <map>
#include <optional>
#include <thread>

#include "lock_release.h"
#include "model/array_size.h"
#include "model/quad_places.h"
#include "render/batch.h"
#include "render/framing.h"

namespace py = pybind11;

namespace sds_python {

namespace {

constexpr std::size_t rays_per_chunk = 1u << 17;  // between two looks at signals
constexpr std::chrono::milliseconds look_interval(50);

class WatchedProgress : public AppProgressBar {
public:
    void cancel() { m_is_cancelled = true; }

private:
    bool is_cancelled() override { return m_is_cancelled; }

    std::atomic<bool> m_is_cancelled = false;
};

sds_render::Vec3 to_vector(const Array<double>& values) {
    return {values.data()[0], values.data()[1], values.data()[2]};
}

sds_render::Transform make_transform(const PlaceWords& place) {
    const auto times = span_of(place.times);
    std::vector<sds_render::Matrix4> matrices(std::max<std::size_t>(times.size(), 1));
    const double* row = place.matrices.data();
    for (sds_render::Matrix4& matrix : matrices)
        for (unsigned int r = 0; r < 4; ++r, row += 4) std::copy_n(row, 4, matrix[r]);
    if (times.empty()) return sds_render::Transform(matrices.front());
    return {{times.begin(), times.end()}, std::move(matrices)};
}

sds_render::CameraPose read_pose(const double* row) {
    sds_render::CameraPose pose;
    for (sds_render::Vec3* vector : {&pose.position, &pose.right, &pose.up, &pose.forward}) {
        *vector = {row[0], row[1], row[2]};
        row += 3;
    }
    for (double* number : {&pose.width, &pose.shift_x, &pose.shift_y, &pose.lens_radius, &pose.focus}) *number = *row++;
    pose.is_parallel = *row != 0.0;
    return pose;
}

/// Nothing where the scene is to be framed.
std::optional<sds_render::Camera> make_camera(const ViewWords& words, unsigned int width, unsigned int height) {
    const auto rows = span_of(words.camera_rows), times = span_of(words.camera_times);
    std::vector<sds_render::CameraPose> poses;
    for (std::size_t i = 0; i < rows.size(); i += camera_row_size) poses.push_back(read_pose(&rows[i]));
    if (!poses.empty()) return sds_render::Camera({times.begin(), times.end()}, std::move(poses), width, height);
    if (words.position.size() == 0) return std::nullopt;
    return sds_render::Camera(sds_render::look_at(to_vector(words.position), to_vector(words.target),
                                                  to_vector(words.up_vector), words.field_of_view, width, height),
                              width, height);
}

}  // namespace

void write_pose(const sds_render::CameraPose& pose, double* row) {
    for (const sds_render::Vec3& vector : {pose.position, pose.right, pose.up, pose.forward})
        row = std::copy_n(vector.get_data(), 3, row);
    for (const double number :
         {pose.width, pose.shift_x, pose.shift_y, pose.lens_radius, pose.focus, pose.is_parallel ? 1.0 : 0.0})
        *row++ = number;
}

SceneObject::SceneObject(const std::vector<const SurfaceObject*>& surfaces, const std::vector<PlaceWords>& places,
                         unsigned int level) {
    static const CageProperties none;
    std::map<const SurfaceState*, std::uint32_t> known;
    std::vector<sds_model::MeshScene::Mesh> meshes;
    std::vector<sds_model::MeshInstance> instances;
    for (std::size_t i = 0; i < surfaces.size(); ++i) {
        const std::shared_ptr<const SurfaceState> state = surfaces[i]->state();
        const auto [entry, is_new] = known.emplace(state.get(), static_cast<std::uint32_t>(meshes.size()));
        if (is_new) {
            const CageProperties& properties = state->get_properties() ? *state->get_properties() : none;
            meshes.push_back({&state->surface(), properties.get_cage(), &properties.sources});
            m_states.push_back(state);
            m_is_animated |= state->surface().get_geometry().is_animated();
        }
        instances.push_back({places[i].name, entry->second, make_transform(places[i])});
        m_is_animated |= instances.back().transform.is_moving();
    }
    const LockRelease release;
    m_meshes = std::make_unique<sds_model::MeshScene>(meshes, std::move(instances), level);
}

std::shared_ptr<const sds_render::Scene> SceneObject::get_scene(sds_render::Shutter shutter) const {
    const std::scoped_lock lock(m_mutex);
    if (m_scene != nullptr && m_scene->get_shutter().open == shutter.open &&
        m_scene->get_shutter().close == shutter.close)
        return m_scene;
    for (const auto& state : m_states)
        for (const double time : {shutter.open, shutter.close}) state->surface().check_time(time);
    auto scene = std::make_shared<sds_render::Scene>(shutter);
    m_meshes->add_to(*scene);
    scene->commit();
    return m_scene = std::move(scene);
}

template <class Visit>
void SceneObject::trace(const RayArrays& rays, GeometryRayMode mode, const Visit& visit) const {
    sds_render::Shutter shutter;  // any, where nothing moves
    if (m_is_animated) shutter = sds_render::get_shutter_of(rays.size(), [&](std::size_t i) { return rays.at(i); });
    for (std::size_t first = 0; first < rays.size(); first += rays_per_chunk) {
        {
            const LockRelease release;
            const std::shared_ptr<const sds_render::Scene> scene = get_scene(shutter);
            const std::size_t count = std::min(rays_per_chunk, rays.size() - first);
            std::vector<GeometryRay> records(count);
            std::vector<unsigned int> objects(count, sds_render::no_index);
            for (std::size_t i = 0; i < count; ++i) {
                records[i] = rays.at(first + i);
                records[i].mode = mode;
            }
            sds_render::intersect_batch(*scene, records.data(), count, {}, objects.data());
            for (std::size_t i = 0; i < count; ++i) visit(first + i, records[i].hit, objects[i]);
        }
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
    }
}

py::tuple SceneObject::intersect(const Array<double>& origins, const Array<double>& directions,
                                 const Array<double>& tnear, const Array<double>& tfar,
                                 const Array<double>& times) const {
    const RayArrays rays{span_of(origins), span_of(directions), span_of(tnear), span_of(tfar), span_of(times)};
    const Shape shape{extent(rays.size())};
    py::array_t<std::int32_t> instances(shape), primitives(shape);
    py::array_t<double> u(shape), v(shape), t(shape);
    std::int32_t *const instance_out = instances.mutable_data(), *const primitive_out = primitives.mutable_data();
    double *const u_out = u.mutable_data(), *const v_out = v.mutable_data(), *const t_out = t.mutable_data();
    trace(rays, GeometryRayMode::closest, [&](std::size_t i, GeometryHit hit, unsigned int object) {
        const bool is_hit = object != sds_render::no_index;
        if (is_hit) sds_model::move_to_quad(m_meshes->get_mesh(m_meshes->get_instances()[object]), hit);
        instance_out[i] = is_hit ? static_cast<std::int32_t>(object) : -1;
        primitive_out[i] = is_hit ? static_cast<std::int32_t>(hit.primitive) : -1;
        u_out[i] = is_hit ? hit.u : 0.0;
        v_out[i] = is_hit ? hit.v : 0.0;
        t_out[i] = is_hit ? hit.t : std::numeric_limits<double>::infinity();
    });
    return py::make_tuple(instances, primitives, u, v, t);
}

py::array SceneObject::occluded(const Array<double>& origins, const Array<double>& directions,
                                const Array<double>& tnear, const Array<double>& tfar,
                                const Array<double>& times) const {
    const RayArrays rays{span_of(origins), span_of(directions), span_of(tnear), span_of(tfar), span_of(times)};
    py::array_t<bool> out(Shape{extent(rays.size())});
    bool* data = out.mutable_data();
    trace(rays, GeometryRayMode::any,
          [&](std::size_t i, const GeometryHit&, unsigned int object) { data[i] = object != sds_render::no_index; });
    return out;
}

py::dict SceneObject::render(unsigned int width, unsigned int height, const ViewWords& words,
                             const sds_io::PictureOptions& options, bool keeps_unmapped, double open, double close,
                             const py::object& progress) const {
    const auto up = static_cast<sds_render::UpAxis>(words.up);
    sds_io::check_layer_names(options.layers);
    sds_model::checked_count({height, width, 4 * (options.layers.size() + 1)}, sizeof(float));
    const std::optional<sds_render::Camera> placed = make_camera(words, width, height);
    const sds_render::CameraView view{words.azimuth, words.elevation, up, words.field_of_view};

    WatchedProgress bar;
    // On a thread of its own, so that this one, which alone sees signals, can look at them.
    std::future<sds_render::Rendering> picture = std::async(std::launch::async, [&] {
        const LocklessWork work;
        sds_render::RenderOptions render_options =
            make_render_options(options, *m_meshes, up, sds_render::make_group_color(), keeps_unmapped);
        render_options.layers = sds_io::make_layers(options.layers, *m_meshes);
        const std::shared_ptr<const sds_render::Scene> scene = get_scene({open, close});
        return sds_render::render(*scene, placed ? *placed : sds_render::frame_scene(*scene, view, width, height),
                                  render_options, &bar);
    });
    try {
        for (bool is_done = false; !is_done;) {
            {
                const LockRelease release;
                is_done = picture.wait_for(look_interval) == std::future_status::ready;
            }
            if (PyErr_CheckSignals() != 0) throw py::error_already_set();
            if (!progress.is_none() && !is_done) progress(bar.get_position());
        }
    } catch (...) {
        bar.cancel();
        const LockRelease release;
        picture.wait();
        throw;
    }
    sds_render::Rendering rendering = picture.get();
    if (!progress.is_none()) progress(1.0);
    py::dict channels;
    const Shape shape{extent(height), extent(width)};
    for (const sds_render::Channel& channel : rendering.image.get_channels()) {
        if (channel.kind == sds_render::ChannelKind::id)
            channels[py::cast(channel.name)] = to_numpy(std::vector(channel.ids), shape);
        else
            channels[py::cast(channel.name)] = to_numpy(std::vector(channel.values), shape);
    }
    return channels;
}

py::array SceneObject::bbox() const {
    sds_render::Bbox3 box;
    {
        const LockRelease release;
        box = get_scene({})->get_bbox();
    }
    py::array_t<double> out({2, 3});
    std::copy_n(box.get_max().get_data(), 3, std::copy_n(box.get_min().get_data(), 3, out.mutable_data()));
    return out;
}

}  // namespace sds_python

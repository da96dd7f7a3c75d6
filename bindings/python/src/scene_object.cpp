#include "scene_object.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <map>
#include <thread>

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

}  // namespace

SceneObject::SceneObject(const std::vector<const SurfaceObject*>& surfaces, const Array<double>& matrices,
                         unsigned int level) {
    std::map<const SurfaceState*, std::size_t> known;
    for (std::size_t i = 0; i < surfaces.size(); ++i) {
        m_states.push_back(surfaces[i]->state());
        const sds_model::Surface& surface = m_states.back()->surface();
        const auto [entry, is_new] = known.emplace(m_states.back().get(), m_meshes.size());
        if (is_new) m_meshes.push_back(surface.make_mesh(level));
        m_mesh_of.push_back(entry->second);
        m_is_animated |= surface.get_geometry().is_animated();
        sds_render::Matrix4 matrix;
        for (unsigned int row = 0; row < 4; ++row) std::copy_n(matrices.data() + 16 * i + 4 * row, 4, matrix[row]);
        m_transforms.emplace_back(matrix);
    }
}

std::shared_ptr<const sds_render::Scene> SceneObject::get_scene(sds_render::Shutter shutter) const {
    if (!m_is_animated) shutter = {};
    const std::scoped_lock lock(m_mutex);
    if (m_scene != nullptr && m_scene->get_shutter().open == shutter.open &&
        m_scene->get_shutter().close == shutter.close)
        return m_scene;
    for (const auto& state : m_states)
        for (const double time : {shutter.open, shutter.close}) state->surface().check_time(time);
    auto scene = std::make_shared<sds_render::Scene>(shutter);
    for (std::size_t i = 0; i < size(); ++i) scene->add(m_meshes[m_mesh_of[i]], m_transforms[i]);
    scene->commit();
    return m_scene = std::move(scene);
}

template <class Visit>
void SceneObject::trace(const RayArrays& rays, GeometryRayMode mode, const Visit& visit) const {
    const sds_render::Shutter shutter =
        sds_render::get_shutter_of(rays.size(), [&](std::size_t i) { return rays.at(i); });
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
        if (is_hit) sds_model::move_to_quad(m_meshes[m_mesh_of[object]], hit);
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

py::dict SceneObject::render(const PictureWords& words, double open, double close, const py::object& progress) const {
    sds_render::RenderOptions options;
    options.samples = words.samples;
    options.background = words.background;
    for (const std::string& name : words.layers) options.layers.push_back(sds_render::make_layer(name));
    sds_model::checked_count({words.height, words.width, 4 * (options.layers.size() + 1)}, sizeof(float));
    const bool is_placed = words.target.size() == 3;
    const sds_render::Vec3 position = is_placed ? to_vector(words.position) : sds_render::Vec3{0, 0, 0},
                           target = is_placed ? to_vector(words.target) : position,
                           up = is_placed ? to_vector(words.up) : position;

    WatchedProgress bar;
    // On a thread of its own, so that this one, which alone sees signals, can look at them.
    std::future<sds_render::Rendering> picture = std::async(std::launch::async, [&] {
        const std::shared_ptr<const sds_render::Scene> scene = get_scene({open, close});
        sds_render::CameraView view;
        view.azimuth = words.azimuth;
        view.elevation = words.elevation;
        view.field_of_view = words.field_of_view;
        const sds_render::Camera camera =
            is_placed ? sds_render::Camera(
                            sds_render::look_at(position, target, up, words.field_of_view, words.width, words.height),
                            words.width, words.height)
                      : sds_render::frame_scene(*scene, view, words.width, words.height);
        return sds_render::render(*scene, camera, options, &bar);
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
    const Shape shape{extent(words.height), extent(words.width)};
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

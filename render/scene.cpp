#include "render/scene.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "render/scene_impl.h"

namespace sds_render {

namespace {

// Throws what the device has to say.
void check_device(RTCDevice device) {
    switch (rtcGetDeviceError(device)) {
        case RTC_ERROR_NONE:
            return;
        case RTC_ERROR_OUT_OF_MEMORY:
            throw std::bad_alloc();
        default:
            throw std::runtime_error("the ray-tracing hierarchy could not be built");
    }
}

void bounds_callback(const RTCBoundsFunctionArguments* arguments) {
    auto& object = *static_cast<SceneObject*>(arguments->geometryUserPtr);
    object.build_started.observe();
    float lower[3], upper[3];
    object.space->narrow(object.bounds.get(arguments->timeStep, arguments->primID), lower, upper);
    RTCBounds& out = *arguments->bounds_o;
    out = RTCBounds{lower[0], lower[1], lower[2], 0.0f, upper[0], upper[1], upper[2], 0.0f};
    object.build_finished.publish();
}

}  // namespace

Scene::Scene(const Shutter& shutter) : m_impl(std::make_unique<Impl>()) { m_impl->shutter = shutter; }
Scene::~Scene() = default;

unsigned int Scene::add(const GeometryObject& object) {
    auto entry = std::make_unique<SceneObject>();
    entry->object = &object;
    entry->index = get_object_count();
    entry->ray_data.has_motion_blur = object.is_animated();
    m_impl->objects.push_back(std::move(entry));
    return get_object_count() - 1;
}

void Scene::commit() {
    m_impl->set_motion_sampling();
    m_impl->compute_bounds();
    m_impl->build();
    for (const auto& object : m_impl->objects) object->bounds = {};
}

unsigned int Scene::get_object_count() const { return static_cast<unsigned int>(m_impl->objects.size()); }
const GeometryObject& Scene::get_object(const unsigned int& index) const { return *m_impl->objects[index]->object; }
const Shutter& Scene::get_shutter() const { return m_impl->shutter; }
const Bbox3& Scene::get_bbox() const { return m_impl->bbox; }
double Scene::get_radius() const { return m_impl->space.get_radius(); }
const CtxShader& Scene::get_shader_ctx() const { return m_impl->shader; }

void Scene::Impl::set_motion_sampling() {
    if (!is_moving()) return;
    std::vector<double> times{shutter.open, shutter.close};
    for (const auto& object : objects) append_sample_times(*object->object, shutter.open, shutter.close, times);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    const CoreBasicArray<double> view(static_cast<unsigned int>(times.size()), times.data());
    shader.get_motion_blur().set_time_sampling(GMathTimeSampling(view));
}

void Scene::Impl::compute_bounds() {
    std::vector<double> times;
    const GMathTimeSampling& sampling = shader.get_motion_blur().get_time_sampling();
    for (unsigned int i = 0; i < sampling.get_sample_count(); ++i) times.push_back(sampling.get_sample_time(i));

    for (const auto& entry : objects) {
        const bool moves = entry->is_animated() && is_moving();
        entry->bounds = moves ? compute_moving_bounds(shader, *entry->object, times)
                              : compute_still_bounds(shader, *entry->object, shutter.open);
        Bbox3 box = Bbox3::empty();
        for (const Bbox3& primitive : entry->bounds.boxes)
            if (is_valid_box(primitive)) box.grow(primitive);
        if (box.is_empty()) continue;
        entry->reference = box.get_center();
        bbox.grow(box);
    }
    if (!bbox.is_empty()) space = UnitSpace(bbox);
}

void Scene::Impl::build() {
    if (bbox.is_empty()) return;
    // Building runs in the calling arena. A thread count given to the device would limit the whole process.
    device.reset(rtcNewDevice(nullptr));
    if (!device) check_device(nullptr);
    hierarchy.reset(rtcNewScene(device.get()));
    check_device(device.get());
    rtcSetSceneFlags(hierarchy.get(), RTC_SCENE_FLAG_ROBUST);
    for (const auto& object : objects) attach(*object);
    for (const auto& object : objects) object->build_started.publish();
    rtcCommitScene(hierarchy.get());
    for (const auto& object : objects) object->build_finished.observe();
    try {
        check_device(device.get());
    } catch (...) {
        hierarchy.reset();
        throw;
    }
}

void Scene::Impl::attach(SceneObject& object) {
    object.space = &space;
    RTCGeometry geometry = rtcNewGeometry(device.get(), RTC_GEOMETRY_TYPE_USER);
    check_device(device.get());
    rtcSetGeometryUserPrimitiveCount(geometry, object.bounds.primitive_count);
    rtcSetGeometryTimeStepCount(geometry, object.bounds.step_count);
    rtcSetGeometryUserData(geometry, &object);
    rtcSetGeometryBoundsFunction(geometry, &bounds_callback, nullptr);
    rtcSetGeometryIntersectFunction(geometry, &intersect_primitive_callback);
    rtcSetGeometryOccludedFunction(geometry, &occlude_primitive_callback);
    rtcCommitGeometry(geometry);
    rtcAttachGeometryByID(hierarchy.get(), geometry, object.index);
    rtcReleaseGeometry(geometry);
}

}  // namespace sds_render

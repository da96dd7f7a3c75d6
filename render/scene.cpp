#include "render/scene.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <unordered_map>

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
    auto& primitives = *static_cast<BoundedPrimitives*>(arguments->geometryUserPtr);
    primitives.build_started.observe();
    float lower[3], upper[3];
    primitives.space->narrow(primitives.bounds.get(arguments->timeStep, arguments->primID), lower, upper);
    RTCBounds& out = *arguments->bounds_o;
    out = RTCBounds{lower[0], lower[1], lower[2], 0.0f, upper[0], upper[1], upper[2], 0.0f};
    primitives.build_finished.publish();
}

void commit_hierarchy(RTCDevice device, RTCScene hierarchy, const std::vector<BoundedPrimitives*>& all) {
    for (BoundedPrimitives* primitives : all) primitives->build_started.publish();
    rtcCommitScene(hierarchy);
    for (BoundedPrimitives* primitives : all) primitives->build_finished.observe();
    check_device(device);
}

// `attach_all` gives the new hierarchy its geometries and returns their primitives.
template <class AttachAll>
HierarchyHandle build_hierarchy(RTCDevice device, bool is_refitted, const AttachAll& attach_all) {
    HierarchyHandle hierarchy(rtcNewScene(device));
    check_device(device);
    rtcSetSceneFlags(hierarchy.get(),
                     is_refitted ? RTC_SCENE_FLAG_ROBUST | RTC_SCENE_FLAG_DYNAMIC : RTC_SCENE_FLAG_ROBUST);
    // Gives each geometry a hierarchy of its own, built as its own quality says.
    if (is_refitted) rtcSetSceneBuildQuality(hierarchy.get(), RTC_BUILD_QUALITY_LOW);
    commit_hierarchy(device, hierarchy.get(), attach_all(hierarchy.get()));
    return hierarchy;
}

}  // namespace

Scene::Scene(const Shutter& shutter) : m_impl(std::make_unique<Impl>()) { m_impl->shutter = shutter; }
Scene::~Scene() = default;

unsigned int Scene::add(const GeometryObject& object, const Transform& transform) {
    m_impl->entries.push_back({&object, transform});
    return get_object_count() - 1;
}

std::size_t Scene::estimate_hierarchy_size(std::size_t primitive_count, std::size_t step_count) {
    // Peaks of Embree's builders from 10,000 primitives on are 113 to 142 and 224 to 248 bytes.
    const std::size_t still = 144, moving = 256;
    return primitive_count * ((step_count > 1 ? moving : still) + step_count * sizeof(Bbox3));
}

void Scene::commit(const HierarchyUse& use) {
    m_impl->sort_entries();
    m_impl->set_motion_sampling();
    m_impl->is_refitted = use == HierarchyUse::refitted && m_impl->can_be_refitted();
    m_impl->compute_bounds();
    m_impl->build();
    if (!m_impl->is_refitted) m_impl->forget_bounds();
}

void Scene::update() {
    if (m_impl->is_refitted && m_impl->hierarchy && m_impl->refit()) return;
    m_impl->forget_commit();
    commit(HierarchyUse::refitted);
}

unsigned int Scene::get_object_count() const { return static_cast<unsigned int>(m_impl->entries.size()); }
const GeometryObject& Scene::get_object(const unsigned int& index) const { return *m_impl->entries[index].object; }
const Transform& Scene::get_transform(const unsigned int& index) const { return m_impl->entries[index].transform; }
const Shutter& Scene::get_shutter() const { return m_impl->shutter; }
const Bbox3& Scene::get_bbox() const { return m_impl->bbox; }
double Scene::get_radius() const { return m_impl->space.get_radius(); }
const CtxShader& Scene::get_shader_ctx() const { return m_impl->shader; }

// Objects that stand once and where they are need no instance.
void Scene::Impl::sort_entries() {
    const auto set_object = [](SceneObject& entry, const GeometryObject& object, unsigned int index) {
        entry.object = &object;
        entry.index = index;
        entry.ray_data.has_motion_blur = object.is_animated();
    };
    std::unordered_map<const GeometryObject*, unsigned int> uses;
    for (const SceneEntry& entry : entries) ++uses[entry.object];
    std::unordered_map<const GeometryObject*, const SharedObject*> known;
    for (unsigned int i = 0; i < entries.size(); ++i) {
        const SceneEntry& entry = entries[i];
        if (uses[entry.object] == 1 && entry.transform.is_identity()) {
            objects.push_back(std::make_unique<SceneObject>());
            set_object(*objects.back(), *entry.object, i);
            continue;
        }
        const SharedObject*& shared = known[entry.object];
        if (shared == nullptr) {
            shared_objects.push_back(std::make_unique<SharedObject>());
            set_object(shared_objects.back()->primitives, *entry.object, 0);
            shared = shared_objects.back().get();
        }
        Instance instance{i, shared, &entry.transform, {}};
        const bool moves = entry.transform.is_moving() && is_moving();
        const bool is_flat = !moves && !invert(entry.transform.at(shutter.open), instance.inverse);
        if (!is_flat) (moves ? moving_instances : still_instances).instances.push_back(instance);
    }
}

void Scene::Impl::set_motion_sampling() {
    if (!is_moving()) return;
    std::vector<double> times{shutter.open, shutter.close};
    for (const SceneEntry& entry : entries) append_sample_times(*entry.object, shutter.open, shutter.close, times);
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    const CoreBasicArray<double> view(static_cast<unsigned int>(times.size()), times.data());
    shader.get_motion_blur().set_time_sampling(GMathTimeSampling(view));
}

std::vector<double> Scene::Impl::get_sample_times() const {
    std::vector<double> times;
    const GMathTimeSampling& sampling = shader.get_motion_blur().get_time_sampling();
    for (unsigned int i = 0; i < sampling.get_sample_count(); ++i) times.push_back(sampling.get_sample_time(i));
    return times;
}

PrimitiveBounds Scene::Impl::compute_primitive_bounds(const SceneObject& object) const {
    const bool moves = object.is_animated() && is_moving();
    if (moves) return compute_moving_bounds(shader, *object.object, get_sample_times());
    PrimitiveBounds bounds;
    compute_still_bounds(shader, *object.object, shutter.open, bounds);
    // A primitive that stands where another does may leave it later.
    if (!is_refitted && !object.is_animated()) leave_out_repeated(shader, *object.object, bounds);
    return bounds;
}

Bbox3 SceneObject::settle_box() {
    Vec3 low = Bbox3::empty().get_min(), high = Bbox3::empty().get_max();
    left_out.clear();
    for (unsigned int i = 0; i < bounds.boxes.get_count(); ++i) {
        const Bbox3& one = bounds.boxes[i];
        if (is_valid_box(one)) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                low[axis] = std::min(low[axis], one.get_min()[axis]);
                high[axis] = std::max(high[axis], one.get_max()[axis]);
            }
        } else if (bounds.step_count == 1) {
            left_out.push_back(i);
        }
    }
    const Bbox3 box(low, high);
    if (!box.is_empty()) reference = box.get_center();
    return box;
}

void SceneObject::make_ray_index(const Bbox3& box) {
    if (is_animated() || box.is_empty()) return;
    ray_index = object->make_ray_index(bounds.boxes);
    if (!ray_index) return;
    bounds.primitive_count = 1;
    bounds.boxes.clear();
    bounds.boxes.add(box);
}

void Scene::Impl::compute_bounds() {
    for (const auto& object : objects) {
        object->bounds = compute_primitive_bounds(*object);
        const Bbox3 box = object->settle_box();
        bbox.grow(box);
        if (!is_refitted) object->make_ray_index(box);
    }
    for (const auto& shared : shared_objects) {
        shared->primitives.bounds = compute_primitive_bounds(shared->primitives);
        const Bbox3 box = shared->primitives.settle_box();
        if (box.is_empty()) continue;
        shared->primitives.make_ray_index(box);
        shared->own_space = UnitSpace(box);
        shared->box = shared->own_space.pad(box);
    }
    compute_instance_bounds(still_instances, false);
    compute_instance_bounds(moving_instances, true);
    if (!bbox.is_empty()) space = UnitSpace(bbox);
}

void Scene::Impl::compute_instance_bounds(InstanceGroup& group, bool moves) {
    if (group.instances.empty()) return;
    std::vector<double> times{shutter.open};
    if (moves) {
        times.push_back(shutter.close);
        for (const Instance& instance : group.instances)
            for (const double time : instance.transform->get_times())
                if (time > shutter.open && time < shutter.close) times.push_back(time);
        std::sort(times.begin(), times.end());
        times.erase(std::unique(times.begin(), times.end()), times.end());
    }
    const auto count = static_cast<unsigned int>(group.instances.size());
    group.bounds = compute_box_bounds(count, times, [&](unsigned int i, double time) {
        const Instance& instance = group.instances[i];
        return transform_box(instance.transform->at(time), instance.shared->box);
    });
    for (const Bbox3& box : group.bounds.boxes)
        if (is_valid_box(box)) bbox.grow(box);
}

void Scene::Impl::build() {
    if (bbox.is_empty()) return;
    if (entries.size() == 1 && objects.size() == 1 && objects.front()->ray_index) {
        only_object = objects.front().get();
        return;
    }
    // Building runs in the calling arena. A thread count given to the device would limit the whole process.
    device.reset(rtcNewDevice(nullptr));
    if (!device) check_device(nullptr);
    for (const auto& shared : shared_objects) build_shared(*shared);
    const auto build_all = [this](RTCScene scene) {
        std::vector<BoundedPrimitives*> all;
        for (const auto& object : objects) {
            attach(scene, *object, object->index, &intersect_primitive_callback, &occlude_primitive_callback);
            all.push_back(object.get());
        }
        unsigned int id = static_cast<unsigned int>(entries.size());
        for (InstanceGroup* group : {&still_instances, &moving_instances}) {
            if (group->instances.empty()) continue;
            attach(scene, *group, id++, &intersect_instance_callback, &occlude_instance_callback);
            all.push_back(group);
        }
        return all;
    };
    for (const auto& object : objects) object->space = &space;
    still_instances.space = moving_instances.space = &space;
    hierarchy = build_hierarchy(device.get(), is_refitted, build_all);
}

void Scene::Impl::build_shared(SharedObject& shared) {
    if (shared.box.is_empty() || shared.primitives.ray_index) return;
    shared.primitives.space = &shared.own_space;
    shared.hierarchy = build_hierarchy(device.get(), false, [&](RTCScene scene) {
        attach(scene, shared.primitives, 0, &intersect_primitive_callback, &occlude_primitive_callback);
        return std::vector<BoundedPrimitives*>{&shared.primitives};
    });
}

template <class Hit, class Occlude>
void Scene::Impl::attach(RTCScene to, BoundedPrimitives& primitives, unsigned int id, Hit* intersect,
                         Occlude* occlude) const {
    RTCGeometry geometry = rtcNewGeometry(device.get(), RTC_GEOMETRY_TYPE_USER);
    check_device(device.get());
    rtcSetGeometryUserPrimitiveCount(geometry, primitives.bounds.primitive_count);
    rtcSetGeometryTimeStepCount(geometry, primitives.bounds.step_count);
    rtcSetGeometryUserData(geometry, &primitives);
    if (is_refitted) rtcSetGeometryBuildQuality(geometry, RTC_BUILD_QUALITY_REFIT);
    rtcSetGeometryBoundsFunction(geometry, &bounds_callback, nullptr);
    rtcSetGeometryIntersectFunction(geometry, intersect);
    rtcSetGeometryOccludedFunction(geometry, occlude);
    rtcCommitGeometry(geometry);
    rtcAttachGeometryByID(to, geometry, id);
    rtcReleaseGeometry(geometry);
}

bool Scene::Impl::can_be_refitted() const {
    return shared_objects.empty() && still_instances.instances.empty() && moving_instances.instances.empty() &&
           !is_moving();
}

bool Scene::Impl::refit() {
    Bbox3 all = Bbox3::empty();
    std::vector<BoundedPrimitives*> fitted;
    for (const auto& object : objects) {
        PrimitiveBounds& bounds = object->bounds;
        if (object->object->get_primitive_count() != bounds.primitive_count) return false;
        compute_still_bounds(shader, *object->object, shutter.open, bounds);
        // The hierarchy does not know what it was built without.
        for (const unsigned int primitive : object->left_out)
            if (is_valid_box(bounds.boxes[primitive])) return false;
        all.grow(object->settle_box());
        fitted.push_back(object.get());
    }
    if (all.is_empty()) return false;
    bbox = all;
    space = UnitSpace(bbox);
    for (const auto& object : objects) rtcCommitGeometry(rtcGetGeometry(hierarchy.get(), object->index));
    commit_hierarchy(device.get(), hierarchy.get(), fitted);
    return true;
}

void Scene::Impl::forget_commit() {
    only_object = nullptr;
    hierarchy.reset();
    objects.clear();
    shared_objects.clear();
    still_instances.instances.clear();
    moving_instances.instances.clear();
    bbox = Bbox3::empty();
    space = UnitSpace();
    device.reset();
}

void Scene::Impl::forget_bounds() {
    for (const auto& object : objects) object->bounds = {};
    for (const auto& shared : shared_objects) shared->primitives.bounds = {};
    still_instances.bounds = {};
    moving_instances.bounds = {};
}

}  // namespace sds_render

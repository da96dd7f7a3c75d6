// Rays through the hierarchy. The hierarchy sees narrowed rays in unit space and only proposes primitives; whether and
// where they are hit is between the primitive and the exact ray.

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include "render/scene_impl.h"

namespace sds_render {

namespace {

struct TraceContext {
    RTCIntersectContext base;  // first: the callbacks receive its address
    GeometryRay* rays;
    const SceneRay* narrowed;
    unsigned int* objects;
    RenderThread* thread;
};

// The hierarchy's rays of one callback, and which of the caller's rays they are.
struct Lanes {
    RTCRayN* rays;
    unsigned int width;
    unsigned int count = 0;
    unsigned int slot[RenderThread::packet_size];
    unsigned int ray[RenderThread::packet_size];

    Lanes(const int* valid, RTCRayN* hierarchy_rays, unsigned int n) : rays(hierarchy_rays), width(n) {
        for (unsigned int i = 0; i < n; ++i) {
            if (valid[i] == 0) continue;
            slot[count] = i;
            ray[count++] = RTCRayN_id(rays, n, i);
        }
    }
};

// The next double above a finite one.
double next_above(double x) {
    if (x == 0.0) return std::numeric_limits<double>::denorm_min();
    const auto bits = std::bit_cast<std::uint64_t>(x);
    return std::bit_cast<double>(x > 0.0 ? bits + 1 : bits - 1);
}

// Lets the ray accept hits at its present distance too, so that ties can be settled by index.
KeptHit open_ray(GeometryRay& ray) {
    const KeptHit kept{ray.hit, ray.tfar};
    if (kept.hit.primitive != no_index) ray.tfar = next_above(kept.tfar);
    ray.hit.primitive = no_index;
    ray.hit.t = std::numeric_limits<double>::infinity();
    return kept;
}

// Returns true when the ray's hit changed.
bool close_ray(GeometryRay& ray, const KeptHit& kept, unsigned int object, unsigned int& hit_object) {
    const bool is_new = ray.hit.primitive != no_index;
    const bool is_tie = is_new && kept.hit.primitive != no_index && ray.hit.t == kept.hit.t;
    const bool loses_tie =
        is_tie && (object != hit_object ? object > hit_object : ray.hit.primitive > kept.hit.primitive);
    if (!is_new || loses_tie) {
        ray.hit = kept.hit;
        ray.tfar = kept.tfar;
        return false;
    }
    ray.tfar = ray.hit.t;
    hit_object = object;
    return true;
}

void offer_range(const SceneObject& object, unsigned int primitive, RenderThread& thread, GeometryRay* rays,
                 unsigned int first, unsigned int last) {
    GeometryRaytraceCtx ctx(rays, last + 1, object.ray_data);
    ctx.set_ray_range(first, last);
    ctx.set_reference_point(object.reference);
    object.object->intersect_primitive(thread.get_eval(), primitive, ctx);
}

bool offer_single(const SceneObject& object, unsigned int primitive, TraceContext& trace, unsigned int ray) {
    const KeptHit kept = open_ray(trace.rays[ray]);
    offer_range(object, primitive, *trace.thread, trace.rays, ray, ray);
    return close_ray(trace.rays[ray], kept, object.index, trace.objects[ray]);
}

// Offers the primitive to lanes [begin, end). The rays between them that the hierarchy did not ask about count as
// finished meanwhile, so that the range is one piece of the caller's array.
void offer_lanes(const SceneObject& object, unsigned int primitive, TraceContext& trace, const Lanes& lanes,
                 unsigned int begin, unsigned int end, bool* changed) {
    const unsigned int first = lanes.ray[begin], last = lanes.ray[end - 1];
    bool was_finished[RenderThread::packet_size] = {};
    const bool has_gaps = last - first != end - 1 - begin;
    if (has_gaps) {
        for (unsigned int ray = first; ray <= last; ++ray) {
            was_finished[ray - first] = trace.rays[ray].is_finished;
            trace.rays[ray].is_finished = true;
        }
        for (unsigned int i = begin; i < end; ++i)
            trace.rays[lanes.ray[i]].is_finished = was_finished[lanes.ray[i] - first];
    }
    KeptHit* kept = trace.thread->get_kept_hits();
    for (unsigned int i = begin; i < end; ++i) kept[i] = open_ray(trace.rays[lanes.ray[i]]);
    offer_range(object, primitive, *trace.thread, trace.rays, first, last);
    for (unsigned int i = begin; i < end; ++i) {
        const unsigned int ray = lanes.ray[i];
        changed[i] = close_ray(trace.rays[ray], kept[i], object.index, trace.objects[ray]);
        if (has_gaps) was_finished[ray - first] = trace.rays[ray].is_finished;
    }
    if (has_gaps)
        for (unsigned int ray = first; ray <= last; ++ray) trace.rays[ray].is_finished = was_finished[ray - first];
}

// A range is traced at one time: rays of a moving object go together while their times agree.
void offer(const SceneObject& object, unsigned int primitive, TraceContext& trace, const Lanes& lanes, bool* changed) {
    for (unsigned int begin = 0; begin < lanes.count;) {
        unsigned int end = begin + 1;
        const auto may_join = [&](unsigned int i) {
            return !object.is_animated() || trace.rays[lanes.ray[i]].time == trace.rays[lanes.ray[begin]].time;
        };
        while (end < lanes.count && may_join(end)) ++end;
        if (end - begin == 1)
            changed[begin] = offer_single(object, primitive, trace, lanes.ray[begin]);
        else
            offer_lanes(object, primitive, trace, lanes, begin, end, changed);
        begin = end;
    }
}

TraceContext make_trace(GeometryRay* rays, const SceneRay* narrowed, unsigned int* objects, RenderThread& thread) {
    TraceContext trace;
    rtcInitIntersectContext(&trace.base);
    // Packets too: told that they are coherent, the hierarchy offers a leaf to all of a packet's rays.
    trace.base.flags = RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT;
    trace.rays = rays;
    trace.narrowed = narrowed;
    trace.objects = objects;
    trace.thread = &thread;
    return trace;
}

RTCRay make_hierarchy_ray(const SceneRay& ray, float time) {
    RTCRay out;
    out.org_x = ray.origin[0];
    out.org_y = ray.origin[1];
    out.org_z = ray.origin[2];
    out.dir_x = ray.direction[0];
    out.dir_y = ray.direction[1];
    out.dir_z = ray.direction[2];
    out.tnear = 0.0f;
    out.tfar = ray.length;
    out.time = time;
    out.mask = ~0u;
    out.id = 0;
    out.flags = 0;
    return out;
}

template <class Packet>
void set_packet_ray(Packet& packet, unsigned int lane, const SceneRay& ray, float time) {
    packet.ray.org_x[lane] = ray.origin[0];
    packet.ray.org_y[lane] = ray.origin[1];
    packet.ray.org_z[lane] = ray.origin[2];
    packet.ray.dir_x[lane] = ray.direction[0];
    packet.ray.dir_y[lane] = ray.direction[1];
    packet.ray.dir_z[lane] = ray.direction[2];
    packet.ray.tnear[lane] = 0.0f;
    packet.ray.tfar[lane] = ray.length;
    packet.ray.time[lane] = time;
    packet.ray.mask[lane] = ~0u;
    packet.ray.id[lane] = lane;
    packet.ray.flags[lane] = 0;
    packet.hit.geomID[lane] = RTC_INVALID_GEOMETRY_ID;
    packet.hit.instID[0][lane] = RTC_INVALID_GEOMETRY_ID;
}

// The ray where the instance's object has its own space: t counts in the same lengths.
bool enter(const Instance& instance, const GeometryRay& ray, GeometryRay& local) {
    Matrix4 inverse = instance.inverse;
    if (instance.transform->is_moving() && !invert(instance.transform->at(ray.time), inverse)) return false;
    local.start(transform_point(inverse, ray.origin), inverse.transform_vector(ray.direction), ray.time);
    local.tnear = ray.tnear;
    local.tfar = ray.tfar;
    local.mode = ray.mode;
    return true;
}

void trace_shared(const SharedObject& shared, GeometryRay& ray, float time, RenderThread& thread) {
    SceneRay narrowed;
    if (!shared.hierarchy || !narrowed.init(shared.own_space, ray.origin, ray.direction, ray.tnear, ray.tfar)) return;
    unsigned int unused = no_index;
    TraceContext trace = make_trace(&ray, &narrowed, &unused, thread);
    RTCRayHit hierarchy_ray;
    hierarchy_ray.ray = make_hierarchy_ray(narrowed, time);
    if (ray.mode == GeometryRayMode::any) {
        rtcOccluded1(shared.hierarchy.get(), &trace.base, &hierarchy_ray.ray);
        return;
    }
    hierarchy_ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    hierarchy_ray.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(shared.hierarchy.get(), &trace.base, &hierarchy_ray);
}

// Returns true when the ray's hit changed.
bool offer_instance(const Instance& instance, TraceContext& trace, unsigned int index, float time) {
    GeometryRay& ray = trace.rays[index];
    const KeptHit kept = open_ray(ray);
    GeometryRay local;
    if (enter(instance, ray, local)) {
        trace_shared(*instance.shared, local, time, *trace.thread);
        ray.hit = local.hit;
        ray.is_finished = local.is_finished;
        ray.occluder = local.occluder;
    }
    return close_ray(ray, kept, instance.index, trace.objects[index]);
}

const Instance& get_instance(void* user_pointer, unsigned int primitive) {
    return static_cast<const InstanceGroup&>(*static_cast<const BoundedPrimitives*>(user_pointer)).instances[primitive];
}

struct Packet8 {
    static constexpr unsigned int width = 8;
    using RayHit = RTCRayHit8;
    static constexpr auto intersect = &rtcIntersect8;
    static constexpr auto occlude = &rtcOccluded8;
};
struct Packet16 {
    static constexpr unsigned int width = 16;
    using RayHit = RTCRayHit16;
    static constexpr auto intersect = &rtcIntersect16;
    static constexpr auto occlude = &rtcOccluded16;
};

// All rays have one mode.
template <class Packet, class SceneImpl>
void trace_packet(const SceneImpl& scene, GeometryRay* rays, unsigned int count, unsigned int* objects,
                  RenderThread& thread) {
    SceneRay narrowed[RenderThread::packet_size];
    TraceContext trace = make_trace(rays, narrowed, objects, thread);
    alignas(64) int valid[Packet::width];
    typename Packet::RayHit hierarchy_rays;
    for (unsigned int i = 0; i < Packet::width; ++i) {
        const GeometryRay* ray = i < count ? rays + i : nullptr;
        const bool is_valid =
            ray != nullptr && narrowed[i].init(scene.space, ray->origin, ray->direction, ray->tnear, ray->tfar);
        valid[i] = is_valid ? -1 : 0;
        if (is_valid)
            set_packet_ray(hierarchy_rays, i, narrowed[i], scene.get_hierarchy_time(ray->time));
        else
            set_packet_ray(hierarchy_rays, i, SceneRay{}, 0.0f);
    }
    if (rays[0].mode == GeometryRayMode::any)
        Packet::occlude(valid, scene.hierarchy.get(), &trace.base, &hierarchy_rays.ray);
    else
        Packet::intersect(valid, scene.hierarchy.get(), &trace.base, &hierarchy_rays);
}

}  // namespace

void intersect_primitive_callback(const RTCIntersectFunctionNArguments* arguments) {
    auto& trace = *reinterpret_cast<TraceContext*>(arguments->context);
    const auto& object =
        static_cast<const SceneObject&>(*static_cast<const BoundedPrimitives*>(arguments->geometryUserPtr));
    const unsigned int n = arguments->N;
    if (n == 1) {
        auto& hierarchy_ray = *reinterpret_cast<RTCRayHit*>(arguments->rayhit);
        const unsigned int ray = hierarchy_ray.ray.id;
        if (!offer_single(object, arguments->primID, trace, ray)) return;
        hierarchy_ray.ray.tfar = trace.narrowed[ray].get_distance(trace.rays[ray].hit.t);
        hierarchy_ray.hit.geomID = arguments->geomID;
        hierarchy_ray.hit.primID = arguments->primID;
        return;
    }
    const Lanes lanes(arguments->valid, RTCRayHitN_RayN(arguments->rayhit, n), n);
    RTCHitN* hits = RTCRayHitN_HitN(arguments->rayhit, n);
    bool changed[RenderThread::packet_size];
    offer(object, arguments->primID, trace, lanes, changed);
    for (unsigned int i = 0; i < lanes.count; ++i) {
        if (!changed[i]) continue;
        const unsigned int ray = lanes.ray[i];
        RTCRayN_tfar(lanes.rays, n, lanes.slot[i]) = trace.narrowed[ray].get_distance(trace.rays[ray].hit.t);
        RTCHitN_geomID(hits, n, lanes.slot[i]) = arguments->geomID;
        RTCHitN_primID(hits, n, lanes.slot[i]) = arguments->primID;
    }
}

void occlude_primitive_callback(const RTCOccludedFunctionNArguments* arguments) {
    auto& trace = *reinterpret_cast<TraceContext*>(arguments->context);
    const auto& object =
        static_cast<const SceneObject&>(*static_cast<const BoundedPrimitives*>(arguments->geometryUserPtr));
    const Lanes lanes(arguments->valid, arguments->ray, arguments->N);
    bool changed[RenderThread::packet_size];
    offer(object, arguments->primID, trace, lanes, changed);
    for (unsigned int i = 0; i < lanes.count; ++i)
        if (changed[i]) RTCRayN_tfar(lanes.rays, arguments->N, lanes.slot[i]) = -std::numeric_limits<float>::infinity();
}

void intersect_instance_callback(const RTCIntersectFunctionNArguments* arguments) {
    auto& trace = *reinterpret_cast<TraceContext*>(arguments->context);
    const Instance& instance = get_instance(arguments->geometryUserPtr, arguments->primID);
    const unsigned int n = arguments->N;
    const Lanes lanes(arguments->valid, RTCRayHitN_RayN(arguments->rayhit, n), n);
    RTCHitN* hits = RTCRayHitN_HitN(arguments->rayhit, n);
    for (unsigned int i = 0; i < lanes.count; ++i) {
        const unsigned int ray = lanes.ray[i], slot = lanes.slot[i];
        if (!offer_instance(instance, trace, ray, RTCRayN_time(lanes.rays, n, slot))) continue;
        RTCRayN_tfar(lanes.rays, n, slot) = trace.narrowed[ray].get_distance(trace.rays[ray].hit.t);
        RTCHitN_geomID(hits, n, slot) = arguments->geomID;
        RTCHitN_primID(hits, n, slot) = arguments->primID;
    }
}

void occlude_instance_callback(const RTCOccludedFunctionNArguments* arguments) {
    auto& trace = *reinterpret_cast<TraceContext*>(arguments->context);
    const Instance& instance = get_instance(arguments->geometryUserPtr, arguments->primID);
    const unsigned int n = arguments->N;
    const Lanes lanes(arguments->valid, arguments->ray, n);
    for (unsigned int i = 0; i < lanes.count; ++i)
        if (offer_instance(instance, trace, lanes.ray[i], RTCRayN_time(lanes.rays, n, lanes.slot[i])))
            RTCRayN_tfar(lanes.rays, n, lanes.slot[i]) = -std::numeric_limits<float>::infinity();
}

float Scene::Impl::get_hierarchy_time(double time) const {
    return is_moving() ? static_cast<float>(clamp_unit((time - shutter.open) / (shutter.close - shutter.open))) : 0.0f;
}

bool Scene::intersect(GeometryRay& ray, RenderThread& thread, unsigned int* object) const {
    ++thread.ray_count;
    SceneRay narrowed;
    if (!m_impl->hierarchy || !narrowed.init(m_impl->space, ray.origin, ray.direction, ray.tnear, ray.tfar))
        return false;
    unsigned int unused = no_index;
    TraceContext trace = make_trace(&ray, &narrowed, object != nullptr ? object : &unused, thread);
    RTCRayHit hierarchy_ray;
    hierarchy_ray.ray = make_hierarchy_ray(narrowed, m_impl->get_hierarchy_time(ray.time));
    hierarchy_ray.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    hierarchy_ray.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(m_impl->hierarchy.get(), &trace.base, &hierarchy_ray);
    const bool is_hit = ray.hit.primitive != no_index;
    thread.hit_count += is_hit ? 1 : 0;
    return is_hit;
}

bool Scene::occluded(GeometryRay& ray, RenderThread& thread) const {
    ++thread.ray_count;
    ray.mode = GeometryRayMode::any;
    SceneRay narrowed;
    if (!m_impl->hierarchy || !narrowed.init(m_impl->space, ray.origin, ray.direction, ray.tnear, ray.tfar))
        return false;
    unsigned int unused = no_index;
    TraceContext trace = make_trace(&ray, &narrowed, &unused, thread);
    RTCRay hierarchy_ray = make_hierarchy_ray(narrowed, m_impl->get_hierarchy_time(ray.time));
    rtcOccluded1(m_impl->hierarchy.get(), &trace.base, &hierarchy_ray);
    const bool is_hit = ray.hit.primitive != no_index;
    thread.hit_count += is_hit ? 1 : 0;
    return is_hit;
}

void Scene::intersect_packet(GeometryRay* rays, unsigned int count, RenderThread& thread, unsigned int* objects) const {
    for (unsigned int i = 0; i < count; ++i) objects[i] = no_index;
    thread.ray_count += count;
    if (!m_impl->hierarchy) return;
    if (count <= Packet8::width)
        trace_packet<Packet8>(*m_impl, rays, count, objects, thread);
    else
        trace_packet<Packet16>(*m_impl, rays, count, objects, thread);
    for (unsigned int i = 0; i < count; ++i) thread.hit_count += rays[i].hit.primitive != no_index ? 1 : 0;
}

void Scene::occluded_packet(GeometryRay* rays, unsigned int count, RenderThread& thread) const {
    for (unsigned int i = 0; i < count; ++i) rays[i].mode = GeometryRayMode::any;
    unsigned int unused[RenderThread::packet_size];
    intersect_packet(rays, count, thread, unused);
}

}  // namespace sds_render

#include "bench/support/embree_surface.h"

#include <cstring>
#include <limits>

namespace sds_bench {

namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();

template <class T, class Source>
void fill_buffer(RTCGeometry geometry, RTCBufferType type, unsigned int slot, RTCFormat format, size_t width,
                 const Source* values, size_t count) {
    auto* out = static_cast<T*>(rtcSetNewGeometryBuffer(geometry, type, slot, format, width * sizeof(T), count));
    if (count != 0) std::memcpy(out, values, width * sizeof(T) * count);
}

RTCRay make_ray(const Ray& ray) {
    RTCRay out{};
    out.org_x = static_cast<float>(ray.origin[0]);
    out.org_y = static_cast<float>(ray.origin[1]);
    out.org_z = static_cast<float>(ray.origin[2]);
    out.dir_x = static_cast<float>(ray.direction[0]);
    out.dir_y = static_cast<float>(ray.direction[1]);
    out.dir_z = static_cast<float>(ray.direction[2]);
    out.tfar = infinity;
    out.time = static_cast<float>(ray.time);
    out.mask = ~0u;
    return out;
}

RTCRayHit make_ray_hit(const Ray& ray) {
    RTCRayHit out{};
    out.ray = make_ray(ray);
    out.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    return out;
}

RTCIntersectContext make_context(bool coherent) {
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    context.flags = coherent ? RTC_INTERSECT_CONTEXT_FLAG_COHERENT : RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT;
    return context;
}

}  // namespace

EmbreeSurface::EmbreeSurface(const HostCage& cage, float rate) : m_device(rtcNewDevice(nullptr)) {
    const OpenSubdivCage edges = make_opensubdiv_cage(cage);
    m_scene.reset(rtcNewScene(m_device.get()));
    RTCGeometry geometry = rtcNewGeometry(m_device.get(), RTC_GEOMETRY_TYPE_SUBDIVISION);
    fill_buffer<unsigned int>(geometry, RTC_BUFFER_TYPE_FACE, 0, RTC_FORMAT_UINT, 1, cage.counts.get_data(),
                              cage.counts.get_count());
    fill_buffer<unsigned int>(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT, 1, cage.indices.get_data(),
                              cage.indices.get_count());
    const bool moves = !cage.motion.is_empty();
    rtcSetGeometryTimeStepCount(geometry, moves ? 2 : 1);
    fill_buffer<float>(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3, cage.positions.get_data(),
                       cage.positions.get_count());
    if (moves) {
        CoreArray<Vec3f> moved = cage.positions;
        for (size_t i = 0; i < moved.get_count(); ++i) moved[i] += cage.motion[i];
        fill_buffer<float>(geometry, RTC_BUFFER_TYPE_VERTEX, 1, RTC_FORMAT_FLOAT3, 3, moved.get_data(),
                           moved.get_count());
    }
    if (!edges.sharpness.empty()) {
        const std::vector<float> weights(edges.sharpness.size(), infinity);
        fill_buffer<unsigned int>(geometry, RTC_BUFFER_TYPE_EDGE_CREASE_INDEX, 0, RTC_FORMAT_UINT2, 2,
                                  edges.crease_pairs.data(), weights.size());
        fill_buffer<float>(geometry, RTC_BUFFER_TYPE_EDGE_CREASE_WEIGHT, 0, RTC_FORMAT_FLOAT, 1, weights.data(),
                           weights.size());
    }
    rtcSetGeometrySubdivisionMode(geometry, 0, RTC_SUBDIVISION_MODE_PIN_CORNERS);
    rtcSetGeometryTessellationRate(geometry, rate);
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(m_scene.get(), geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(m_scene.get());
}

void EmbreeSurface::set_positions(const CoreArray<Vec3f>& positions) {
    RTCGeometry geometry = rtcGetGeometry(m_scene.get(), 0);
    std::memcpy(rtcGetGeometryBufferData(geometry, RTC_BUFFER_TYPE_VERTEX, 0), positions.get_data(),
                sizeof(Vec3f) * positions.get_count());
    rtcUpdateGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0);
    rtcCommitGeometry(geometry);
    rtcCommitScene(m_scene.get());
}

TraceResult EmbreeSurface::trace_single(const RaySet& rays, size_t begin, size_t end) const {
    TraceResult result;
    RTCIntersectContext context = make_context(false);
    for (size_t i = begin; i < end; ++i) {
        RTCRayHit ray = make_ray_hit(rays[i]);
        rtcIntersect1(m_scene.get(), &context, &ray);
        if (ray.hit.geomID != RTC_INVALID_GEOMETRY_ID) result.add(ray.ray.tfar);
    }
    return result;
}

TraceResult EmbreeSurface::trace_packets(const RaySet& rays, size_t begin, size_t end) const {
    TraceResult result;
    RTCIntersectContext context = make_context(true);
    alignas(32) int valid[8];
    std::fill_n(valid, 8, -1);
    for (size_t first = begin; first + 8 <= end; first += 8) {
        RTCRayHit8 packet;
        for (size_t i = 0; i < 8; ++i) {
            const RTCRay ray = make_ray(rays[first + i]);
            packet.ray.org_x[i] = ray.org_x;
            packet.ray.org_y[i] = ray.org_y;
            packet.ray.org_z[i] = ray.org_z;
            packet.ray.dir_x[i] = ray.dir_x;
            packet.ray.dir_y[i] = ray.dir_y;
            packet.ray.dir_z[i] = ray.dir_z;
            packet.ray.tnear[i] = 0.0f;
            packet.ray.tfar[i] = infinity;
            packet.ray.time[i] = ray.time;
            packet.ray.mask[i] = ~0u;
            packet.ray.id[i] = 0;
            packet.ray.flags[i] = 0;
            packet.hit.geomID[i] = RTC_INVALID_GEOMETRY_ID;
            packet.hit.instID[0][i] = RTC_INVALID_GEOMETRY_ID;
        }
        rtcIntersect8(valid, m_scene.get(), &context, &packet);
        for (size_t i = 0; i < 8; ++i)
            if (packet.hit.geomID[i] != RTC_INVALID_GEOMETRY_ID) result.add(packet.ray.tfar[i]);
    }
    return result;
}

TraceResult EmbreeSurface::trace_occlusion(const RaySet& rays, size_t begin, size_t end) const {
    TraceResult result;
    RTCIntersectContext context = make_context(false);
    for (size_t i = begin; i < end; ++i) {
        RTCRay ray = make_ray(rays[i]);
        rtcOccluded1(m_scene.get(), &context, &ray);
        if (ray.tfar < 0.0f) result.add(0.0);
    }
    return result;
}

std::vector<double> EmbreeSurface::find_distances(const RaySet& rays) const {
    std::vector<double> distances;
    RTCIntersectContext context = make_context(false);
    for (const Ray& source : rays) {
        RTCRayHit ray = make_ray_hit(source);
        rtcIntersect1(m_scene.get(), &context, &ray);
        distances.push_back(ray.hit.geomID != RTC_INVALID_GEOMETRY_ID ? static_cast<double>(ray.ray.tfar)
                                                                      : std::numeric_limits<double>::infinity());
    }
    return distances;
}

}  // namespace sds_bench

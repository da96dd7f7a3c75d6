// Embree's side of a comparison: the cage as subdivision geometry, tessellated at a rate.
#pragma once

#include <embree3/rtcore.h>

#include <memory>
#include <type_traits>

#include "bench/support/our_surface.h"
#include "bench/support/ray_sets.h"

namespace sds_bench {

class EmbreeSurface {
public:
    // `rate` is the number of segments along an edge of the cage. Creases are infinitely sharp, corners of borders
    // pinned. A cage with motion vectors moves from time 0 to 1. Built in the calling arena.
    EmbreeSurface(const HostCage& cage, float rate);

    // One position per vertex, in the buffer that was made for them, and a commit. Not for a cage that moves.
    void set_positions(const CoreArray<Vec3f>& positions);

    TraceResult trace_single(const RaySet& rays, size_t begin, size_t end) const;
    TraceResult trace_packets(const RaySet& rays, size_t begin, size_t end) const;
    TraceResult trace_occlusion(const RaySet& rays, size_t begin, size_t end) const;
    // Distance of every ray's hit, infinite without.
    std::vector<double> find_distances(const RaySet& rays) const;

private:
    struct DeviceRelease {
        void operator()(RTCDevice device) const { rtcReleaseDevice(device); }
    };
    struct SceneRelease {
        void operator()(RTCScene scene) const { rtcReleaseScene(scene); }
    };
    std::unique_ptr<std::remove_pointer_t<RTCDevice>, DeviceRelease> m_device;
    std::unique_ptr<std::remove_pointer_t<RTCScene>, SceneRelease> m_scene;
};

}  // namespace sds_bench

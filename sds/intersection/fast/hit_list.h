// Hits on their way into the list. For the kernels of one instruction set.
#pragma once

#include "sds/intersection/fast/ray_kernels.h"

namespace sds {

namespace {

// Of a full list.
inline unsigned int find_farthest(const RayHits& hits) {
    unsigned int place = 0;
    for (unsigned int i = 1; i < RayHits::capacity; ++i)
        if (hits.hits[i].t > hits.hits[place].t) place = i;
    return place;
}

inline void add_hit(const RaySpace& ray, RayHits& hits, float t, float u, float v, float cell, bool facing,
                    unsigned int part = 0) {
    // Hits that the ray has no use for must not push others out of a full list. NaN fails.
    const double distance = ray.shift + static_cast<double>(t);
    if (!(distance >= ray.near && distance < ray.far)) return;
    unsigned int place = hits.count;
    if (place == RayHits::capacity) {
        // Where a ray runs along the surface the list fills up: the nearest stay.
        ++hits.dropped_count;
        place = find_farthest(hits);
        if (!(t < hits.hits[place].t)) return;
    } else {
        ++hits.count;
    }
    RayHit& hit = hits.hits[place];
    hit.t = t;
    hit.u = u;
    hit.v = v;
    hit.cell = cell;
    hit.side = facing ? 1 : 0;
    hit.part = static_cast<unsigned char>(part);
}

}  // namespace

}  // namespace sds

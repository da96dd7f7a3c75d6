// Limit corners per time sample, filled once each.
#pragma once

#include <atomic>
#include <memory>

#include "sds/mesh_geometry/sds_mesh_geometry.h"

struct SdsMeshGeometry::CornerCache {
    explicit CornerCache(unsigned int sample_count)
        : count(sample_count), slots(std::make_unique<std::atomic<Vec3f*>[]>(sample_count)) {}
    ~CornerCache() {
        for (unsigned int i = 0; i < count; ++i) delete[] slots[i].load(std::memory_order_relaxed);
    }
    CornerCache(const CornerCache&) = delete;
    CornerCache& operator=(const CornerCache&) = delete;

    unsigned int count;
    std::unique_ptr<std::atomic<Vec3f*>[]> slots;  // null until the corners are complete
};

// What time samples are made into, filled once each: limit corners, or the patches of a refined surface.
#pragma once

#include <atomic>
#include <memory>

#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/refinement/refined_patches.h"

struct SdsMeshGeometry::CornerCache {
    CornerCache(unsigned int sample_count, bool is_refined)
        : count(sample_count), slots(std::make_unique<std::atomic<Vec3f*>[]>(sample_count)) {
        if (is_refined) patches = std::make_unique<std::atomic<sds::RefinedPatches*>[]>(sample_count);
    }
    ~CornerCache() {
        for (unsigned int i = 0; i < count; ++i) {
            delete[] slots[i].load(std::memory_order_relaxed);
            if (patches) delete patches[i].load(std::memory_order_relaxed);
        }
    }
    CornerCache(const CornerCache&) = delete;
    CornerCache& operator=(const CornerCache&) = delete;

    unsigned int count;
    std::unique_ptr<std::atomic<Vec3f*>[]> slots;                  // null until the corners are complete
    std::unique_ptr<std::atomic<sds::RefinedPatches*>[]> patches;  // none unless the surface is refined
};

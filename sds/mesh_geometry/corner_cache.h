// What time samples are made into: limit corners, or the patches of a refined surface.
#pragma once

#include "qn_sys/sys_lazy_slots.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/refinement/refined_patches.h"

struct SdsMeshGeometry::CornerCache {
    CornerCache(unsigned int sample_count, bool is_refined)
        : corners(is_refined ? 0 : sample_count), patches(is_refined ? sample_count : 0) {}

    SysLazySlots<Vec3f[]> corners;
    SysLazySlots<const sds::RefinedPatches> patches;
};

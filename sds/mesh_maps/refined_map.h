// A UV map refined as a surface of its own.
#pragma once

#include "sds/common/array_bytes.h"
#include "sds/mesh_maps/sds_mesh_maps.h"
#include "sds/refinement/refined_topology.h"

struct SdsMeshMaps::RefinedMap {
    sds::RefinedTopology topology;  // without levels
    CoreArray<Vec3f> controls;      // sixteen per patch

    const sds::PatchPlaces& get_places() const { return topology.get_places(); }
    unsigned int get_patch_count() const { return get_places().get_patch_count(); }
    size_t get_memory_size() const { return sizeof(*this) + topology.get_memory_size() + sds::bytes_of(controls); }
};

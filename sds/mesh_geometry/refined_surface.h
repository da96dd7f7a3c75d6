// What a refined geometry holds instead of patch records, limit corners and tangents.
#pragma once

#include <memory>

#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/refinement/refined_patches.h"

// Shared by copies of a geometry, hence never changed while there is more than one.
struct SdsMeshGeometry::Refinement {
    std::shared_ptr<const sds::RefinedTopology> topology;
    unsigned int finest_level = 0;
    sds::RefinedPatches rest;
    sds::RefinedPatches motion;  // of the motion vectors; empty without

    const sds::PatchPlaces& get_places() const { return topology->get_places(); }
    size_t get_memory_size() const {
        return sizeof(*this) + topology->get_memory_size() + rest.get_memory_size() + motion.get_memory_size();
    }
};

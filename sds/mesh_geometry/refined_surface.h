// What a refined geometry holds instead of patch records, limit corners and tangents.
#pragma once

#include <memory>

#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/refinement/refined_patches.h"

// Shared by copies of a geometry, hence never changed while there is more than one.
struct SdsMeshGeometry::Refinement {
    // Its levels, as large as the patches, are kept where positions were updated, time samples are there, or positions
    // decided the depth; else they are made again when they are needed.
    std::shared_ptr<sds::RefinedTopology> topology;
    unsigned int finest_level = 0;
    float largest_coordinate = 0.0f;  // of the box at rest
    sds::RefinedPatches rest;
    sds::RefinedPatches motion;  // of the motion vectors; empty without

    const sds::PatchPlaces& get_places() const { return topology->get_places(); }
    size_t get_memory_size() const {
        return sizeof(*this) + topology->get_memory_size() + rest.get_memory_size() + motion.get_memory_size();
    }
};

// The control polygons that all maps of a mesh share.
#pragma once

#include "sds/common/polygon_offsets.h"
#include "sds/mesh_maps/sds_mesh_maps.h"

struct SdsMeshMaps::ControlPolygons {
    const CoreArray<unsigned int>& counts;
    CoreArray<unsigned int> offsets;

    explicit ControlPolygons(const CoreArray<unsigned int>& polygon_counts)
        : counts(polygon_counts), offsets(sds::polygon_offsets(polygon_counts)) {}
};

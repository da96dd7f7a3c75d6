// How polygons hang together, read from the quads that were made of them.
#pragma once

#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

// Per face-corner of the polygons the one across its edge, or none: at borders, of polygons with a corner that has no
// vertex, and beside those. `is_subdivided` says whether the quads come from a step.
CoreArray<unsigned int> control_opposites(const CoreBasicArray<unsigned int>& quad_indices,
                                          const SdsMeshBase::EdgesTopology& edges, bool is_subdivided);

}  // namespace sds

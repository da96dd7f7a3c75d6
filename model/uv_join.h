#pragma once

#include "model/control_cage.h"
#include "model/surface.h"

namespace sds_model {

/// Gives the polygons of a map that are not joined on the mesh UV points of their own, and makes equal points of joined
/// ones a single point where the file writes one per face-corner; see poly_join_uvs. Values of UVs do not change. The
/// cage must be free of errors. Adds to the counts that the map keeps.
void join_uvs(ControlCage& cage);
void join_uvs(const CageView& cage, UvSource& uvs);

}  // namespace sds_model

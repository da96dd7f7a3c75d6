// What the vertices of a late step are computed from (SdsMeshBase::has_late_step).
#pragma once

#include "sds/mesh_geometry/sds_mesh_geometry.h"

struct SdsMeshGeometry::LateVertices {
    SysThreadLock lock;
    bool has_motion = false;
    // Of the control cage, until the vertices are there.
    CoreArray<Vec3f> positions;
    CoreArray<Vec3f> motion_vectors;
};

// Face-varying maps as the host hands them over, on the control polygons.
#pragma once

#include "qn_core/core_array.h"
#include "qn_core/core_string.h"
#include "qn_gmath/gmath_vec.h"

struct GeometryUvMap {
    CoreString name;
    CoreArray<GMathVec3<float>> vertices;  // u, v, w
    // One per control-polygon corner, in polygon order; 0xFFFFFFFF where the corner has no UV.
    CoreArray<unsigned int> indices;
};

struct GeometryColorMap {
    CoreString name;
    CoreArray<GMathVec4<unsigned char>> colors;  // RGBA
    // One per control-polygon corner; empty when the colors follow the mesh's own vertices.
    CoreArray<unsigned int> indices;
};

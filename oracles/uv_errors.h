// UV maps against OpenSubdiv's face-varying limit.
#pragma once

#include "oracles/surface_errors.h"

namespace sds_test {

using UvMode = SdsMeshMaps::InterpolationMode;
using FaceVarying = OpenSubdivOracle::FaceVarying;

inline constexpr UvMode uv_modes[] = {UvMode::all_fixed,
                                      UvMode::corners_fixed,
                                      UvMode::all_smoothed,
                                      UvMode::borders_fixed,
                                      UvMode::smoothed_seam_corners_fixed,
                                      UvMode::smoothed_seams_fixed,
                                      UvMode::corners_and_seams_fixed,
                                      UvMode::corners_plus1,
                                      UvMode::corners_plus2};
inline constexpr FaceVarying face_varying_rules[] = {FaceVarying::linear_none,   FaceVarying::corners_only,
                                                     FaceVarying::corners_plus1, FaceVarying::corners_plus2,
                                                     FaceVarying::boundaries,    FaceVarying::linear_all};

const char* name_of(UvMode mode);

// Shares of the larger side of the UV points' box, over a 9 x 9 grid per fully mapped patch.
struct UvErrors {
    ErrorSummary regular;  // regular in the map and on the mesh
    ErrorSummary corners;  // limit corners, darts and their neighbors aside
    ErrorSummary other;
};
// `surface` has one UV map, built in any mode.
UvErrors measure_uvs(const BuiltSurface& surface, const OpenSubdivOracle& oracle);

}  // namespace sds_test

// Options of BuiltSurface that tests ask for.
#pragma once

#include "support/built_surface.h"

namespace sds_test {

inline BuiltSurface::Options with_mode(SdsMeshGeometry::InterpolationMode mode) {
    BuiltSurface::Options options;
    options.mode = mode;
    return options;
}

inline BuiltSurface::Options with_uv_mode(SdsMeshMaps::InterpolationMode mode) {
    BuiltSurface::Options options;
    options.uv_mode = mode;
    return options;
}

inline BuiltSurface::Options with_level(unsigned int level) {
    BuiltSurface::Options options;
    options.level = level;
    return options;
}

inline BuiltSurface::Options with_progress(
    AppProgressBar& progress,
    SdsMeshGeometry::InterpolationMode mode = SdsMeshGeometry::InterpolationMode::corners_fixed) {
    BuiltSurface::Options options = with_mode(mode);
    options.progress = &progress;
    return options;
}

inline BuiltSurface::Options with_motion(std::vector<Vec3f> motion_vectors) {
    BuiltSurface::Options options;
    options.motion_vectors = std::move(motion_vectors);
    return options;
}

}  // namespace sds_test

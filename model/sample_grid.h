#pragma once

#include "model/quad_places.h"

#include <cstdint>
#include <vector>

namespace sds_model {

/// Values per sample of `sample_uvs`.
inline constexpr unsigned int uv_row_size = 9;
/// Values per patch of `patch_places`.
inline constexpr unsigned int patch_place_size = 4;

// Throw std::length_error for a grid that the machine cannot hold, what Surface::check_time throws, and what `progress`
// throws to cancel; it may be null.

/// Limit samples at a time on (n + 1) x (n + 1) points per quad: [quad][v][u][sample_row_size]; NaN on holes.
std::vector<double> sample_surface(const Surface& surface, unsigned int n, double time,
                                   AppProgressBar* progress = nullptr);

/// u v w, d/du and d/dv of a UV map on the same points: [quad][v][u][uv_row_size]; NaN on quads that are not mapped.
std::vector<double> sample_uvs(const Surface& surface, unsigned int n, unsigned int uv_map,
                               AppProgressBar* progress = nullptr);

/// Value, d/du and d/dv of a property at a time on the same points: [quad][v][u][3 x extent]; NaN on holes. `mesh` is
/// the property's.
std::vector<double> sample_property(const SdsMesh& mesh, const SurfaceProperty& property, unsigned int n, double time,
                                    AppProgressBar* progress = nullptr);

/// The sixteen controls of every patch at a time: [patch][control][3].
std::vector<float> patch_controls(const Surface& surface, double time);

/// Where every patch lies: [patch][quad, level, x, y]. A patch of level l covers u in [x, x + 1] / 2^l of its quad, and
/// v likewise; one of level -1 the four quads from its own on, beginning in the frame of the first.
std::vector<std::int32_t> patch_places(const Surface& surface);

}  // namespace sds_model

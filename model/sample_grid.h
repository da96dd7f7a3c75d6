#pragma once

#include "model/mesh_properties.h"
#include "model/surface.h"

#include <vector>

namespace sds_model {

/// Values per sample of `sample_row`.
inline constexpr unsigned int sample_row_size = 15;
/// Values per sample of `sample_uvs`.
inline constexpr unsigned int uv_row_size = 9;

/// Writes position, dP/du, dP/dv, normal and smoothing normal, three values each.
void sample_row(const GeometrySample& sample, double* out);

/// Limit samples at a time on (n + 1) x (n + 1) points per quad: [quad][v][u][sample_row_size].
std::vector<double> sample_surface(const Surface& surface, unsigned int n, double time);

/// u v w, d/du and d/dv of a UV map on the same points: [quad][v][u][uv_row_size]; NaN on quads that are not mapped.
std::vector<double> sample_uvs(const Surface& surface, unsigned int n, unsigned int uv_map);

/// Value, d/du and d/dv of a property at a time on the same points: [quad][v][u][3 x extent].
std::vector<double> sample_property(const Surface& surface, const SurfaceProperty& property, unsigned int n,
                                    double time);

/// The sixteen controls of every patch at a time: [quad][control][3].
std::vector<float> patch_controls(const Surface& surface, double time);

}  // namespace sds_model

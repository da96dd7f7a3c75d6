// How far a built surface is from the limit surface, and from itself across edges. Lengths are shares of the control
// cage's diagonal, angles are degrees, grids are 9 x 9 per patch and 9 points per edge.
#pragma once

#include "oracles/double_surface.h"
#include "oracles/opensubdiv_oracle.h"
#include "oracles/patch_classes.h"

namespace sds_test {

struct ErrorSummary {
    size_t count = 0;
    double worst = 0.0;
    double mean = 0.0;
    double percentile99 = 0.0;
};

// Empties `errors`.
ErrorSummary summarize(std::vector<double>& errors);

// Degrees between two directions of any length; NaN when one is zero.
double angle_between(const Vec3d& a, const Vec3d& b);

struct PositionErrors {
    ErrorSummary regular;         // points of regular patches
    ErrorSummary regular_double;  // the same in double precision
    ErrorSummary corners;         // limit corners away from darts
    ErrorSummary corners_double;
    ErrorSummary other;  // points of all other patches
};
PositionErrors measure_positions(const ZooMesh& cage, const BuiltSurface& surface, const DoubleSurface& twin,
                                 const OpenSubdivOracle& oracle);

// Angles, and the worst of them as a multiple of what single precision can tell apart there.
struct AngleErrors {
    ErrorSummary degrees;
    double worst_ratio = 0.0;
};

// Least angle between planes that counts: `floor` degrees, or where the patch is small against its distance from the
// origin what 8 roundings of the largest coordinate do to its two derivatives.
double angle_tolerance(double floor, double largest_coordinate, const SurfacePoint& point);

inline constexpr double normal_floor = 0.01;  // degrees
inline constexpr double gap_floor = 0.02;     // degrees

struct NormalErrors {
    AngleErrors interior;  // regular patches whose corners are all closed fans
    AngleErrors sharp;     // other regular patches without a corner of one quad or a sharp edge that turns back
    ErrorSummary other;
};
NormalErrors measure_normals(const ZooMesh& cage, const BuiltSurface& surface, const OpenSubdivOracle& oracle);

// Angles between the two sides' planes over all smooth edges whose two quads wind the same way and that touch no
// bow-tie. Points where a derivative net gives no plane are counted, not measured.
struct TangentGaps {
    AngleErrors single;
    ErrorSummary twin;
    unsigned int worst_half_edge = 0;
    size_t degenerate = 0;
};
TangentGaps measure_tangent_gaps(const ZooMesh& cage, const BuiltSurface& surface, const DoubleSurface& twin);

// Sample derivatives against central differences of the double-precision position, on patches whose nets are not
// replaced anywhere or stand for the position's own derivative. Shares of the diagonal.
ErrorSummary measure_derivatives(const BuiltSurface& surface, const DoubleSurface& twin);

// The sample that the geometry gives.
GeometrySample sample_at(const SdsMeshGeometry& geometry, unsigned int quad, double u, double v);

// (u, v) at t along edge k, from corner k to the next.
struct PatchPlace {
    double u;
    double v;
};
PatchPlace place_on_edge(unsigned int k, double t);

}  // namespace sds_test

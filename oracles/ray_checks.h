// Many rays against a surface, counted: do the hits agree with an oracle's, and does any ray slip through?
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "oracles/ray_oracle.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"

namespace sds_test {

// Traces one ray to its nearest hit; the result stands in the ray. `worker` is below sys_max_worker_count().
using TraceFunction = std::function<void(GeometryRay& ray, unsigned int worker)>;

// Kernel families as GeometryRaytraceData numbers them.
enum KernelFamily : unsigned int { fast_kernels = 0, reference_kernels = 1 };

// Rays straight to the patches of a mesh, without a renderer between.
class PatchTracer {
public:
    // `mesh` outlives this.
    PatchTracer(const SdsMesh& mesh, const RayOracle& oracle, KernelFamily family);
    // The fast kernels on the patches as the frame sees them at `time`, which the rays carry too.
    PatchTracer(const SdsMesh& mesh, const RayOracle& oracle, const CtxShader& frame, double time);

    void trace(GeometryRay& ray, unsigned int worker) const;

private:
    const SdsMesh& m_mesh;
    GeometryRaytraceData m_data;
    BoxTree m_tree;
    CtxShader m_shader;
    std::vector<std::unique_ptr<CtxThread>> m_threads;
};

struct HitAgreement {
    std::uint64_t rays = 0;
    std::uint64_t hits = 0;
    std::uint64_t other_primitive = 0;  // the same place by way of a shared edge
    std::uint64_t silhouettes = 0;      // right for a ray a rounding error beside this one
    std::uint64_t wrong = 0;
    double worst_t = 0.0;         // of the hits that are not silhouettes, by (diagonal + distance)
    double worst_uv = 0.0;        // of those on the oracle's primitive whose ray meets the surface at 6 degrees or more
    std::uint64_t uv_beyond = 0;  // of those, more than 1e-4 off

    HitAgreement& operator+=(const HitAgreement& other);
};

// Receives the rays at fault and what the oracle expects of them, one call at a time.
using FaultReport = std::function<void(const GeometryRay& ray, const Crossing& expected)>;

// Random rays through the bounding box, half of them from within or near it. Hits agree when their distances differ by
// at most `tolerance` times (diagonal + distance).
HitAgreement compare_hits(const RayOracle& oracle, const TraceFunction& trace, std::uint64_t ray_count,
                          double tolerance, const FaultReport& report = {});

// Points well inside a closed surface: `count` of them or none. A ray through such a point meets the surface before and
// after it.
std::vector<Vec3d> find_inside_points(const RayOracle& oracle, unsigned int count);

enum class Aim {
    surface,        // random points
    patch_corners,  // where patches meet
    edge_middles,   // of patches
    cell_corners,   // of flat cells, or at eighths of a limit patch
    lines,          // random points on the lines between them
    t_edges,        // random points on edges that smaller patches share
    t_ends,         // their ends, middles and quarters
};
inline constexpr Aim all_aims[] = {Aim::surface, Aim::patch_corners, Aim::edge_middles, Aim::cell_corners, Aim::lines};
// Of refined surfaces; where one has no T-edges, lines instead.
inline constexpr Aim refined_aims[] = {Aim::surface, Aim::patch_corners, Aim::edge_middles, Aim::cell_corners,
                                       Aim::lines,   Aim::t_edges,       Aim::t_ends};
const char* name_of(Aim aim);

struct HoleCounts {
    std::uint64_t rays = 0;
    std::uint64_t lost = 0;     // no hit at all
    std::uint64_t late = 0;     // a hit behind the surface that had to stop the ray
    std::uint64_t grazing = 0;  // missed what a ray a rounding error beside this one misses too

    HoleCounts& operator+=(const HoleCounts& other);
};

// Rays from the inside points to exact points of the surface (`diagonals` 0), or from that many diagonals away through
// such a point of the surface to the inside point behind it.
HoleCounts count_holes(const RayOracle& oracle, const TraceFunction& trace, const std::vector<Vec3d>& inside_points,
                       Aim aim, double diagonals, std::uint64_t ray_count, const FaultReport& report = {});

// The cage at another place and size: radius of its box `radius`, center at `center`.
ZooMesh moved(const ZooMesh& cage, const Vec3d& center, double radius);

}  // namespace sds_test

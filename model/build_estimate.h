#pragma once

#include "model/surface_statistics.h"

#include <cstddef>
#include <vector>

namespace sds_model {

/// What building a surface will cost, before it is paid.
struct BuildEstimate {
    std::vector<ArraySize> arrays;  ///< of the finished surface, those of array_sizes(), scaled from a sample build
    std::size_t bytes = 0;          ///< their sum
    std::size_t scratch = 0;        ///< most that is needed besides while it is built
    std::size_t get_peak() const { return bytes + scratch; }
};

/// From counts and valences, linear in the cage, and the arrays of a sample of it. Exact but for tangents, of which
/// darts and bow-ties may have a few more, for UV maps with unmapped polygons, which count as mapped, and for what is
/// refined, of which a cage of more than some thousand polygons is taken to have as much everywhere as at its
/// beginning.
BuildEstimate estimate_build(const ControlCage& cage, const std::vector<UvSource>& further_uvs, bool has_motion,
                             const SurfaceModes& modes);

/// Seconds of every stage, from a build of the first polygons of the cage on this machine.
std::vector<Stage> estimate_stages(const ControlCage& cage, const SurfaceModes& modes);

}  // namespace sds_model

#pragma once

#include "io/usda/mesh_source.h"
#include "io/usda/scene.h"

#include <functional>
#include <string>
#include <vector>

namespace sds_usda {

/// From a prototype to what brings it.
struct UsdLink {
    std::uint32_t root = 0;                   ///< node of the prototype
    std::uint32_t node = 0;                   ///< of the reference or the instancer
    const UsdInstancer* instancer = nullptr;  ///< null for a reference
    std::uint32_t place = 0;                  ///< of the instancer
    bool replaces_ops = false;                ///< the reference's operations stand for those of the root
};

/// Where something stands: below its own ancestors, or below those of what brings it, and so on.
struct UsdPlace {
    std::uint32_t node = 0;
    std::vector<UsdLink> links;  ///< innermost first; empty where nothing brings it
};

/// "/World/Car/Body", and for what is brought "/World/Trees[3]/Leaf".
std::string place_path(const UsdScene& scene, const UsdPlace& place);

/// To the world's space at a time code. Times of instancers that go by velocities are counted from the frame's sample.
Matrix4 place_matrix(const UsdScene& scene, const UsdPlace& place, const UsdFrame& frame, double time);

/// Time codes of all samples on the way, increasing; empty where it stands still.
std::vector<double> place_times(const UsdScene& scene, const UsdPlace& place);

/// Whether it is visible at a time code and meant for pictures.
bool is_place_shown(const UsdScene& scene, const UsdPlace& place, double time);

inline constexpr std::size_t max_places = std::size_t{1} << 22;

/// visit(number of the mesh, place) for every place of a mesh at the frame, in the order of the layer. Stops at
/// max_places that are brought, in prototypes without a mesh too, and returns false.
bool visit_places(const UsdScene& scene, const UsdFrame& frame,
                  const std::function<void(std::uint32_t, const UsdPlace&)>& visit);

}  // namespace sds_usda

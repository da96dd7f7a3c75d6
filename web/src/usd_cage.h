#pragma once

#include "io/usda/scene.h"
#include "model/control_cage.h"
#include "model/finding.h"

#include <optional>
#include <string>

namespace sds_page {

/// The meshes that are visible at a scene's first frame as one cage, in the world's space, a shading group for every
/// instance. Its rules of borders and triangles are the first mesh's. Nothing, with errors in `findings`, whose places
/// begin with `file`, when what is left is no mesh to subdivide.
std::optional<sds_model::ControlCage> make_cage(const sds_usda::UsdScene& scene, bool is_refined,
                                                const std::string& file, sds_model::Findings& findings);

}  // namespace sds_page

#pragma once

#include "io/usda/scene.h"
#include "model/control_cage.h"
#include "model/finding.h"

#include <optional>

namespace sds_page {

/// The meshes of a scene as one cage, in the world's space at the first time code, a shading group for every mesh. Left
/// out are meshes that are invisible there or made for guides and proxies. Rules of borders, creases and triangles are
/// the first mesh's; UVs are its `st` or first pair of texture coordinates. Nothing, with errors in `findings`, when
/// what is left is no mesh to subdivide.
std::optional<sds_model::ControlCage> make_cage(const sds_usda::UsdScene& scene, bool is_refined,
                                                sds_model::Findings& findings);

}  // namespace sds_page

#pragma once

#include "io/usda/mesh_source.h"
#include "io/usda/scene.h"

#include <optional>
#include <string>
#include <vector>

namespace sds_usda {

/// The meshes of a layer as the model has them, at a frame.
struct SceneSource {
    std::vector<sds_model::MeshSource> meshes;       ///< each once, however often it is there; named after the first
    std::vector<sds_model::Findings> findings;       ///< of every mesh
    std::vector<sds_model::MeshInstance> instances;  ///< in the order of the layer
};

/// The frame that is meant where nobody says one: the layer's first, else the first of its samples, else 0.
double first_frame(const UsdScene& scene);

/// What is visible at the frame and meant for pictures: purposes default and render. Meshes with the same arrays are
/// one. Transforms that bend between samples are followed to 1e-5 of their size. `file` stands in the findings, with
/// line and column of the mesh's prim.
SceneSource make_scene_source(const UsdScene& scene, const UsdFrame& frame, const UsdMeshOptions& options,
                              const std::string& file);

/// A transform of the layer while the frame's span goes by, in its time.
sds_render::Transform make_transform(const UsdScene& scene, std::uint32_t node, const UsdFrame& frame);

}  // namespace sds_usda

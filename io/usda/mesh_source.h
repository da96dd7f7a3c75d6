#pragma once

#include "io/usda/scene.h"
#include "model/creases.h"
#include "model/finding.h"
#include "model/mesh_scene.h"

namespace sds_usda {

/// When a scene is looked at. Models count time from there: in time codes, 0 at the frame.
struct UsdFrame {
    double time = 0.0;               ///< a time code
    double open = 0.0, close = 0.0;  ///< the span that is looked at, from the frame; open == close: a moment
    double codes_per_second = 24.0;

    bool is_moment() const { return !(close > open); }
};

/// The ends of a frame's span and what lies between them of `codes`, time codes, from the frame; increasing.
std::vector<double> span_times(const UsdFrame& frame, const std::vector<double>& codes);

/// What surfaces can follow.
struct UsdMeshOptions {
    sds_model::FractionalSharpness fractional = sds_model::FractionalSharpness::harden;
    bool is_refined = false;  ///< whether cages keep what only refined surfaces follow, as ReadObjOptions has it
    bool joins_uvs = true;    ///< false: maps are left as they are read, and are the caller's to join
};

/// A mesh as the model has it. `place` is "file:line:column" of its prim and stands in the findings. With errors among
/// them the result is not to be built.
sds_model::MeshSource make_mesh_source(const UsdMesh& mesh, const std::string& path, const std::string& place,
                                       const UsdFrame& frame, const UsdMeshOptions& options,
                                       sds_model::Findings& findings);

/// Where the faces of a mesh went in its cage: those of fewer than three corners are gone, those of left-handed meshes
/// are turned over.
struct FaceMap {
    std::vector<std::uint32_t> faces;    ///< of the mesh, per polygon of the cage
    std::vector<std::uint32_t> corners;  ///< face-corner of the mesh, per face-corner of the cage
};

/// UV maps, colors and properties of a mesh, on a cage that has its polygons.
void add_primvars(const UsdMesh& mesh, const FaceMap& map, const UsdFrame& frame, const UsdMeshOptions& options,
                  const std::string& place, sds_model::MeshSource& out, sds_model::Findings& findings);

}  // namespace sds_usda

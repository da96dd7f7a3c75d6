#pragma once

#include "io/atomic_file.h"
#include "io/usda/write_layer.h"
#include "model/control_cage.h"
#include "model/surface.h"

#include <span>
#include <string>
#include <vector>

namespace sds_usda {

/// A cage as a Mesh of a layer: creases and corners with their sharpness, holes, groups, UV maps, colors, properties
/// and the rules of `modes`. Refers to the cage, the maps and the properties, which outlive it; stays at its address.
class UsdaCage {
public:
    /// The cage's own UVs become "st", the further ones and the properties keep their names.
    UsdaCage(const std::string& name, const sds_model::ControlCage& cage,
             const std::vector<sds_model::UvSource>& further_uvs, const sds_model::SurfaceModes& modes,
             std::span<const sds_model::PropertySource> properties = {});
    UsdaCage(const UsdaCage&) = delete;
    UsdaCage& operator=(const UsdaCage&) = delete;

    const UsdaMesh& get_mesh() const { return mesh_; }

private:
    void add_creases(const sds_model::ControlCage& cage);
    void add_uvs(const std::string& name, std::span<const float> points, std::span<const std::uint32_t> indices);
    void add_colors(const sds_model::ControlCage& cage);

    UsdaMesh mesh_;
    std::vector<std::uint32_t> holes_, crease_indices_, crease_lengths_, corner_indices_;
    std::vector<float> crease_sharpnesses_, corner_sharpnesses_, colors_;
};

/// Writes a layer, whole or not at all; "-" is standard output. Throws OutputError.
void write_usda_file(const std::string& path, std::span<const UsdaMesh> meshes, const UsdaStage& stage);

}  // namespace sds_usda

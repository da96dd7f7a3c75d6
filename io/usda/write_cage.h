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

    const UsdaMesh& get_mesh() const { return m_mesh; }

private:
    void add_creases(const sds_model::ControlCage& cage);
    void add_uvs(const std::string& name, std::span<const float> points, std::span<const std::uint32_t> indices);
    void add_colors(const sds_model::ControlCage& cage);

    UsdaMesh m_mesh;
    std::vector<std::uint32_t> m_holes, m_crease_indices, m_crease_lengths, m_corner_indices;
    std::vector<float> m_crease_sharpnesses, m_corner_sharpnesses, m_colors;
};

/// Writes a layer, whole or not at all; "-" is standard output. Throws OutputError.
void write_usda_file(const std::string& path, std::span<const UsdaMesh> meshes, const UsdaStage& stage);

}  // namespace sds_usda

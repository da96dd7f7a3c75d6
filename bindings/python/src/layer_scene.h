// Scenes of USD layers.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "io/usda/finding.h"
#include "surface_object.h"

namespace sds_python {

struct LayerWords {
    std::string path;
    std::optional<double> frame;                       ///< a time code; the layer's first without
    std::optional<std::pair<double, double>> shutter;  ///< from the frame; that of the camera without
    std::string camera;                                ///< its path; empty: none
    ModeWords modes;
};

/// A layer that gives no scene.
class LayerError : public std::runtime_error {
public:
    LayerError(const std::string& file, sds_usda::UsdFindings findings)
        : std::runtime_error(file + ": not usable"), m_file(file), m_findings(std::move(findings)) {}
    const std::string& file() const { return m_file; }
    const sds_usda::UsdFindings& findings() const { return m_findings; }

private:
    std::string m_file;
    sds_usda::UsdFindings m_findings;
};

/// Like those of meshes, with "file:line:column" as places.
pybind11::list to_list(const sds_usda::UsdFindings& findings, const std::string& file);

/// What a layer shows at a frame, with the keys surfaces, places (name, number of the surface, times, matrices),
/// cameras (path, times, rows, shutter), frame, frames (first and last, or None), codes_per_second, up,
/// meters_per_unit, shutter and findings. Throws LayerError, MeshError and std::invalid_argument.
pybind11::dict load_layer(const LayerWords& words);

}  // namespace sds_python

#pragma once

#include "cli/options/load_cage.h"
#include "io/input_error.h"
#include "io/usda/scene_source.h"
#include "model/mesh_scene.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sds_cli {

/// Whether a file is read as a USD layer: by its suffix.
bool is_layer(const std::string& path);

/// The meshes of the command line: an OBJ cage, or several, or what a layer shows at a frame.
struct LoadedScene {
    std::vector<LoadedSurface> surfaces;
    std::vector<MeshInstance> instances;  ///< of the surfaces; one each for OBJ cages
    std::optional<sds_usda::UsdScene> layer;
    sds_usda::UsdFindings layer_findings;
    sds_usda::UsdFrame frame;  ///< of the layer

    /// Whether output should say which mesh it is about.
    bool has_names() const { return layer.has_value(); }

    /// Bytes of what was read and built.
    std::size_t get_memory_size() const;

    /// About the most bytes that a hierarchy over the surfaces takes at a tessellation level, while a shutter is open
    /// if they move.
    std::size_t estimate_hierarchy_size(const sds_render::Shutter& shutter, unsigned int level) const;

    /// At a tessellation level. The scene outlives it.
    std::unique_ptr<MeshScene> make_meshes(unsigned int level) const;
};

/// When to look at a layer.
using ChooseFrame = std::function<sds_usda::UsdFrame(const sds_usda::UsdScene&)>;

/// The moment that --frame names, else the layer's first frame.
sds_usda::UsdFrame choose_moment(const CommonOptions& common, const sds_usda::UsdScene& layer);

/// Reads and builds the mesh of `common` and the `further` ones. Prints findings as load_cage does. Throws InputError
/// and UsageError: options that belong to the other kind of file among them; and std::runtime_error when a build would
/// pass the memory limit. `progress` may be null.
LoadedScene load_scene(const CommonOptions& common, const MotionOptions& motion,
                       const std::vector<std::string>& further, const ChooseFrame& choose, AppProgressBar* progress);

/// Reads the meshes of the layer of `common`, and builds none; otherwise like load_scene.
sds_usda::SceneSource read_layer_meshes(const CommonOptions& common, const MotionOptions& motion,
                                        const ChooseFrame& choose);

/// The instance of that path; of an empty one, the only instance. Throws UsageError with the known paths.
const MeshInstance& choose_instance(const LoadedScene& scene, const std::string& path);

/// Adds --prim PATH.
void add_prim_option(CLI::App& command, std::string& path);

/// A layer that gives no scene, with everything found in it.
class LayerError : public InputError {
public:
    LayerError(const std::string& file, sds_usda::UsdFindings findings)
        : InputError(file, "not usable, nothing was written"), m_findings(std::move(findings)) {}

    const sds_usda::UsdFindings& get_findings() const { return m_findings; }

private:
    sds_usda::UsdFindings m_findings;
};

}  // namespace sds_cli

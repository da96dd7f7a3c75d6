#pragma once

#include "cli/options/load_scene.h"
#include "cli/options/render_options.h"
#include "model/mesh_scene.h"
#include "render/renderer.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace sds_cli {

/// Asked before anything is read. Throws UsageError.
void check_picture(const RenderCommandOptions& options);

/// The files of the picture: its own, and for those that hold one layer the ones beside it.
std::vector<std::string> picture_files(const RenderCommandOptions& options);

/// Asked before work that may take long. Throws UsageError and OutputError.
void check_picture_files(const RenderCommandOptions& options);

/// What stands where in the picture: one area, or those of the views of a contact sheet.
std::vector<sds_render::ImageArea> picture_areas(const RenderCommandOptions& options);

/// Writes the picture's files, each with the note (io/image_files.h). Throws OutputError.
void write_picture(const RenderCommandOptions& options, const sds_render::Image& image, const std::string& note = "");

/// A scene that is ready for the picture. Options are checked; what is wrong with files throws from the constructor as
/// from load_scene.
class Picture {
public:
    /// `progress` may be null.
    Picture(const RenderCommandOptions& options, AppProgressBar* progress);
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    const LoadedScene& get_loaded() const { return m_loaded; }
    double get_hierarchy_seconds() const { return m_hierarchy_seconds; }

    sds_render::Rendering render(AppProgressBar* progress) const;

    /// Tiles of the areas, numbered from the first of the first area on, as sds_render::render_tiles has them.
    /// `seconds` gets one number per tile.
    sds_render::Rendering render_tiles(std::span<const unsigned int> tiles, std::vector<double>& seconds) const;

private:
    RenderCommandOptions m_options;
    LoadedScene m_loaded;
    std::unique_ptr<MeshScene> m_meshes;
    sds_render::RenderOptions m_render_options;
    std::optional<sds_render::Scene> m_scene;
    std::vector<sds_render::Camera> m_cameras;  ///< one per area
    double m_hierarchy_seconds = 0.0;
};

/// Puts tiles of Picture::render_tiles where they belong in a picture of the same channels.
void paste_tiles(const RenderCommandOptions& options, const sds_render::Image& strip,
                 std::span<const unsigned int> tiles, sds_render::Image& picture);

}  // namespace sds_cli

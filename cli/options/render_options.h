#pragma once

#include "cli/options/camera_options.h"
#include "cli/options/common_options.h"
#include "cli/options/motion_options.h"
#include "io/picture.h"

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace sds_cli {

/// A picture of the command line: its scene, its camera, its lights, its colors and its file.
struct RenderCommandOptions : CommonOptions, PictureOptions {
    std::vector<std::string> further_meshes;
    MotionOptions motion;
    std::string output;
    unsigned int level = 0;
    unsigned int width = 960, height = 720;
    CameraOptions camera;
    unsigned int turntable = 0;     ///< views of a contact sheet, 0 for one picture
    std::vector<std::string> aovs;  ///< names of layers, several in one separated by commas
    std::vector<double> shutter;
};

/// Adds every option of a picture, the positional meshes among them.
void add_render_options(CLI::App& command, RenderCommandOptions& options);

}  // namespace sds_cli

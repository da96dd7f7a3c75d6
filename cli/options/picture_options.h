#pragma once

#include "cli/options/camera_options.h"
#include "cli/options/common_options.h"
#include "cli/options/motion_options.h"
#include "io/texture.h"

#include <CLI/App.hpp>
#include <cstddef>
#include <string>
#include <vector>

namespace sds_cli {

/// A picture of the command line: its scene, its camera, its lights, its colors and its file.
struct PictureOptions : CommonOptions {
    std::vector<std::string> further_meshes;
    MotionOptions motion;
    std::string output;
    unsigned int level = 0;
    unsigned int width = 960, height = 720;
    unsigned int samples = 16;
    CameraOptions camera;
    std::vector<double> sun;  ///< azimuth and elevation in degrees
    double sun_strength = 1.0;
    std::string environment;
    std::string color_by, color_map = "viridis";
    std::vector<double> color_range;
    unsigned int turntable = 0;  ///< views of a contact sheet, 0 for one picture
    bool wire = false;
    std::vector<std::string> aovs;
    std::string texture;
    std::size_t texture_limit = Texture::default_limit;
    bool checker = false;
    unsigned int uv_map = 0;
    std::vector<double> shutter;
};

/// Adds every option of a picture, the positional meshes among them.
void add_picture_options(CLI::App& command, PictureOptions& options);

}  // namespace sds_cli

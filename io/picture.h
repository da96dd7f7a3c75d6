#pragma once

#include "io/texture.h"
#include "model/mesh_scene.h"
#include "render/renderer.h"

#include <string>
#include <vector>

namespace sds_io {

/// What makes a picture of meshes besides its camera and size, as users say it.
struct PictureOptions {
    unsigned int samples = 16;
    bool wire = false, background = true;
    std::vector<std::string> layers;  ///< of sds_render::make_layer, and prop:NAME for properties
    std::vector<double> sun;          ///< azimuth and elevation in degrees, as views have them; empty: none
    double sun_strength = 1.0;
    std::string environment;  ///< an EXR; empty: none
    std::string color_by;     ///< a property; empty: none
    std::string color_map = "viridis";
    std::vector<double> color_range;  ///< two ends, the first less; empty: the property's own
    std::string texture;              ///< a PNG; empty: none
    std::size_t texture_limit = Texture::default_limit;
    bool checker = false;
    unsigned int uv_map = 0;  ///< of texture and checker
};

/// Throws std::invalid_argument, with the known names, for a layer that is not known. Whether properties are there is
/// not asked.
void check_layer_names(const std::vector<std::string>& names);

/// The layers of those names. Throws std::invalid_argument for a property that is not there or has too many numbers,
/// and for two layers with one channel. The meshes outlive the layers.
std::vector<sds_render::Layer> make_layers(const std::vector<std::string>& names, const sds_model::MeshScene& meshes);

/// What the options say of lights and colors; layers are the caller's. `by_group` is the color where neither they nor
/// the meshes say one. Meshes without the UV map that is asked for have what they would have without the asking if
/// `keeps_unmapped`, else what sds_render makes of them. Throws std::invalid_argument and InputError. The meshes
/// outlive the result.
sds_render::RenderOptions make_render_options(const PictureOptions& options, const sds_model::MeshScene& meshes,
                                              sds_render::UpAxis up, const sds_render::SurfaceColor& by_group,
                                              bool keeps_unmapped);

}  // namespace sds_io

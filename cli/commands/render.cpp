#include "cli/commands/render.h"

#include "cli/options/common_options.h"
#include "cli/options/load_cage.h"
#include "cli/options/material_color.h"
#include "cli/options/usage_error.h"
#include "io/image_files.h"
#include "io/texture.h"
#include "model/array_size.h"
#include "model/mesh_properties.h"
#include "render/framing.h"
#include "render/renderer.h"
#include "render/turntable.h"

#include <unistd.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace sds_cli {

namespace {

struct RenderCommandOptions : CommonOptions {
    std::vector<std::string> further_meshes;
    MotionOptions motion;
    std::string output;
    unsigned int level = 0;
    unsigned int width = 960, height = 720;
    unsigned int samples = 16;
    std::string view;
    std::string up = "y";
    unsigned int turntable = 0;  ///< views of a contact sheet, 0 for one picture
    bool wire = false;
    std::vector<std::string> aovs;
    std::string texture;
    std::size_t texture_limit = Texture::default_limit;
    bool checker = false;
    unsigned int uv_map = 0;
    std::vector<double> shutter;
};

constexpr unsigned int max_picture_side = 16384;
constexpr unsigned int max_samples = 1u << 16;
constexpr unsigned int max_views = 256;
constexpr double checks_per_unit = 16.0;

bool has_suffix(const std::string& path, const char* suffix) {
    return CLI::detail::to_lower(std::filesystem::path(path).extension().string()) == suffix;
}
bool is_exr(const std::string& path) { return has_suffix(path, ".exr"); }
bool is_png(const std::string& path) { return has_suffix(path, ".png"); }

/// Where a PNG of one layer goes: beside the picture, the layer's name before the suffix.
std::string layer_path(const std::string& output, const std::string& layer) {
    std::filesystem::path path(output);
    return path.replace_extension(layer + ".png").string();
}

sds_render::CameraView parse_view(const RenderCommandOptions& options) {
    using Up = sds_render::UpAxis;
    sds_render::CameraView view;
    view.up = options.up == "x" ? Up::x : options.up == "z" ? Up::z : Up::y;
    const std::string& text = options.view;
    if (text.empty()) return view;
    std::string numbers = text;
    std::replace(numbers.begin(), numbers.end(), ',', ' ');
    std::istringstream stream(numbers);
    std::string rest;
    if (!(stream >> view.azimuth >> view.elevation) || (stream >> rest))
        throw UsageError("--view: '" + text + "' is not azimuth and elevation in degrees, such as 35 22");
    if (!std::isfinite(view.azimuth) || !(std::fabs(view.elevation) <= 90.0))
        throw UsageError("--view: the elevation is between -90 and 90 degrees");
    return view;
}

std::vector<std::string> layer_names(const RenderCommandOptions& options) {
    std::vector<std::string> names;
    for (std::string words : options.aovs) {
        std::replace(words.begin(), words.end(), ',', ' ');
        std::istringstream stream(words);
        for (std::string name; stream >> name;)
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    if (names.empty() && is_exr(options.output)) names = {"P", "N", "uv", "id", "Z"};
    return names;
}

constexpr std::string_view property_prefix = "prop:";

bool is_property_layer(const std::string& name) { return name.starts_with(property_prefix); }

/// Asked before anything is read.
void check_layers(const std::vector<std::string>& names) {
    try {
        for (const std::string& name : names)
            if (!is_property_layer(name)) sds_render::make_layer(name);
    } catch (const std::invalid_argument& error) {
        throw UsageError(std::string("--aov: ") + error.what() + ", prop:NAME");
    }
}

std::vector<sds_render::Layer> make_layers(const std::vector<std::string>& names, const MeshProperties& properties) {
    std::vector<sds_render::Layer> layers;
    std::vector<std::string> channels{"R", "G", "B", "A"};
    for (const std::string& name : names) {
        layers.push_back(asked_by("", [&] {
            return is_property_layer(name) ? make_property_layer(properties.find(name.substr(property_prefix.size())))
                                           : sds_render::make_layer(name);
        }));
        for (unsigned int c = 0; c < layers.back().components.size(); ++c) {
            const std::string channel = layers.back().get_channel_name(c);
            if (std::find(channels.begin(), channels.end(), channel) != channels.end())
                throw UsageError(std::string("--aov: ").append(name).append(" gives channel ").append(channel) +
                                 " a second time");
            channels.push_back(channel);
        }
    }
    return layers;
}

/// The meshes of the scene, in the order of the command line.
std::vector<LoadedSurface> load_surfaces(const RenderCommandOptions& options, AppProgressBar* progress) {
    std::vector<LoadedSurface> loaded;
    loaded.push_back(load_surface(options, options.motion, progress));
    for (const std::string& path : options.further_meshes) {
        CommonOptions further = options;
        further.mesh = path;
        loaded.push_back(load_surface(further, {}, nullptr));
    }
    return loaded;
}

/// What a picture takes while it is made and written, with what is held besides.
void check_memory(const RenderCommandOptions& options, const std::vector<LoadedSurface>& loaded,
                  const std::vector<sds_render::Layer>& layers) {
    std::size_t channels = 4, held = 0;
    for (const sds_render::Layer& layer : layers) channels += layer.components.size();
    for (const LoadedSurface& each : loaded) held += each.surface->get_memory_size();
    if (!options.texture.empty()) {
        const std::size_t texture = Texture::read_png_size(options.texture);
        if (texture > options.texture_limit)
            throw UsageError("--texture-limit: " + options.texture + " takes " + to_size_text(texture) +
                             ", more than the limit of " + to_size_text(options.texture_limit));
        held += texture;
    }
    // A file is encoded in memory: the pixels once more, and their bytes at worst as many again.
    const std::size_t pixel_size = sizeof(float) * (channels + (is_exr(options.output) ? 2 * channels : 2));
    const std::size_t pixels = checked_count({options.width, options.height}, pixel_size);
    check_memory_limit("the picture", held + pixels * pixel_size, options.memory_limit);
}

sds_render::SurfaceColor make_color(const RenderCommandOptions& options, const std::vector<LoadedSurface>& loaded) {
    const bool needs_map = !options.texture.empty() || options.uv_map > 0;
    bool has_colors = false;
    for (std::size_t i = 0; i < loaded.size(); ++i) {
        const unsigned int maps = loaded[i].surface->get_maps().get_uv_map_count();
        has_colors |= loaded[i].surface->get_maps().get_color_map_count() > 0;
        if (needs_map)
            check_uv_map(options.texture.empty() ? "--map" : "--texture",
                         i == 0 ? options.mesh : options.further_meshes[i - 1], options.uv_map, maps);
    }
    if (!options.texture.empty())
        return make_texture_color(
            std::make_shared<const Texture>(Texture::read_png(options.texture, options.texture_limit)), options.uv_map);
    if (options.checker) return sds_render::make_checker(options.uv_map, checks_per_unit);
    if (has_colors) return sds_render::make_map_color(0, sds_render::clay);
    std::vector<std::string> paths{options.mesh};
    paths.insert(paths.end(), options.further_meshes.begin(), options.further_meshes.end());
    const sds_render::SurfaceColor group_color = sds_render::make_group_color();
    const sds_render::SurfaceColor material_color =
        make_material_color(loaded, paths, options.uv_map, group_color, options, options.texture_limit);
    return material_color ? material_color : group_color;
}

sds_render::Shutter make_shutter(const RenderCommandOptions& options, const Motion& motion) {
    if (options.shutter.empty()) return {motion.get_first_time(), motion.get_last_time()};
    const sds_render::Shutter shutter{options.shutter[0], options.shutter[1]};
    if (!std::isfinite(shutter.open) || !std::isfinite(shutter.close) || shutter.close < shutter.open)
        throw UsageError("--shutter: opens at a finite time and does not close earlier");
    return shutter;
}

void check_options(const RenderCommandOptions& options) {
    const bool is_stream = options.output == "-";
    if (!is_stream && !is_png(options.output) && !is_exr(options.output))
        throw UsageError("--output: '" + options.output + "' ends neither with .png nor with .exr");
    if (is_stream && !options.aovs.empty()) throw UsageError("--aov: layers need a file, not standard output");
    if (is_stream && isatty(STDOUT_FILENO) != 0) throw UsageError("--output: standard output is a terminal");
    check_outputs({options.output});
    if (!options.further_meshes.empty() &&
        (options.motion.has_motion() || !options.uv_files.empty() || !options.property_file.empty()))
        throw UsageError("--motion, --time-samples, --uv and --properties belong to one mesh, and there are " +
                         std::to_string(1 + options.further_meshes.size()));
    const sds_render::SheetGrid grid(std::max(options.turntable, 1u), options.width, options.height);
    if (std::min(grid.cell_width, grid.cell_height) == 0)
        throw UsageError("--turntable: " + std::to_string(options.turntable) + " views have no room in " +
                         std::to_string(options.width) + " x " + std::to_string(options.height) + " pixels");
}

void write_picture(const RenderCommandOptions& options, const sds_render::Image& image,
                   const std::vector<sds_render::Layer>& layers) {
    if (is_exr(options.output)) {
        write_exr(options.output, image);
        return;
    }
    write_png(options.output, image, "");
    if (options.output == "-") return;
    for (const sds_render::Layer& layer : layers) write_png(layer_path(options.output, layer.name), image, layer.name);
}

void print_statistics(const std::vector<LoadedSurface>& loaded, double hierarchy_seconds,
                      const sds_render::RenderStatistics& trace) {
    print_build_rate(loaded);
    std::fprintf(stderr, "hierarchy  %.3f s\n", hierarchy_seconds);
    std::fprintf(stderr, "trace      %llu rays, %llu hits, %.3f s, %.3g rays/s\n",
                 static_cast<unsigned long long>(trace.rays), static_cast<unsigned long long>(trace.hits),
                 trace.seconds, trace.get_rays_per_second());
}

void run_render(const RenderCommandOptions& options) {
    check_options(options);
    const sds_render::CameraView view = parse_view(options);
    const std::vector<std::string> names = layer_names(options);
    check_layers(names);
    sds_render::RenderOptions render_options;
    render_options.samples = options.samples;
    render_options.shading.wire = options.wire;

    std::unique_ptr<AppProgressBar> progress = make_progress(options, "sds render");
    std::vector<LoadedSurface> loaded;
    {
        const AppProgressTask task(progress.get(), "build", 0.1f);
        loaded = load_surfaces(options, progress.get());
    }
    std::vector<SdsMesh> meshes;
    meshes.reserve(loaded.size());
    for (const LoadedSurface& mesh : loaded) meshes.push_back(mesh.surface->make_mesh(options.level));
    const MeshProperties properties(loaded[0].properties, loaded[0].get_cage(), meshes[0]);
    render_options.layers = make_layers(names, properties);
    check_memory(options, loaded, render_options.layers);
    render_options.shading.color = make_color(options, loaded);
    const sds_render::Shutter shutter = make_shutter(options, loaded[0].motion);
    for (const double time : {shutter.open, shutter.close})
        asked_by("--shutter: ", [&] { loaded[0].surface->check_time(time); });
    sds_render::Scene scene(shutter);
    const auto begin = std::chrono::steady_clock::now();
    {
        const AppProgressTask task(progress.get(), "hierarchy", 0.05f);
        for (const SdsMesh& mesh : meshes) scene.add(mesh);
        scene.commit();
    }
    const std::chrono::duration<double> hierarchy = std::chrono::steady_clock::now() - begin;
    sds_render::RenderStatistics statistics;
    {
        const AppProgressTask task(progress.get(), "trace", 0.85f);
        const sds_render::Rendering rendering =
            options.turntable > 0
                ? sds_render::render_turntable(scene, view, options.turntable, options.width, options.height,
                                               render_options, progress.get())
                : sds_render::render(scene, sds_render::frame_scene(scene, view, options.width, options.height),
                                     render_options, progress.get());
        write_picture(options, rendering.image, render_options.layers);
        statistics = rendering.statistics;
    }
    progress.reset();  // ends its line
    if (options.statistics) print_statistics(loaded, hierarchy.count(), statistics);
}

void add_picture_options(CLI::App& command, RenderCommandOptions& options) {
    command.add_option("-o,--output", options.output, "Picture, .png or .exr; - writes a PNG to standard output")
        ->type_name("FILE")
        ->required();
    command.add_option("--width", options.width, "Pixels")
        ->check(CLI::Range(1u, max_picture_side))
        ->capture_default_str();
    command.add_option("--height", options.height, "Pixels")
        ->check(CLI::Range(1u, max_picture_side))
        ->capture_default_str();
    command.add_option("--samples", options.samples, "Samples per pixel; powers of two spread best")
        ->check(CLI::Range(1u, max_samples))
        ->capture_default_str();
    command.add_option("--view", options.view, "Azimuth and elevation of the camera in degrees, 35 22 by default")
        ->type_name("A E");
    command
        .add_option("--turntable", options.turntable,
                    "A contact sheet: N views from all sides, the first as --view says, in one picture")
        ->type_name("N")
        ->check(CLI::Range(1u, max_views));
    command
        .add_option("--up", options.up, "The axis that points up; azimuth 0 is the side of +z, of -y when z points up")
        ->transform(CLI::IsMember({"x", "y", "z"}, CLI::ignore_case))
        ->capture_default_str()
        ->type_name("AXIS");
}

}  // namespace

void add_render_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("render", "Make a picture of the surface");
    const auto options = std::make_shared<RenderCommandOptions>();
    add_common_options(command, *options);
    command.add_option("MORE", options->further_meshes, "Further cages of the same scene")->type_name("MESH");
    add_level_option(command, options->level);
    add_picture_options(command, *options);
    add_property_option(command, *options);
    command.add_flag("--wire", options->wire, "Draw the edges of the cage on the surface");
    command
        .add_option("--aov", options->aovs,
                    "Layers, separated by commas: N Ng P Z st uv id object group color checker, and prop:NAME for a "
                    "property. In an .exr they are channels (P, N, uv, id, Z by default), beside a .png pictures "
                    "FILE.LAYER.png")
        ->type_name("NAMES")
        ->allow_extra_args(false);
    CLI::Option* texture =
        command
            .add_option(
                "--texture", options->texture,
                "PNG on the surface, through its UVs, before vertex colors and the Kd and map_Kd of mtllib files")
            ->type_name("FILE");
    add_size_option(command, "--texture-limit", options->texture_limit,
                    "Refuse a texture that takes more, 1G by default");
    command.add_flag("--checker", options->checker, "Squares on the surface, through its UVs")->excludes(texture);
    command.add_option("--map", options->uv_map, "UV map of --texture and --checker, 0 the mesh's own")
        ->capture_default_str();
    add_motion_options(command, options->motion);
    command
        .add_option("--shutter", options->shutter,
                    "Times at which the shutter opens and closes; by default the whole motion is blurred")
        ->expected(2)
        ->type_name("OPEN CLOSE");
    set_action(command, action, options, run_render);
}

}  // namespace sds_cli

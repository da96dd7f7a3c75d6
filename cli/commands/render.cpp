#include "cli/commands/render.h"

#include "cli/options/camera_options.h"
#include "cli/options/common_options.h"
#include "cli/options/load_scene.h"
#include "cli/options/material_color.h"
#include "cli/options/usage_error.h"
#include "io/image_files.h"
#include "io/picture.h"
#include "model/array_size.h"
#include "model/color_map.h"
#include "model/mesh_scene.h"
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

constexpr unsigned int max_picture_side = 16384;
constexpr unsigned int max_samples = 1u << 16;
constexpr unsigned int max_views = 256;

bool has_suffix(const std::string& path, const char* suffix) {
    return CLI::detail::to_lower(std::filesystem::path(path).extension().string()) == suffix;
}
bool is_exr(const std::string& path) { return has_suffix(path, ".exr"); }
bool is_png(const std::string& path) { return has_suffix(path, ".png"); }
bool is_jpeg(const std::string& path) { return has_suffix(path, ".jpg") || has_suffix(path, ".jpeg"); }

/// Where the picture of one layer goes: beside the whole one, the layer's name before the suffix.
std::string layer_path(const std::string& output, const std::string& layer) {
    std::filesystem::path path(output);
    return path.replace_extension(layer + path.extension().string()).string();
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

/// What a picture takes while it is made and written, with what is held besides: returns both.
std::size_t check_memory(const RenderCommandOptions& options, const LoadedScene& loaded,
                         const sds_render::Shutter& shutter, const std::vector<sds_render::Layer>& layers) {
    std::size_t channels = 4, held = loaded.get_memory_size() + loaded.estimate_hierarchy_size(shutter);
    for (const sds_render::Layer& layer : layers) channels += layer.components.size();
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
    held += pixels * pixel_size;
    check_memory_limit("the picture", held, options.memory_limit);
    return held;
}

/// Of a layer: what --shutter says, or its camera's, around the frame; else the whole motion of the first mesh.
sds_render::Shutter parse_shutter(const RenderCommandOptions& options, const sds_render::Shutter& otherwise) {
    if (options.shutter.empty()) return otherwise;
    const sds_render::Shutter shutter{options.shutter[0], options.shutter[1]};
    if (!std::isfinite(shutter.open) || !std::isfinite(shutter.close) || shutter.close < shutter.open)
        throw UsageError("--shutter: opens at a finite time and does not close earlier");
    return shutter;
}

sds_usda::UsdFrame choose_frame(const RenderCommandOptions& options, const sds_usda::UsdScene& layer) {
    sds_usda::UsdFrame frame = choose_moment(options, layer);
    const sds_render::Shutter shutter = parse_shutter(options, choose_shutter(options.camera, layer, frame.time));
    frame.open = shutter.open;
    frame.close = shutter.close;
    return frame;
}

/// A map is asked for: every cage must have it, and one mesh of a layer.
void check_maps(const RenderCommandOptions& options, const LoadedScene& scene) {
    const LoadedSurface* without = nullptr;
    bool has_map = false;
    for (const LoadedSurface& loaded : scene.surfaces) {
        const bool is_there = options.uv_map < loaded.surface->get_maps().get_uv_map_count();
        has_map |= is_there;
        if (!is_there && without == nullptr) without = &loaded;
    }
    if (without != nullptr && !(scene.has_names() && has_map))
        check_uv_map(options.texture.empty() ? "--map" : "--texture", without->name, options.uv_map,
                     without->surface->get_maps().get_uv_map_count());
}

/// Of the groups: by their materials, which cages read from libraries of their own, else by their numbers.
/// `held` bytes are held besides.
sds_render::SurfaceColor make_unsaid_color(const RenderCommandOptions& options, const LoadedScene& scene,
                                           std::size_t held) {
    sds_render::SurfaceColor by_group = sds_render::make_group_color();
    if (scene.has_names()) return by_group;
    std::vector<std::string> paths{options.mesh};
    paths.insert(paths.end(), options.further_meshes.begin(), options.further_meshes.end());
    sds_render::SurfaceColor by_material =
        make_material_color(scene.surfaces, paths, options.uv_map, by_group, options, options.texture_limit, held);
    return by_material ? by_material : by_group;
}

void check_options(const RenderCommandOptions& options) {
    const bool is_stream = options.output == "-";
    if (!is_stream && !is_png(options.output) && !is_exr(options.output) && !is_jpeg(options.output))
        throw UsageError("--output: '" + options.output + "' ends neither with .png nor with .exr or .jpg");
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
    const auto write = is_jpeg(options.output) ? &write_jpeg : &write_png;
    write(options.output, image, "");
    if (options.output == "-") return;
    for (const sds_render::Layer& layer : layers) write(layer_path(options.output, layer.name), image, layer.name);
}

void print_statistics(const LoadedScene& loaded, double hierarchy_seconds, const sds_render::RenderStatistics& trace) {
    print_build_rate(loaded.surfaces);
    std::fprintf(stderr, "hierarchy  %.3f s\n", hierarchy_seconds);
    std::fprintf(stderr, "trace      %llu rays, %llu hits, %.3f s, %.3g rays/s\n",
                 static_cast<unsigned long long>(trace.rays), static_cast<unsigned long long>(trace.hits),
                 trace.seconds, trace.get_rays_per_second());
}

void run_render(const RenderCommandOptions& options) {
    check_options(options);
    const sds_render::CameraView view = parse_view(options.camera);
    check_camera(options.camera, is_layer(options.mesh), options.turntable > 0);
    const std::vector<std::string> names = layer_names(options);
    asked_by("--aov: ", [&] { check_layer_names(names); });

    std::unique_ptr<AppProgressBar> progress = make_progress(options, "sds render");
    LoadedScene loaded;
    {
        const AppProgressTask task(progress.get(), "build", 0.1f);
        const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_frame(options, layer); };
        loaded = load_scene(options, options.motion, options.further_meshes, choose, progress.get());
    }
    const ScenePose pose = make_pose(options.camera, view, loaded, options.width, options.height);
    const std::unique_ptr<MeshScene> meshes = loaded.make_meshes(options.level);
    std::vector<sds_render::Layer> layers = asked_by("--aov: ", [&] { return make_layers(names, *meshes); });
    if (!options.texture.empty() || options.uv_map > 0) check_maps(options, loaded);
    const Motion& motion = loaded.surfaces.front().motion;
    const sds_render::Shutter shutter = loaded.layer
                                            ? sds_render::Shutter{loaded.frame.open, loaded.frame.close}
                                            : parse_shutter(options, {motion.get_first_time(), motion.get_last_time()});
    for (const double time : {shutter.open, shutter.close})
        asked_by("--shutter: ", [&] { loaded.surfaces.front().surface->check_time(time); });
    const std::size_t held = check_memory(options, loaded, shutter, layers);
    sds_render::RenderOptions render_options = asked_by("--color-by: ", [&] {
        const sds_render::SurfaceColor unsaid = make_unsaid_color(options, loaded, held);
        return make_render_options(options, *meshes, pose.view.up, unsaid, loaded.has_names());
    });
    render_options.layers = std::move(layers);
    sds_render::Scene scene(shutter);
    const auto begin = std::chrono::steady_clock::now();
    {
        const AppProgressTask task(progress.get(), "hierarchy", 0.05f);
        meshes->add_to(scene);
        scene.commit();
    }
    const std::chrono::duration<double> hierarchy = std::chrono::steady_clock::now() - begin;
    sds_render::RenderStatistics statistics;
    {
        const AppProgressTask task(progress.get(), "trace", 0.85f);
        const sds_render::Rendering rendering =
            options.turntable > 0
                ? sds_render::render_turntable(scene, pose.view, options.turntable, options.width, options.height,
                                               render_options, progress.get())
                : sds_render::render(scene,
                                     pose.camera
                                         ? *pose.camera
                                         : sds_render::frame_scene(scene, pose.view, options.width, options.height),
                                     render_options, progress.get());
        write_picture(options, rendering.image, render_options.layers);
        statistics = rendering.statistics;
    }
    progress.reset();  // ends its line
    if (options.statistics) print_statistics(loaded, hierarchy.count(), statistics);
}

void add_picture_options(CLI::App& command, RenderCommandOptions& options) {
    command.add_option("-o,--output", options.output, "Picture, .png, .jpg or .exr; - writes a PNG to standard output")
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
    command
        .add_option("--turntable", options.turntable,
                    "A contact sheet: N views from all sides, the first as --view says, in one picture")
        ->type_name("N")
        ->check(CLI::Range(1u, max_views));
}

void add_light_options(CLI::App& command, RenderCommandOptions& options) {
    CLI::Option* sun =
        command
            .add_option("--sun", options.sun,
                        "Where the sun stands, azimuth and elevation in degrees as --view counts them; it stays there "
                        "and replaces the lights that go with the camera")
            ->expected(2)
            ->type_name("AZIMUTH ELEVATION");
    command.add_option("--sun-strength", options.sun_strength, "How bright the sun is")
        ->check(CLI::Range(0.0, 1e6))
        ->capture_default_str()
        ->needs(sun);
    command
        .add_option("--environment", options.environment,
                    "Light from all around, an .exr twice as wide as high: the middle is behind a scene that is seen "
                    "from azimuth 0")
        ->type_name("FILE");
}

void add_color_options(CLI::App& command, RenderCommandOptions& options, CLI::Option* texture) {
    CLI::Option* by =
        command
            .add_option("--color-by", options.color_by, "Colors by a property: its number, or the length of several")
            ->type_name("PROPERTY")
            ->excludes(texture);
    command.add_option("--color-map", options.color_map, "Colors of --color-by")
        ->check(CLI::IsMember(color_map_names()))
        ->capture_default_str()
        ->needs(by);
    command
        .add_option("--color-range", options.color_range,
                    "Values at both ends of the colors; the property's own by default")
        ->expected(2)
        ->type_name("LOW HIGH")
        ->needs(by);
}

}  // namespace

void add_render_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("render", "Make a picture of the surface");
    const auto options = std::make_shared<RenderCommandOptions>();
    add_common_options(command, *options);
    command.add_option("MORE", options->further_meshes, "Further cages of the same scene")->type_name("MESH");
    add_level_option(command, options->level);
    add_picture_options(command, *options);
    add_camera_options(command, options->camera);
    add_light_options(command, *options);
    add_property_option(command, *options);
    command.add_flag("--wire", options->wire, "Draw the edges of the cage on the surface");
    command
        .add_option(
            "--aov", options->aovs,
            "Layers, separated by commas: N Ng P Z st uv id object group color checker lines, and prop:NAME for a "
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
    add_color_options(command, *options, texture);
    add_motion_options(command, options->motion);
    command
        .add_option("--shutter", options->shutter,
                    "Times at which the shutter opens and closes; by default the whole motion is blurred. Of a scene, "
                    "from the frame; by default what its camera says")
        ->expected(2)
        ->type_name("OPEN CLOSE");
    set_action(command, action, options, run_render);
}

}  // namespace sds_cli

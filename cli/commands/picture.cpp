#include "cli/commands/picture.h"

#include "cli/options/material_color.h"
#include "cli/options/usage_error.h"
#include "io/image_files.h"
#include "model/array_size.h"
#include "render/framing.h"
#include "render/turntable.h"

#include <unistd.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace sds_cli {

namespace {

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
    std::size_t channels = 4, held = loaded.get_memory_size() + loaded.estimate_hierarchy_size(shutter, options.level);
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

/// Of a layer, as its channels and files have it.
std::string layer_title(const std::string& name) {
    constexpr std::string_view property_prefix = "prop:";
    return name.starts_with(property_prefix) ? name.substr(property_prefix.size()) : name;
}

/// Tiles of one area each in a run: calls `take(area, first, tiles)` with their places from `first` on and their
/// numbers in the area.
template <class Take>
void for_each_area(const RenderCommandOptions& options, std::span<const unsigned int> tiles, const Take& take) {
    const std::vector<sds_render::ImageArea> areas = picture_areas(options);
    const unsigned int per_area = sds_render::count_tiles(areas[0].width, areas[0].height);
    std::vector<unsigned int> own;
    for (std::size_t first = 0; first < tiles.size(); first += own.size()) {
        const unsigned int area = tiles[first] / per_area;
        own.clear();
        for (std::size_t i = first; i < tiles.size() && tiles[i] / per_area == area; ++i)
            own.push_back(tiles[i] % per_area);
        take(area, first, own);
    }
}

/// Puts the tiles of a part behind the `first` ones of `count`.
void append(const sds_render::Rendering& part, std::size_t first, std::size_t count,
            std::optional<sds_render::Rendering>& all) {
    constexpr std::size_t tile_pixels = std::size_t{sds_render::tile_size} * sds_render::tile_size;
    if (!all) {
        all.emplace(sds_render::Rendering{
            {sds_render::tile_size, sds_render::tile_size * static_cast<unsigned int>(count)}, {}});
        for (const sds_render::Channel& channel : part.image.get_channels())
            all->image.add_channel(channel.name, channel.kind);
    }
    const auto place = static_cast<std::ptrdiff_t>(first * tile_pixels);
    for (const sds_render::Channel& channel : part.image.get_channels()) {
        sds_render::Channel& to = *all->image.find_channel(channel.name);
        std::copy(channel.values.begin(), channel.values.end(), to.values.begin() + place * !channel.values.empty());
        std::copy(channel.ids.begin(), channel.ids.end(), to.ids.begin() + place * !channel.ids.empty());
    }
    all->statistics.camera_rays += part.statistics.camera_rays;
    all->statistics.rays += part.statistics.rays;
    all->statistics.hits += part.statistics.hits;
    all->statistics.seconds += part.statistics.seconds;
}

}  // namespace

void check_picture(const RenderCommandOptions& options) {
    const bool is_stream = options.output == "-";
    if (!is_stream && !is_png(options.output) && !is_exr(options.output) && !is_jpeg(options.output))
        throw UsageError("--output: '" + options.output + "' ends neither with .png nor with .exr or .jpg");
    if (is_stream && !options.aovs.empty()) throw UsageError("--aov: layers need a file, not standard output");
    if (!options.further_meshes.empty() &&
        (options.motion.has_motion() || !options.uv_files.empty() || !options.property_file.empty()))
        throw UsageError("--motion, --time-samples, --uv and --properties belong to one mesh, and there are " +
                         std::to_string(1 + options.further_meshes.size()));
    const sds_render::SheetGrid grid(std::max(options.turntable, 1u), options.width, options.height);
    if (std::min(grid.cell_width, grid.cell_height) == 0)
        throw UsageError("--turntable: " + std::to_string(options.turntable) + " views have no room in " +
                         std::to_string(options.width) + " x " + std::to_string(options.height) + " pixels");
    parse_view(options.camera);
    check_camera(options.camera, is_layer(options.mesh), options.turntable > 0);
    asked_by("--aov: ", [&] { check_layer_names(layer_names(options)); });
}

void check_picture_files(const RenderCommandOptions& options) {
    if (options.output == "-" && isatty(STDOUT_FILENO) != 0)
        throw UsageError("--output: standard output is a terminal");
    check_outputs({options.output});
}

std::vector<std::string> picture_files(const RenderCommandOptions& options) {
    std::vector<std::string> files{options.output};
    if (options.output == "-" || is_exr(options.output)) return files;
    for (const std::string& name : layer_names(options)) files.push_back(layer_path(options.output, layer_title(name)));
    return files;
}

std::vector<sds_render::ImageArea> picture_areas(const RenderCommandOptions& options) {
    const sds_render::SheetGrid grid(std::max(options.turntable, 1u), options.width, options.height);
    std::vector<sds_render::ImageArea> areas;
    for (unsigned int i = 0; i < std::max(options.turntable, 1u); ++i) areas.push_back(grid.get_area(i));
    return areas;
}

void write_picture(const RenderCommandOptions& options, const sds_render::Image& image, const std::string& note) {
    if (is_exr(options.output)) {
        write_exr(options.output, image, note);
        return;
    }
    const auto write = is_jpeg(options.output) ? &write_jpeg : &write_png;
    write(options.output, image, "", note);
    if (options.output == "-") return;
    for (const std::string& name : layer_names(options))
        write(layer_path(options.output, layer_title(name)), image, layer_title(name), note);
}

Picture::Picture(const RenderCommandOptions& options, AppProgressBar* progress) : m_options(options) {
    {
        const AppProgressTask task(progress, "build", 0.1f);
        const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_frame(m_options, layer); };
        m_loaded = load_scene(m_options, m_options.motion, m_options.further_meshes, choose, progress);
    }
    const ScenePose pose =
        make_pose(m_options.camera, parse_view(m_options.camera), m_loaded, m_options.width, m_options.height);
    m_meshes = m_loaded.make_meshes(m_options.level);
    std::vector<sds_render::Layer> layers =
        asked_by("--aov: ", [&] { return make_layers(layer_names(m_options), *m_meshes); });
    if (!m_options.texture.empty() || m_options.uv_map > 0) check_maps(m_options, m_loaded);
    const Motion& motion = m_loaded.surfaces.front().motion;
    const sds_render::Shutter shutter =
        m_loaded.layer ? sds_render::Shutter{m_loaded.frame.open, m_loaded.frame.close}
                       : parse_shutter(m_options, {motion.get_first_time(), motion.get_last_time()});
    for (const double time : {shutter.open, shutter.close})
        asked_by("--shutter: ", [&] { m_loaded.surfaces.front().surface->check_time(time); });
    const std::size_t held = check_memory(m_options, m_loaded, shutter, layers);
    m_render_options = asked_by("--color-by: ", [&] {
        const sds_render::SurfaceColor unsaid = make_unsaid_color(m_options, m_loaded, held);
        return make_render_options(m_options, *m_meshes, pose.view.up, unsaid, m_loaded.has_names());
    });
    m_render_options.layers = std::move(layers);
    m_scene.emplace(shutter);
    const auto begin = std::chrono::steady_clock::now();
    {
        const AppProgressTask task(progress, "hierarchy", 0.05f);
        m_meshes->add_to(*m_scene);
        m_scene->commit();
    }
    m_hierarchy_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    const sds_render::ImageArea area = picture_areas(m_options).front();
    if (m_options.turntable > 0)
        m_cameras = surround_scene(*m_scene, pose.view, m_options.turntable, area.width, area.height);
    else
        m_cameras = {pose.camera ? *pose.camera
                                 : sds_render::frame_scene(*m_scene, pose.view, area.width, area.height)};
}

sds_render::Rendering Picture::render(AppProgressBar* progress) const {
    return m_options.turntable > 0 ? sds_render::render_turntable(*m_scene, m_cameras, m_options.width,
                                                                  m_options.height, m_render_options, progress)
                                   : sds_render::render(*m_scene, m_cameras[0], m_render_options, progress);
}

sds_render::Rendering Picture::render_tiles(std::span<const unsigned int> tiles, std::vector<double>& seconds) const {
    seconds.resize(tiles.size());
    std::optional<sds_render::Rendering> all;
    for_each_area(m_options, tiles, [&](unsigned int area, std::size_t first, std::span<const unsigned int> own) {
        sds_render::Rendering part =
            sds_render::render_tiles(*m_scene, m_cameras[area], m_render_options, own, nullptr, &seconds[first]);
        if (own.size() == tiles.size())
            all = std::move(part);
        else
            append(part, first, tiles.size(), all);
    });
    return std::move(*all);
}

void paste_tiles(const RenderCommandOptions& options, const sds_render::Image& strip,
                 std::span<const unsigned int> tiles, sds_render::Image& picture) {
    const std::vector<sds_render::ImageArea> areas = picture_areas(options);
    for_each_area(options, tiles, [&](unsigned int area, std::size_t first, std::span<const unsigned int> own) {
        for (std::size_t i = 0; i < own.size(); ++i)
            sds_render::paste_tile(strip, static_cast<unsigned int>(first + i), own[i], areas[area], picture);
    });
}

}  // namespace sds_cli

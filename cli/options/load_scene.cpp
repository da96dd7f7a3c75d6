#include "cli/options/load_scene.h"

#include "cli/options/common_options.h"
#include "cli/options/usage_error.h"
#include "io/input_error.h"
#include "io/read_file.h"
#include "model/array_size.h"
#include "model/build_estimate.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace sds_cli {

namespace {

using sds_usda::UsdFrame;
using sds_usda::UsdScene;

void refuse(bool is_given, const char* option, const char* belongs_to) {
    if (is_given) throw UsageError(std::string(option) + " belongs to " + belongs_to);
}

UsdScene read_layer(const CommonOptions& common, sds_usda::UsdFindings& findings, std::size_t& size) {
    std::string text;
    if (const std::string reason = read_file(common.mesh, text); !reason.empty()) throw InputError(common.mesh, reason);
    size = text.size();
    sds_usda::UsdSceneResult read = sds_usda::read_usd_scene(std::move(text));
    for (const sds_usda::UsdFinding& finding : read.findings.get_entries())
        if (!common.quiet || severity_of(finding.code) == sds_usda::UsdSeverity::error)
            print_line(to_text(finding, common.mesh));
    if (!read.scene) throw LayerError(common.mesh, std::move(read.findings));
    findings = std::move(read.findings);
    return std::move(*read.scene);
}

void report(const CommonOptions& common, const Findings& findings) {
    for (const Finding& finding : findings.get_entries())
        if (!common.quiet || severity_of(finding.code) == Severity::error) print_line(to_text(finding));
    if (findings.has_errors()) throw CageError(common.mesh, findings);
}

LoadedSurface build_mesh(const CommonOptions& common, MeshSource&& source, Findings&& findings,
                         AppProgressBar* progress) {
    report(common, findings);
    const SurfaceModes modes = get_modes(common, source.cage.rules);
    if (common.memory_limit != 0) {
        std::size_t bytes =
            estimate_build(source.cage, source.further_uvs, source.motion.is_moving(), modes).get_peak();
        for (const PropertySource& property : source.properties) bytes += property.get_memory_size();
        check_memory_limit("the surface", bytes, common.memory_limit);
    }
    LoadedSurface loaded;
    loaded.surface = build_surface(source, modes, progress);
    loaded.name = std::move(source.name);
    for (const UvSource& map : source.further_uvs) loaded.uv_joins.push_back(map.join);
    loaded.further_uvs = std::move(source.further_uvs);
    loaded.motion.vectors = std::move(source.motion.vectors);
    loaded.motion.times = std::move(source.motion.times);
    loaded.properties = std::move(source.properties);
    loaded.mesh.cage = std::move(source.cage);
    loaded.mesh.findings = std::move(findings);
    return loaded;
}

sds_usda::SceneSource read_source(const CommonOptions& common, const ChooseFrame& choose, LoadedScene& loaded) {
    const auto begin = std::chrono::steady_clock::now();
    std::size_t size = 0;
    loaded.layer = read_layer(common, loaded.layer_findings, size);
    loaded.frame = choose(*loaded.layer);
    loaded.frame.codes_per_second = loaded.layer->time_codes_per_second;
    sds_usda::SceneSource source =
        make_scene_source(*loaded.layer, loaded.frame, {common.fractional, common.modes.is_refined()}, common.mesh);
    if (source.instances.empty())
        throw InputError(common.mesh, "no mesh is visible at frame " + CLI::detail::to_string(loaded.frame.time));
    loaded.layer->meshes.clear();
    if (common.statistics) {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        const double megabytes = 1e-6 * static_cast<double>(size);
        std::fprintf(stderr, "read       %.3g MB, %.3f s, %.3g MB/s\n", megabytes, seconds, megabytes / seconds);
    }
    return source;
}

void refuse_cage_options(const CommonOptions& common, const MotionOptions& motion) {
    constexpr const char* cages = "OBJ cages; a USD scene brings its own";
    refuse(!motion.next.empty(), "--motion", cages);
    refuse(!motion.files.empty(), "--time-samples", cages);
    refuse(!common.uv_files.empty(), "--uv", cages);
    refuse(!common.property_file.empty(), "--properties", cages);
}

LoadedScene load_layer(const CommonOptions& common, const ChooseFrame& choose, AppProgressBar* progress) {
    LoadedScene loaded;
    sds_usda::SceneSource source = read_source(common, choose, loaded);
    loaded.instances = std::move(source.instances);
    const float share = 1.0f / static_cast<float>(source.meshes.size());
    for (std::size_t m = 0; m < source.meshes.size(); ++m) {
        const AppProgressTask task(progress, "mesh", share);
        loaded.surfaces.push_back(
            build_mesh(common, std::move(source.meshes[m]), std::move(source.findings[m]), progress));
    }
    return loaded;
}

}  // namespace

bool is_layer(const std::string& path) {
    constexpr std::array<const char*, 4> suffixes{".usda", ".usd", ".usdc", ".usdz"};
    return std::any_of(suffixes.begin(), suffixes.end(), [&](const char* suffix) { return path.ends_with(suffix); });
}

UsdFrame choose_moment(const CommonOptions& common, const UsdScene& layer) {
    return {.time = common.frame.value_or(first_frame(layer))};
}

sds_usda::SceneSource read_layer_meshes(const CommonOptions& common, const MotionOptions& motion,
                                        const ChooseFrame& choose) {
    refuse_cage_options(common, motion);
    LoadedScene loaded;
    sds_usda::SceneSource source = read_source(common, choose, loaded);
    for (const Findings& findings : source.findings) report(common, findings);
    return source;
}

LoadedScene load_scene(const CommonOptions& common, const MotionOptions& motion,
                       const std::vector<std::string>& further, const ChooseFrame& choose, AppProgressBar* progress) {
    if (is_layer(common.mesh)) {
        refuse_cage_options(common, motion);
        if (!further.empty()) throw UsageError("a USD scene stands alone: " + further.front());
        return load_layer(common, choose, progress);
    }
    refuse(common.frame.has_value(), "--frame", "USD scenes");
    LoadedScene loaded;
    loaded.surfaces.push_back(load_surface(common, motion, progress));
    for (const std::string& path : further) {
        if (is_layer(path)) throw UsageError("a USD scene stands alone: " + path);
        CommonOptions next = common;
        next.mesh = path;
        loaded.surfaces.push_back(load_surface(next, {}, nullptr));
    }
    for (std::uint32_t i = 0; i < loaded.surfaces.size(); ++i)
        loaded.instances.push_back({loaded.surfaces[i].name, i, {}});
    return loaded;
}

std::size_t LoadedScene::get_memory_size() const {
    std::size_t bytes = 0;
    for (const LoadedSurface& loaded : surfaces) bytes += loaded.get_memory_size();
    return bytes;
}

std::size_t LoadedScene::estimate_hierarchy_size(const sds_render::Shutter& shutter, unsigned int level) const {
    std::size_t bytes = 0;
    for (const LoadedSurface& loaded : surfaces) {
        const bool moves = shutter.close > shutter.open && loaded.motion.has_motion();
        const std::size_t steps = moves ? std::max<std::size_t>(loaded.motion.times.size(), 2) : 1;
        const SdsMesh mesh = loaded.surface->make_mesh(level);
        const std::size_t own = moves ? 0 : mesh.estimate_ray_index_size(), count = mesh.get_primitive_count();
        bytes += own != 0 ? own + count * sizeof(GMathBbox3<double>)
                          : sds_render::Scene::estimate_hierarchy_size(count, steps);
    }
    return bytes;
}

std::unique_ptr<MeshScene> LoadedScene::make_meshes(unsigned int level) const {
    std::vector<MeshScene::Mesh> meshes;
    for (const LoadedSurface& loaded : surfaces)
        meshes.push_back({loaded.surface.get(), loaded.get_cage().view(), &loaded.properties});
    return std::make_unique<MeshScene>(meshes, instances, level);
}

const MeshInstance& choose_instance(const LoadedScene& scene, const std::string& path) {
    if (path.empty() && scene.instances.size() == 1) return scene.instances.front();
    std::string known;
    constexpr std::size_t most = 12;
    for (std::size_t i = 0; i < scene.instances.size(); ++i) {
        if (scene.instances[i].name == path) return scene.instances[i];
        if (i < most) known += (i == 0 ? "" : ", ") + scene.instances[i].name;
    }
    if (scene.instances.size() > most) known += " and " + std::to_string(scene.instances.size() - most) + " more";
    throw UsageError(path.empty() ? "--prim: say which mesh is meant; there are " + known
                                  : "--prim: no mesh '" + path + "'; there are " + known);
}

void add_prim_option(CLI::App& command, std::string& path) {
    command.add_option("--prim", path, "The mesh of a scene that is meant, by path; need not be said of a single one")
        ->type_name("PATH");
}

}  // namespace sds_cli

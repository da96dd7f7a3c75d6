#include "cli/commands/export.h"

#include "cli/options/common_options.h"
#include "cli/options/load_scene.h"
#include "cli/options/usage_error.h"
#include "io/npy.h"
#include "io/obj/write_obj.h"
#include "io/usda/write_cage.h"
#include "model/array_size.h"
#include "model/build_estimate.h"
#include "model/mesh_properties.h"
#include "model/sample_grid.h"
#include "model/tessellate.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <deque>
#include <filesystem>

namespace sds_cli {

namespace {

/// An array of samples on a grid, and where it goes.
struct GridOutput {
    unsigned int cells = 0;
    std::string path;
};

struct ExportOptions : CommonOptions {
    MotionOptions motion;
    std::string patches, patch_places, tessellation, cage;
    std::string prim;
    unsigned int level = 3;
    GridOutput samples, uvs;
    unsigned int uv_map = 0;
    std::vector<std::pair<std::string, std::string>> properties;  // name, path
    unsigned int property_cells = 4;
    double time = 0.0;
};

constexpr unsigned int max_grid_cells = 4096;

void add_grid_option(CLI::App& command, const std::string& flag, GridOutput& output, const std::string& help) {
    const auto parse = [flag, &output](const std::vector<std::string>& words) {
        if (!CLI::detail::lexical_cast(words[0], output.cells) || output.cells < 1 || output.cells > max_grid_cells)
            throw CLI::ValidationError(
                flag, "'" + words[0] + "' is no number of cells from 1 to " + std::to_string(max_grid_cells));
        output.path = words[1];
    };
    command.add_option_function<std::vector<std::string>>(flag, parse, help)->expected(2)->type_name("N FILE");
}

bool is_usda(const std::string& path) { return path.ends_with(".usda"); }

void check_mesh_suffix(const std::string& flag, const std::string& path) {
    const bool has_suffix = !std::filesystem::path(path).extension().empty();
    if (!has_suffix || path.ends_with(".obj") || is_usda(path)) return;
    throw UsageError(flag + ": '" + path + "' ends neither with .obj nor with .usda");
}

void check_options(const ExportOptions& options) {
    if (!std::isfinite(options.time)) throw UsageError("--time: not finite");
    check_mesh_suffix("--tessellation", options.tessellation);
    check_mesh_suffix("--cage", options.cage);
    std::vector<std::string> paths{options.patches, options.patch_places, options.tessellation,
                                   options.cage,    options.samples.path, options.uvs.path};
    for (const auto& [name, path] : options.properties) paths.push_back(path);
    std::erase(paths, "");
    if (paths.empty())
        throw UsageError(
            "nothing to export: give --patches, --patch-places, --tessellation, --cage, --samples, --uv or "
            "--property");
    check_outputs(paths);
}

void check_map(const ExportOptions& options, const LoadedSurface& loaded) {
    const unsigned int count = loaded.surface->get_maps().get_uv_map_count();
    if (!options.uvs.path.empty()) check_uv_map("--uv", loaded.name, options.uv_map, count);
    if (options.uv_map > 0) check_uv_map("--map", loaded.name, options.uv_map, count);
}

void report_unmapped(const ExportOptions& options, const Surface& surface) {
    unsigned int unmapped = 0;
    for (unsigned int q = 0; q < surface.get_base().get_primitive_count(); ++q)
        if (!surface.get_maps().is_primitive_uv_mapped(q, options.uv_map)) ++unmapped;
    if (unmapped > 0 && !options.quiet)
        print_line(options.uvs.path + ": note: " + std::to_string(unmapped) +
                   " quads are not mapped, their UVs are NaN");
}

/// What is written next to each other takes memory one after the other.
void check_memory(const ExportOptions& options, const LoadedSurface& loaded) {
    const Surface& surface = *loaded.surface;
    const std::size_t quads = surface.get_base().get_primitive_count();
    const std::size_t patches = surface.get_geometry().get_patch_count();
    const std::size_t held = loaded.get_memory_size();
    const auto check = [&](const std::string& path, const char* what, std::initializer_list<std::size_t> extents,
                           std::size_t element_size) {
        if (path.empty()) return;
        const std::size_t bytes = checked_count(extents, element_size) * element_size;
        check_memory_limit(what, held + bytes, options.memory_limit);
    };
    const std::size_t cells = std::size_t{1} << options.level;
    const std::size_t samples = std::size_t{options.samples.cells} + 1, uvs = std::size_t{options.uvs.cells} + 1;
    const std::size_t cell_size = tessellated_cell_size(surface, options.uv_map);
    check(options.tessellation, "--tessellation", {quads, cells, cells}, cell_size);
    check(options.samples.path, "--samples", {quads, samples, samples, sample_row_size}, sizeof(double));
    check(options.uvs.path, "--uv", {quads, uvs, uvs, uv_row_size}, sizeof(double));
    check(options.patches, "--patches", {patches, 16, 3}, sizeof(float));
    check(options.patch_places, "--patch-places", {patches, patch_place_size}, sizeof(std::int32_t));
    const std::size_t side = std::size_t{options.property_cells} + 1;
    for (const auto& [name, path] : options.properties)
        for (const PropertySource& property : loaded.properties)
            if (property.name == name)
                check(path, "--property", {quads, side, side, 3 * std::size_t{property.extent}}, sizeof(double));
}

const SurfaceProperty& find_property(const MeshProperties& properties, const std::string& name) {
    return asked_by("", [&]() -> const SurfaceProperty& { return properties.find(name); });
}

/// `weight` of the progress for each.
void export_properties(const ExportOptions& options, const LoadedSurface& loaded, AppProgressBar* progress,
                       float weight) {
    const SdsMesh mesh = loaded.surface->make_mesh(0);
    const MeshProperties properties(loaded.properties, loaded.get_cage(), mesh);
    for (const auto& [name, path] : options.properties) find_property(properties, name);
    const std::size_t side = std::size_t{options.property_cells} + 1;
    for (const auto& [name, path] : options.properties) {
        const AppProgressTask task(progress, "property", weight);
        const SurfaceProperty& property = find_property(properties, name);
        const std::size_t shape[] = {mesh.get_base()->get_primitive_count(), side, side,
                                     3 * std::size_t{property.get_extent()}};
        write_npy<double>(path, shape, sample_property(mesh, property, options.property_cells, options.time, progress));
    }
}

/// Tells what is to come when it is much.
void announce_tessellation(const ExportOptions& options, const Surface& surface) {
    constexpr std::uint64_t much = std::uint64_t{100} << 20;
    const std::uint64_t faces = std::uint64_t{surface.get_base().get_primitive_count()} << (2 * options.level);
    const std::uint64_t bytes = estimate_obj_size(faces, options.uv_map < surface.get_maps().get_uv_map_count());
    if (bytes < much || options.quiet) return;
    print_line(options.tessellation + ": note: " + std::to_string(faces) + " faces, about " + to_size_text(bytes));
}

sds_usda::UsdaStage stage_of(const LoadedScene& scene) {
    if (!scene.layer) return {};
    return {scene.layer->up_axis, scene.layer->meters_per_unit};
}

void export_cage(const ExportOptions& options, const LoadedScene& scene, const LoadedSurface& loaded) {
    const ControlCage& cage = loaded.get_cage();
    if (!is_usda(options.cage)) {
        write_obj(options.cage, to_obj_mesh(cage));
        return;
    }
    const SurfaceModes modes = get_modes(options, cage.rules);
    if (modes.chaikin && !options.quiet)
        print_line(options.cage + ": note: a USD layer has no word for the rule chaikin, left out");
    const std::string name = std::filesystem::path(loaded.name).stem().string();
    for (const PropertySource& property : loaded.properties)
        if (property.kind == PolyMeshProperty::Type::varying && !property.indices.empty() && !options.quiet)
            print_line(options.cage + ": note: a USD layer has no word for property '" + property.name +
                       "', varying with seams; written as faceVarying");
    const sds_usda::UsdaCage written(name, cage, loaded.further_uvs, modes, loaded.properties);
    write_usda_file(options.cage, {&written.get_mesh(), 1}, stage_of(scene));
}

/// In the scene's space.
Tessellation tessellate_instance(const ExportOptions& options, const LoadedScene& scene, const MeshInstance& instance,
                                 AppProgressBar* progress) {
    const Surface& surface = *scene.surfaces[instance.mesh].surface;
    announce_tessellation(options, surface);
    Tessellation mesh = asked_by(
        "--level: ", [&] { return tessellate(surface, options.level, options.time, options.uv_map, progress); });
    if (instance.transform.is_identity()) return mesh;
    const sds_render::Matrix4 matrix = instance.transform.at(options.time);
    for (std::size_t i = 0; i < mesh.positions.size(); i += 3) {
        float* const p = &mesh.positions[i];
        const GMathVec3<double> moved = sds_render::transform_point(matrix, GMathVec3<double>(p[0], p[1], p[2]));
        for (unsigned int c = 0; c < 3; ++c) p[c] = static_cast<float>(moved[c]);
    }
    return mesh;
}

void export_tessellation(const ExportOptions& options, const LoadedScene& scene,
                         std::span<const MeshInstance> instances, AppProgressBar* progress) {
    std::deque<Tessellation> meshes;
    for (const MeshInstance& instance : instances) {
        const AppProgressTask task(progress, "tessellation", 0.45f / static_cast<float>(instances.size()));
        meshes.push_back(tessellate_instance(options, scene, instance, progress));
    }
    const AppProgressTask task(progress, "write", 0.55f);
    if (!is_usda(options.tessellation)) {
        const Tessellation& mesh = meshes.front();
        write_obj(options.tessellation,
                  {mesh.positions, mesh.polygon_counts, mesh.polygon_indices, mesh.uv_points, mesh.uv_indices},
                  progress);
        return;
    }
    std::vector<sds_usda::UsdaMesh> written;
    for (std::size_t i = 0; i < meshes.size(); ++i) {
        const Tessellation& mesh = meshes[i];
        const std::string name = std::filesystem::path(instances[i].name).stem().string();
        written.push_back({name, mesh.positions, mesh.polygon_counts, mesh.polygon_indices});
        written.back().scheme = sds_usda::SubdivisionScheme::none;
        if (!mesh.uv_indices.empty())
            written.back().primvars.push_back(
                {"st", "texCoord2f", sds_usda::Interpolation::face_varying, 2, 3, mesh.uv_points, mesh.uv_indices});
    }
    write_usda_file(options.tessellation, written, stage_of(scene));
}

/// The one that is meant, or all where that is all that is asked for.
std::span<const MeshInstance> choose_instances(const ExportOptions& options, const LoadedScene& scene) {
    const bool is_only = options.patches.empty() && options.patch_places.empty() && options.cage.empty() &&
                         options.samples.path.empty() && options.uvs.path.empty() && options.properties.empty();
    if (options.prim.empty() && is_only && is_usda(options.tessellation)) return scene.instances;
    return {&choose_instance(scene, options.prim), 1};
}

void run_export(const ExportOptions& options) {
    check_options(options);
    if (is_layer(options.mesh) && options.time != 0.0) throw UsageError("--time: of a scene, say --frame");
    const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_moment(options, layer); };
    const std::unique_ptr<AppProgressBar> progress = make_progress(options, "sds export");
    LoadedScene scene;
    {
        const AppProgressTask task(progress.get(), "build", 0.1f);
        scene = load_scene(options, options.motion, {}, choose, progress.get());
    }
    const std::span<const MeshInstance> instances = choose_instances(options, scene);
    const LoadedSurface& loaded = scene.surfaces[instances.front().mesh];
    const Surface& surface = *loaded.surface;
    check_map(options, loaded);
    asked_by("--time: ", [&] { surface.check_time(options.time); });
    check_memory(options, loaded);
    if (options.statistics) print_build_rate(scene.surfaces);
    const std::size_t quads = surface.get_base().get_primitive_count();

    const std::size_t sampled_count =
        options.properties.size() + static_cast<std::size_t>(std::ranges::count_if(
                                        std::array{&options.tessellation, &options.samples.path, &options.uvs.path},
                                        [](const std::string* path) { return !path->empty(); }));
    const float weight = 0.9f / static_cast<float>(std::max<std::size_t>(sampled_count, 1));
    if (!options.properties.empty()) export_properties(options, loaded, progress.get(), weight);
    if (!options.patches.empty()) {
        const std::size_t shape[] = {surface.get_geometry().get_patch_count(), 16, 3};
        write_npy<float>(options.patches, shape, patch_controls(surface, options.time));
    }
    if (!options.patch_places.empty()) {
        const std::size_t shape[] = {surface.get_geometry().get_patch_count(), patch_place_size};
        write_npy<std::int32_t>(options.patch_places, shape, patch_places(surface));
    }
    if (!options.cage.empty()) export_cage(options, scene, loaded);
    if (!options.tessellation.empty()) {
        const AppProgressTask task(progress.get(), "tessellation", weight);
        export_tessellation(options, scene, instances, progress.get());
    }
    if (!options.samples.path.empty()) {
        const AppProgressTask task(progress.get(), "samples", weight);
        const std::size_t side = std::size_t{options.samples.cells} + 1;
        const std::size_t shape[] = {quads, side, side, sample_row_size};
        write_npy<double>(options.samples.path, shape,
                          sample_surface(surface, options.samples.cells, options.time, progress.get()));
    }
    if (!options.uvs.path.empty()) {
        const AppProgressTask task(progress.get(), "uvs", weight);
        const std::size_t side = std::size_t{options.uvs.cells} + 1;
        const std::size_t shape[] = {quads, side, side, uv_row_size};
        write_npy<double>(options.uvs.path, shape,
                          sample_uvs(surface, options.uvs.cells, options.uv_map, progress.get()));
        report_unmapped(options, surface);
    }
}

}  // namespace

void add_export_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("export", "Write patches, samples or flat cells of the surface");
    const auto options = std::make_shared<ExportOptions>();
    add_common_options(command, *options, "--uv-map");
    add_property_option(command, *options);
    add_motion_options(command, options->motion);
    command
        .add_option("--patches", options->patches,
                    "Control points of every patch, .npy: float32 [patch][16][3], four per corner")
        ->type_name("FILE");
    command
        .add_option(
            "--patch-places", options->patch_places,
            "Where the patches lie, .npy: int32 [patch][4], quad, level, x, y: u in [x, x + 1] / 2^level of the "
            "quad, v likewise; level -1: this quad and the next three")
        ->type_name("FILE");
    command
        .add_option("--tessellation", options->tessellation,
                    "Flat cells of --level with shared vertices, .obj or .usda")
        ->type_name("FILE");
    command
        .add_option("--cage", options->cage,
                    "The cage itself with creases, corners, holes and UVs, .obj or .usda: turns one into the other")
        ->type_name("FILE");
    add_prim_option(command, options->prim);
    command
        .add_option("--level", options->level, "Level of --tessellation: 2^N cells along an edge of a quad of the cage")
        ->check(CLI::Range(1u, max_level))
        ->capture_default_str();
    add_grid_option(command, "--samples", options->samples,
                    "Limit samples on N x N cells per quad, .npy: float64 [quad][v][u][15], position, dP/du, dP/dv, "
                    "normal, smoothing normal; NaN on holes");
    add_grid_option(
        command, "--uv", options->uvs,
        "UVs on N x N cells per quad, .npy: float64 [quad][v][u][9], uvw, d/du, d/dv; NaN where not mapped");
    command.add_option("--map", options->uv_map, "UV map of --uv and --tessellation, 0 the mesh's own")
        ->capture_default_str();
    command
        .add_option("--property", options->properties,
                    "A property by name on --cells x --cells per quad, .npy: float64 [quad][v][u][3 x extent], value, "
                    "d/du, d/dv")
        ->type_name("NAME FILE");
    command.add_option("--cells", options->property_cells, "Cells of --property along an edge of a quad")
        ->check(CLI::Range(1u, max_grid_cells))
        ->capture_default_str();
    command.add_option("--time", options->time, "Time of the motion to export")->capture_default_str();
    set_action(command, action, options, run_export);
}

}  // namespace sds_cli

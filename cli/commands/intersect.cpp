#include "cli/commands/intersect.h"

#include "cli/options/common_options.h"
#include "cli/options/load_scene.h"
#include "cli/options/usage_error.h"
#include "io/npy.h"
#include "io/ray_file.h"
#include "model/array_size.h"
#include "model/mesh_scene.h"
#include "model/quad_places.h"
#include "render/batch.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <memory>

namespace sds_cli {

namespace {

struct IntersectOptions : CommonOptions {
    MotionOptions motion;
    std::string rays, hits;
    unsigned int level = 0;
    bool samples = false;
};

/// What was hit, and where: the rows of a scene end with the number of the mesh.
struct HitRows {
    const MeshScene& meshes;
    bool has_names, has_samples;
    std::vector<unsigned int> objects;  // of every ray
    std::vector<double> rows;

    std::size_t get_hit_size() const { return has_names ? 5 : 4; }
    std::size_t get_row_size() const { return get_hit_size() + (has_samples ? sample_row_size : 0); }
    void write(const GeometryRay& ray, unsigned int object, const CtxEval& ctx, double* row) const;
    void trace(const sds_render::Scene& scene, std::vector<GeometryRay>& rays);
};

/// Writes the row of a traced ray.
void HitRows::write(const GeometryRay& ray, unsigned int object, const CtxEval& ctx, double* row) const {
    const bool is_hit = ray.hit.primitive != sds_render::no_index;
    const MeshInstance* instance = is_hit ? &meshes.get_instances()[object] : nullptr;
    double* const samples = row + get_hit_size();
    if (has_samples && is_hit) sample_instance_hit(meshes, *instance, ctx, ray.hit, ray.time, samples);
    if (has_samples && !is_hit) std::fill_n(samples, sample_row_size, std::numeric_limits<double>::quiet_NaN());
    GeometryHit hit = ray.hit;
    if (is_hit) move_to_quad(meshes.get_mesh(*instance), hit);
    row[0] = is_hit ? hit.primitive : -1.0;
    row[1] = is_hit ? hit.u : 0.0;
    row[2] = is_hit ? hit.v : 0.0;
    row[3] = is_hit ? hit.t : std::numeric_limits<double>::infinity();
    if (has_names) row[4] = is_hit ? object : -1.0;
}

void HitRows::trace(const sds_render::Scene& scene, std::vector<GeometryRay>& rays) {
    rows.resize(rays.size() * get_row_size());
    objects.assign(rays.size(), sds_render::no_index);
    const auto write_row = [&](std::size_t i, sds_render::RenderThread& thread) {
        write(rays[i], objects[i], thread.get_eval(), &rows[i * get_row_size()]);
    };
    sds_render::intersect_batch(scene, rays.data(), rays.size(), write_row, objects.data());
}

/// Number, path and hits of every mesh, a line each.
std::string to_text(const HitRows& hits) {
    const std::vector<MeshInstance>& instances = hits.meshes.get_instances();
    std::vector<std::size_t> counts(instances.size(), 0);
    for (const unsigned int object : hits.objects)
        if (object != sds_render::no_index) ++counts[object];
    std::string text;
    for (std::size_t i = 0; i < counts.size(); ++i)
        text += std::to_string(i) + " " + instances[i].name + " " + std::to_string(counts[i]) + "\n";
    return text;
}

/// The shortest span of a layer that holds the times of all rays.
sds_usda::UsdFrame choose_frame(const IntersectOptions& options, const std::vector<GeometryRay>& rays,
                                const sds_usda::UsdScene& layer) {
    sds_usda::UsdFrame frame = choose_moment(options, layer);
    const sds_render::Shutter shutter =
        sds_render::get_shutter_of(rays.size(), [&](std::size_t i) -> const GeometryRay& { return rays[i]; });
    // from the frame on, where meshes stand as they were built
    frame.open = std::min(shutter.open, 0.0);
    frame.close = std::max(shutter.close, 0.0);
    return frame;
}

void run_intersect(const IntersectOptions& options) {
    check_outputs({options.hits});
    RayFile file;
    LoadedScene loaded;
    if (is_layer(options.mesh)) {
        file = read_rays(options.rays, options.memory_limit);
        const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_frame(options, file.rays, layer); };
        loaded = load_scene(options, options.motion, {}, choose, nullptr);
    } else {
        loaded = load_scene(options, options.motion, {}, nullptr, nullptr);
        file = read_rays(options.rays, options.memory_limit);
    }
    if (file.idle_count > 0 && !options.quiet)
        print_line(options.rays + ": warning: ray " + std::to_string(file.first_idle) +
                   " is not finite or has no direction, hits nothing; " + std::to_string(file.idle_count) +
                   " cases, first here");

    const std::unique_ptr<MeshScene> meshes = loaded.make_meshes(options.level);
    const sds_render::Shutter shutter =
        sds_render::get_shutter_of(file.rays.size(), [&](std::size_t i) -> const GeometryRay& { return file.rays[i]; });
    for (const double time : {shutter.open, shutter.close})
        for (const LoadedSurface& each : loaded.surfaces)
            asked_by((options.rays + ": ").c_str(), [&] { each.surface->check_time(time); });
    HitRows hits{*meshes, loaded.has_names(), options.samples, {}, {}};
    const std::size_t ray_size = sizeof(GeometryRay) + sizeof(unsigned int) + hits.get_row_size() * sizeof(double);
    check_memory_limit(
        "tracing",
        loaded.get_memory_size() + loaded.estimate_hierarchy_size(shutter, options.level) + file.rays.size() * ray_size,
        options.memory_limit);
    sds_render::Scene scene(shutter);
    meshes->add_to(scene);
    scene.commit();
    const auto begin = std::chrono::steady_clock::now();
    hits.trace(scene, file.rays);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;

    const std::size_t shape[] = {file.rays.size(), hits.get_row_size()};
    write_npy<double>(options.hits, shape, hits.rows);
    if (loaded.has_names() && options.hits != "-") print_text(to_text(hits));
    if (options.statistics) {
        const auto is_hit = [](const GeometryRay& ray) { return ray.hit.primitive != sds_render::no_index; };
        print_build_rate(loaded.surfaces);
        std::fprintf(stderr, "trace      %zu rays, %td hits, %.3f s, %.3g rays/s\n", file.rays.size(),
                     std::count_if(file.rays.begin(), file.rays.end(), is_hit), elapsed.count(),
                     static_cast<double>(file.rays.size()) / std::max(elapsed.count(), 1e-9));
    }
}

}  // namespace

void add_intersect_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("intersect", "Find the nearest hits of rays");
    const auto options = std::make_shared<IntersectOptions>();
    add_common_options(command, *options);
    add_motion_options(command, options->motion);
    add_level_option(command, options->level);
    command
        .add_option("--rays", options->rays,
                    "Rays, rows of ox oy oz dx dy dz [tnear tfar [time]]: .npy of float64 or float32, or lines of text")
        ->type_name("FILE")
        ->required();
    command
        .add_option(
            "--hits", options->hits,
            "Hits, .npy: float64 rows quad u v t; -1 0 0 inf where nothing is hit. Of a scene a fifth number says "
            "which mesh, -1 for none; number, path and hits of every mesh are printed")
        ->type_name("FILE")
        ->required();
    command.add_flag("--samples", options->samples,
                     "15 more columns: position, dP/du, dP/dv, normal, smoothing normal; NaN where nothing is hit");
    set_action(command, action, options, run_intersect);
}

}  // namespace sds_cli

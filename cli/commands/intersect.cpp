#include "cli/commands/intersect.h"

#include "cli/options/common_options.h"
#include "cli/options/load_cage.h"
#include "cli/options/usage_error.h"
#include "io/npy.h"
#include "io/ray_file.h"
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

constexpr std::size_t hit_size = 4;
/// Writes the row of a traced ray.
void write_row(const SdsMesh& mesh, const GeometryRay& ray, bool samples, const CtxEval& ctx, double* row) {
    GeometryHit hit = ray.hit;
    const bool is_hit = hit.primitive != sds_render::no_index;
    if (samples && is_hit) sample_hit(mesh, ctx, hit, ray.time, row + hit_size);
    if (samples && !is_hit) std::fill_n(row + hit_size, sample_row_size, std::numeric_limits<double>::quiet_NaN());
    move_to_quad(mesh, hit);
    row[0] = is_hit ? hit.primitive : -1.0;
    row[1] = is_hit ? hit.u : 0.0;
    row[2] = is_hit ? hit.v : 0.0;
    row[3] = is_hit ? hit.t : std::numeric_limits<double>::infinity();
}

std::vector<double> trace_rays(const sds_render::Scene& scene, const SdsMesh& mesh, std::vector<GeometryRay>& rays,
                               bool samples) {
    const std::size_t row_size = hit_size + (samples ? sample_row_size : 0);
    std::vector<double> rows(rays.size() * row_size);
    sds_render::intersect_batch(scene, rays.data(), rays.size(), [&](std::size_t i, sds_render::RenderThread& thread) {
        write_row(mesh, rays[i], samples, thread.get_eval(), &rows[i * row_size]);
    });
    return rows;
}

void run_intersect(const IntersectOptions& options) {
    check_outputs({options.hits});
    const LoadedSurface loaded = load_surface(options, options.motion, nullptr);
    RayFile file = read_rays(options.rays);
    if (file.idle_count > 0 && !options.quiet)
        print_line(options.rays + ": warning: ray " + std::to_string(file.first_idle) +
                   " is not finite or has no direction, hits nothing; " + std::to_string(file.idle_count) +
                   " cases, first here");

    const SdsMesh mesh = loaded.surface->make_mesh(options.level);
    const sds_render::Shutter shutter =
        sds_render::get_shutter_of(file.rays.size(), [&](std::size_t i) -> const GeometryRay& { return file.rays[i]; });
    for (const double time : {shutter.open, shutter.close})
        asked_by((options.rays + ": ").c_str(), [&] { loaded.surface->check_time(time); });
    sds_render::Scene scene(shutter);
    scene.add(mesh);
    scene.commit();
    const auto begin = std::chrono::steady_clock::now();
    const std::vector<double> rows = trace_rays(scene, mesh, file.rays, options.samples);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;

    const std::size_t shape[] = {file.rays.size(), hit_size + (options.samples ? sample_row_size : 0)};
    write_npy<double>(options.hits, shape, rows);
    if (options.statistics) {
        const auto is_hit = [](const GeometryRay& ray) { return ray.hit.primitive != sds_render::no_index; };
        print_build_rate({&loaded, 1});
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
    command.add_option("--hits", options->hits, "Hits, .npy: float64 rows quad u v t; -1 0 0 inf where nothing is hit")
        ->type_name("FILE")
        ->required();
    command.add_flag("--samples", options->samples,
                     "15 more columns: position, dP/du, dP/dv, normal, smoothing normal; NaN where nothing is hit");
    set_action(command, action, options, run_intersect);
}

}  // namespace sds_cli

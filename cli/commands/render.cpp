#include "cli/commands/render.h"

#include "cli/commands/picture.h"

#include <CLI/CLI.hpp>
#include <cstdio>

namespace sds_cli {

namespace {

void print_statistics(const LoadedScene& loaded, double hierarchy_seconds, const sds_render::RenderStatistics& trace) {
    print_build_rate(loaded.surfaces);
    std::fprintf(stderr, "hierarchy  %.3f s\n", hierarchy_seconds);
    std::fprintf(stderr, "trace      %llu rays, %llu hits, %.3f s, %.3g rays/s\n",
                 static_cast<unsigned long long>(trace.rays), static_cast<unsigned long long>(trace.hits),
                 trace.seconds, trace.get_rays_per_second());
}

void run_render(const RenderCommandOptions& options) {
    check_picture(options);
    check_picture_files(options);
    std::unique_ptr<AppProgressBar> progress = make_progress(options, "sds render");
    const Picture picture(options, progress.get());
    sds_render::RenderStatistics statistics;
    {
        const AppProgressTask task(progress.get(), "trace", 0.85f);
        const sds_render::Rendering rendering = picture.render(progress.get());
        write_picture(options, rendering.image);
        statistics = rendering.statistics;
    }
    progress.reset();  // ends its line
    if (options.statistics) print_statistics(picture.get_loaded(), picture.get_hierarchy_seconds(), statistics);
}

}  // namespace

void add_render_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("render", "Make a picture of the surface");
    const auto options = std::make_shared<RenderCommandOptions>();
    add_render_options(command, *options);
    set_action(command, action, options, run_render);
}

}  // namespace sds_cli

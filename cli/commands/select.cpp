#include "cli/commands/select.h"

#include "cli/options/common_options.h"
#include "cli/options/load_cage.h"
#include "io/frustum_file.h"
#include "model/quad_places.h"
#include "render/batch.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace sds_cli {

namespace {

struct SelectOptions : CommonOptions {
    std::string frustum;
    std::string mode;
    unsigned int level = 0;
    bool json = false;
};

void run_select(const SelectOptions& options) {
    const GeometryFrustum frustum = read_frustum(options.frustum);
    const LoadedSurface loaded = load_surface(options, {}, nullptr);
    if (options.statistics) print_build_rate({&loaded, 1});
    const SdsMesh mesh = loaded.surface->make_mesh(options.level);
    const auto mode = options.mode == "touch" ? sds_render::SelectMode::touch : sds_render::SelectMode::inside;
    const std::vector<unsigned int> quads = select_quads(mesh, frustum, mode);
    if (options.json) {
        print_text(nlohmann::json{
                       {"mode", options.mode}, {"quads", mesh.get_base()->get_primitive_count()}, {"selected", quads}}
                       .dump() +
                   "\n");
        return;
    }
    std::string text;
    for (const unsigned int quad : quads) text += std::to_string(quad) + "\n";
    print_text(text);
}

}  // namespace

void add_select_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("select", "List the quads that a frustum selects, one number a line");
    const auto options = std::make_shared<SelectOptions>();
    add_common_options(command, *options);
    add_level_option(command, options->level);
    command
        .add_option("--frustum", options->frustum,
                    "JSON: {\"sides\": [[nx, ny, nz, d], ...], \"near\": [...], \"far\": [...]}, n . p + d >= 0 inside")
        ->type_name("FILE")
        ->required();
    command.add_option("--mode", options->mode, "touch: some part of the quad; inside: all of it")
        ->transform(CLI::IsMember({"touch", "inside"}, CLI::ignore_case))
        ->required();
    command.add_flag("--json", options->json, "Print JSON");
    set_action(command, action, options, run_select);
}

}  // namespace sds_cli

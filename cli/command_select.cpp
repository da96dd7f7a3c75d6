#include "cli/command_select.h"

#include "cli/common_options.h"
#include "cli/frustum_file.h"
#include "cli/load_cage.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace sds_cli {

namespace {

enum class SelectMode : int { touch = 0, inside = 1 };

struct SelectOptions : CommonOptions {
    std::string frustum;
    std::string mode;
    unsigned int level = 0;
    bool json = false;
};

std::vector<unsigned char> select(const SdsMesh& mesh, const GeometryFrustum& frustum, SelectMode mode) {
    const unsigned int count = mesh.get_primitive_count();
    std::vector<unsigned char> selected(count, 0);
    const CtxShader shader;
    std::vector<CtxThread> threads(sys_max_worker_count());
    const int number = static_cast<int>(mode);
    sys_parallel_for(count, [&](unsigned int primitive, unsigned int worker) {
        GeometryFrustumCtx ctx(&number, &frustum);
        mesh.intersect_primitive(CtxEval(shader, &threads[worker]), primitive, ctx);
        selected[primitive] = ctx.selected_count > 0 ? 1 : 0;
    });
    return selected;
}

void run_select(const SelectOptions& options) {
    const GeometryFrustum frustum = read_frustum(options.frustum);
    const LoadedSurface loaded = load_surface(options, {}, nullptr);
    const SdsMesh mesh = loaded.surface->mesh(options.level);
    const auto selected = select(mesh, frustum, options.mode == "touch" ? SelectMode::touch : SelectMode::inside);
    std::vector<unsigned int> primitives;
    for (unsigned int q = 0; q < selected.size(); ++q)
        if (selected[q] != 0) primitives.push_back(q);
    if (options.json) {
        print_text(nlohmann::json{{"mode", options.mode}, {"quads", selected.size()}, {"selected", primitives}}.dump() +
                   "\n");
        return;
    }
    std::string text;
    for (const unsigned int primitive : primitives) text += std::to_string(primitive) + "\n";
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
        ->check(CLI::IsMember({"touch", "inside"}))
        ->required();
    command.add_flag("--json", options->json, "Print JSON");
    set_action(command, action, options, run_select);
}

}  // namespace sds_cli

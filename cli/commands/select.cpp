#include "cli/commands/select.h"

#include "cli/options/common_options.h"
#include "cli/options/load_scene.h"
#include "io/frustum_file.h"
#include "model/mesh_scene.h"
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

/// The frustum where an object has its own space: n . (q M) + d, for q.
GeometryFrustum transform_frustum(const GeometryFrustum& frustum, const sds_render::Matrix4& matrix) {
    GeometryFrustum out = frustum;
    const auto transform = [&](GeometryPlane& plane) {
        const GMathVec3<double> normal = plane.normal;
        plane.offset += normal.dot(matrix.get_row(3));
        for (unsigned int r = 0; r < 3; ++r) plane.normal[r] = normal.dot(matrix.get_row(r));
    };
    for (unsigned int s = 0; s < out.side_count; ++s) transform(out.sides[s]);
    transform(out.near_plane);
    transform(out.far_plane);
    return out;
}

void run_select(const SelectOptions& options) {
    const GeometryFrustum frustum = read_frustum(options.frustum);
    const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_moment(options, layer); };
    const LoadedScene loaded = load_scene(options, {}, {}, choose, nullptr);
    if (options.statistics) print_build_rate(loaded.surfaces);
    const std::unique_ptr<MeshScene> meshes = loaded.make_meshes(options.level);
    const auto mode = options.mode == "touch" ? sds_render::SelectMode::touch : sds_render::SelectMode::inside;
    nlohmann::json list = nlohmann::json::array();
    std::string text;
    for (const MeshInstance& instance : meshes->get_instances()) {
        const SdsMesh& mesh = meshes->get_mesh(instance);
        const std::vector<unsigned int> quads =
            select_quads(mesh, transform_frustum(frustum, instance.transform.at(0.0)), mode);
        const std::string before = loaded.has_names() ? instance.name + " " : "";
        for (const unsigned int quad : quads) text += before + std::to_string(quad) + "\n";
        list.push_back({{"quads", mesh.get_base()->get_primitive_count()}, {"selected", quads}});
        list.back()[loaded.has_names() ? "path" : "mode"] = loaded.has_names() ? instance.name : options.mode;
    }
    if (!options.json) return print_text(text);
    print_text((loaded.has_names() ? nlohmann::json{{"mode", options.mode}, {"meshes", list}} : list[0])
                   .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
               "\n");
}

}  // namespace

void add_select_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand(
        "select", "List the quads that a frustum selects, one number a line; of a scene behind the path of their mesh");
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

#include "cli/commands/info.h"

#include "cli/options/common_options.h"
#include "cli/options/load_cage.h"
#include "io/input_error.h"
#include "io/json.h"
#include "model/build_estimate.h"
#include "model/mesh_properties.h"
#include "model/surface_statistics.h"
#include "qn_ctx/ctx_eval.h"

#include <CLI/CLI.hpp>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace sds_cli {

namespace {

using Json = nlohmann::ordered_json;

struct InfoOptions : CommonOptions {
    MotionOptions motion;
    bool json = false;
    bool estimate = false;
};

struct PropertyFacts {
    std::string name, kind, type;
    unsigned int extent, items, times;
    bool is_indexed;
    std::size_t bytes;
};

/// Everything that is printed, gathered once.
struct Info {
    std::uint32_t quads;
    bool has_step;
    VertexClasses vertices;
    PatchClasses patches;
    std::map<std::uint32_t, std::uint32_t> valences;
    GMathBbox3<double> box;  ///< of the surface at rest, or over its whole motion
    double area;             ///< at rest
    std::vector<MapStatistics> uv_maps;
    std::vector<std::string> color_maps;
    std::vector<PropertyFacts> properties;
    std::vector<ArraySize> arrays;
    std::size_t bytes;
};

std::vector<PropertyFacts> describe_properties(const LoadedSurface& loaded, const SdsMesh& mesh) {
    std::vector<PropertyFacts> list;
    const MeshProperties properties(loaded.properties, loaded.cage(), mesh);
    for (const SurfaceProperty& each : properties.all()) {
        const SdsMeshProperty& property = each.property();
        list.push_back({each.name(), to_name(property.get_type()),
                        ResourceProperty::get_type_name(property.get_value_type()), each.extent(),
                        property.get_value_count(), property.get_time_sampling().get_sample_count(),
                        property.has_indices(), property.get_memory_size()});
    }
    return list;
}

std::vector<double> sample_times(const Motion& motion) {
    return motion.files.empty() ? std::vector<double>{motion.first_time(), motion.last_time()} : motion.times;
}

/// Of every patch's controls. They move straight between samples, so that the boxes at the samples hold all.
GMathBbox3<double> motion_box(const SdsMesh& mesh, const std::vector<double>& times) {
    const CtxShader shader;
    GMathBbox3<double> box = GMathBbox3<double>::empty(), patch;
    for (const double time : times)
        for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) {
            mesh.compute_primitive_bbox_at(CtxEval(shader), q, time, patch);
            box.grow(patch);
        }
    return box;
}

Info gather(const LoadedSurface& loaded) {
    const Surface& surface = *loaded.surface;
    const SdsMesh mesh = surface.mesh(0);
    const CtxShader shader;
    Info info{};
    info.quads = mesh.get_primitive_count();
    info.has_step = surface.base().get_base_tessellation_level();
    info.vertices = classify_vertices(surface);
    info.patches = classify_patches(surface);
    info.valences = valence_histogram(surface.base());
    info.box = loaded.motion.has_motion() ? motion_box(mesh, sample_times(loaded.motion)) : mesh.get_bbox();
    info.area = mesh.estimate_area(CtxEval(shader), {});
    info.uv_maps = uv_map_statistics(surface);
    for (unsigned int m = 0; m < mesh.get_color_map_count(); ++m)
        info.color_maps.push_back(mesh.get_color_map_name(m).to_std());
    info.properties = describe_properties(loaded, mesh);
    info.arrays = array_sizes(surface);
    info.bytes = surface.base().get_memory_size() + surface.geometry().get_memory_size() +
                 surface.maps().get_memory_size() + mesh.get_memory_size();
    return info;
}

Json to_json(const GMathVec3<double>& v) { return {v[0], v[1], v[2]}; }

Json to_json(const std::vector<Stage>& stages) {
    Json list = Json::array();
    for (const Stage& stage : stages)
        list.push_back({{"stage", stage.label}, {"depth", stage.depth}, {"seconds", stage.seconds}});
    return list;
}

Json to_json(const Motion& motion) {
    if (!motion.has_motion()) return nullptr;
    return {
        {"kind", motion.files.empty() ? "vectors" : "samples"},
        {"times", motion.files.empty() ? std::vector<double>{motion.first_time(), motion.last_time()} : motion.times}};
}

std::string to_json_text(const InfoOptions& options, const LoadedSurface& loaded, const Info& info) {
    Json json;
    json["mesh"] = options.mesh;
    json["polygons"] = loaded.cage().polygon_count();
    json["control_vertices"] = loaded.cage().vertex_count();
    json["quads"] = info.quads;
    json["subdivision_step"] = info.has_step;
    json["vertices"] = {{"smooth", info.vertices.smooth},
                        {"dart", info.vertices.dart},
                        {"crease", info.vertices.crease},
                        {"corner", info.vertices.corner},
                        {"border", info.vertices.border}};
    json["patches"] = {
        {"regular", info.patches.regular}, {"boundary", info.patches.boundary}, {"irregular", info.patches.irregular}};
    json["valences"] = Json::object();
    for (const auto& [valence, count] : info.valences) json["valences"][std::to_string(valence)] = count;
    json["bbox"] = {{"min", to_json(info.box.get_min())}, {"max", to_json(info.box.get_max())}};
    json["area"] = info.area;
    json["motion"] = to_json(loaded.motion);
    json["shading_groups"] = loaded.cage().group_names;
    json["uv_maps"] = Json::array();
    for (const MapStatistics& map : info.uv_maps)
        json["uv_maps"].push_back({{"name", map.name},
                                   {"points", map.points},
                                   {"seam_edges", map.seam_edges},
                                   {"unmapped_quads", map.unmapped_quads}});
    json["color_maps"] = info.color_maps;
    json["properties"] = Json::array();
    for (const PropertyFacts& property : info.properties)
        json["properties"].push_back({{"name", property.name},
                                      {"kind", property.kind},
                                      {"type", property.type},
                                      {"extent", property.extent},
                                      {"items", property.items},
                                      {"times", property.times},
                                      {"indexed", property.is_indexed},
                                      {"bytes", property.bytes}});
    json["bytes"] = {{"total", info.bytes}};
    for (const auto& [name, bytes] : info.arrays) json["bytes"][name] = bytes;
    json["build_seconds"] = loaded.surface->build_seconds();
    json["stages"] = to_json(loaded.surface->stages());
    json["findings"] = sds_io::to_json(loaded.mesh.findings);
    return json.dump(2) + "\n";
}

/// What a machine reads about input that is refused.
std::string refusal_text(const InfoOptions& options, const InputError& error) {
    Json json;
    json["mesh"] = options.mesh;
    json["error"] = error.what();
    const auto* cage = dynamic_cast<const CageError*>(&error);
    json["findings"] = cage == nullptr ? Json::array() : Json(sds_io::to_json(cage->findings()));
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

/// Text of aligned "label  value" lines.
class Report {
public:
    [[gnu::format(printf, 3, 4)]] void line(const std::string& label, const char* format, ...) {
        char value[512];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(value, sizeof(value), format, arguments);
        va_end(arguments);
        text_ += label;
        text_.append(label.size() < width ? width - label.size() : 1, ' ');
        text_ += std::string(value) + "\n";
    }
    const std::string& text() const { return text_; }

private:
    static constexpr std::size_t width = 36;
    std::string text_;
};

void report_shape(const LoadedSurface& loaded, const Info& info, Report& report) {
    report.line("polygons", "%zu", loaded.cage().polygon_count());
    report.line("control vertices", "%zu", loaded.cage().vertex_count());
    report.line("quads", "%u", info.quads);
    report.line("subdivision step", "%s", info.has_step ? "yes" : "no, all polygons are quads");
    const VertexClasses& v = info.vertices;
    report.line("vertices", "smooth %u, dart %u, crease %u, corner %u, border %u", v.smooth, v.dart, v.crease, v.corner,
                v.border);
    const PatchClasses& p = info.patches;
    report.line("patches", "regular %u, boundary %u, irregular %u", p.regular, p.boundary, p.irregular);
    std::string valences;
    for (const auto& [valence, count] : info.valences)
        valences += (valences.empty() ? "" : ", ") + std::to_string(valence) + ": " + std::to_string(count);
    report.line("vertices by valence", "%.480s", valences.c_str());
    const auto &low = info.box.get_min(), &high = info.box.get_max();
    report.line("box", "(%.9g, %.9g, %.9g) to (%.9g, %.9g, %.9g)", low[0], low[1], low[2], high[0], high[1], high[2]);
    report.line("area", "%.9g", info.area);
    const Motion& motion = loaded.motion;
    if (motion.has_motion())
        report.line("motion", "%s, times %.9g to %.9g",
                    motion.files.empty() ? "vectors" : (std::to_string(motion.files.size()) + " samples").c_str(),
                    motion.first_time(), motion.last_time());
    report.line("shading groups", "%zu", loaded.cage().group_names.size());
}

std::string to_plain_text(const LoadedSurface& loaded, const Info& info) {
    Report report;
    report_shape(loaded, info, report);
    for (const MapStatistics& map : info.uv_maps)
        report.line("uv map " + map.name, "%u points, %u seam edges, %u quads not mapped", map.points, map.seam_edges,
                    map.unmapped_quads);
    for (const std::string& name : info.color_maps) report.line("color map " + name, "per vertex");
    for (const PropertyFacts& property : info.properties)
        report.line("property " + property.name, "%s, %u %sitems of %s x %u, %s, %zu bytes", property.kind.c_str(),
                    property.items, property.is_indexed ? "indexed " : "", property.type.c_str(), property.extent,
                    property.times == 0 ? "still" : (std::to_string(property.times) + " times").c_str(),
                    property.bytes);
    report.line("bytes", "%zu", info.bytes);
    for (const auto& [name, bytes] : info.arrays) report.line("  " + name, "%zu", bytes);
    report.line("build seconds", "%.6f", loaded.surface->build_seconds());
    for (const Stage& stage : loaded.surface->stages())
        report.line(std::string(2 * stage.depth + 2, ' ') + stage.label, "%.6f", stage.seconds);
    return report.text();
}

Json to_json(const BuildEstimate& estimate, const std::vector<Stage>& stages) {
    Json json;
    json["bytes"] = {{"total", estimate.bytes}, {"scratch", estimate.scratch}, {"peak", estimate.peak()}};
    for (const auto& [name, bytes] : estimate.arrays) json["bytes"][name] = bytes;
    json["stages"] = to_json(stages);
    return json;
}

void print_estimate(const InfoOptions& options) {
    const ReadObjResult mesh = load_cage(options.mesh, options, CageReport::everything);
    const std::vector<UvSource> uvs = load_uvs(options, *mesh.cage);
    const bool has_motion = !options.motion.next.empty();
    const BuildEstimate estimate = estimate_build(*mesh.cage, uvs, has_motion, options.modes);
    check_memory_limit(estimate, options.memory_limit);
    const std::vector<Stage> stages = estimate_stages(*mesh.cage, options.modes);
    if (options.json) {
        print_text(to_json(estimate, stages).dump(2) + "\n");
        return;
    }
    Report report;
    report.line("peak bytes, about", "%zu (%s)", estimate.peak(), to_size_text(estimate.peak()).c_str());
    report.line("bytes, about", "%zu", estimate.bytes);
    for (const auto& [name, bytes] : estimate.arrays) report.line("  " + name, "%zu", bytes);
    double seconds = 0.0;
    for (const Stage& stage : stages) seconds += stage.depth == 0 ? stage.seconds : 0.0;
    report.line("build seconds, about", "%.6f", seconds);
    for (const Stage& stage : stages)
        report.line(std::string(2 * stage.depth + 2, ' ') + stage.label, "%.6f", stage.seconds);
    print_text(report.text());
}

void run_info(const InfoOptions& options) {
    try {
        if (options.estimate) {
            print_estimate(options);
            return;
        }
        const LoadedSurface loaded = load_surface(options, options.motion, nullptr);
        if (options.statistics) print_build_rate({&loaded, 1});
        const Info info = gather(loaded);
        print_text(options.json ? to_json_text(options, loaded, info) : to_plain_text(loaded, info));
    } catch (const InputError& error) {
        if (options.json) print_text(refusal_text(options, error));
        throw;
    }
}

}  // namespace

void add_info_command(CLI::App& program, Action& action) {
    CLI::App& command = *program.add_subcommand("info", "Describe a cage and its surface");
    const auto options = std::make_shared<InfoOptions>();
    add_common_options(command, *options);
    add_motion_options(command, options->motion);
    add_property_option(command, *options);
    command.add_flag("--estimate", options->estimate,
                     "Build nothing: print what the build would need, seconds from a sample of the mesh");
    command.add_flag("--json", options->json, "Print JSON");
    set_action(command, action, options, run_info);
}

}  // namespace sds_cli

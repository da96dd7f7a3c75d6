#include "cli/commands/info.h"

#include "cli/options/common_options.h"
#include "cli/options/load_scene.h"
#include "cli/options/usage_error.h"
#include "io/input_error.h"
#include "io/json.h"
#include "io/utf8.h"
#include "model/array_size.h"
#include "model/array_view.h"
#include "model/build_estimate.h"
#include "model/mesh_properties.h"
#include "model/surface_statistics.h"
#include "model/uv_join.h"
#include "qn_ctx/ctx_eval.h"

#include <CLI/CLI.hpp>
#include <algorithm>
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

std::vector<double> sample_times(const Motion& motion) {
    return motion.times.empty() ? std::vector<double>{motion.get_first_time(), motion.get_last_time()} : motion.times;
}

/// Of every patch's controls. They move straight between samples, so that the boxes at the samples hold all.
GMathBbox3<double> motion_box(const SdsMesh& mesh, const std::vector<double>& times) {
    CtxShader shader;
    shader.get_motion_blur().set_time_sampling(GMathTimeSampling(view_of(times)));
    GMathBbox3<double> box = GMathBbox3<double>::empty(), patch;
    for (const double time : times)
        for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) {
            mesh.compute_primitive_bbox_at(CtxEval(shader), q, time, patch);
            box.grow(patch);
        }
    return box;
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
    return {{"kind", motion.times.empty() ? "vectors" : "samples"}, {"times", sample_times(motion)}};
}

Json to_json(const std::vector<MapStatistics>& maps, const std::vector<UvJoinCounts>& joins) {
    Json list = Json::array();
    for (std::size_t m = 0; m < maps.size(); ++m) {
        const MapStatistics& map = maps[m];
        Json entry{{"name", map.name},
                   {"points", map.points},
                   {"seam_edges", map.seam_edges},
                   {"unmapped_quads", map.unmapped_quads}};
        if (joins[m].split_points != 0) entry["split_points"] = joins[m].split_points;
        if (joins[m].welded_points != 0) entry["welded_points"] = joins[m].welded_points;
        list.push_back(std::move(entry));
    }
    return list;
}

Json to_json(const MeshProperties& properties) {
    Json list = Json::array();
    for (const SurfaceProperty& each : properties.get_all()) {
        const SdsMeshProperty& property = each.get_property();
        list.push_back({{"name", each.get_name()},
                        {"kind", to_name(property.get_type())},
                        {"type", ResourceProperty::get_type_name(property.get_value_type())},
                        {"extent", each.get_extent()},
                        {"items", property.get_value_count()},
                        {"times", property.get_time_sampling().get_sample_count()},
                        {"indexed", property.has_indices()},
                        {"bytes", property.get_memory_size()}});
    }
    return list;
}

void add_arrays(const std::vector<ArraySize>& arrays, Json& bytes) {
    for (const ArraySize& array : arrays) bytes[array.name] = array.bytes;
}

/// Everything that is known of a surface; the text is printed from it.
Json describe(const LoadedSurface& loaded) {
    const Surface& surface = *loaded.surface;
    const SdsMesh mesh = surface.make_mesh(0);
    const CtxShader shader;
    const VertexClasses vertices = classify_vertices(surface);
    const PatchClasses patches = classify_patches(surface);
    // Of the surface at rest, or over its whole motion.
    const GMathBbox3<double> box =
        loaded.motion.has_motion() ? motion_box(mesh, sample_times(loaded.motion)) : mesh.get_bbox();
    Json json;
    json["mesh"] = loaded.name;
    json["polygons"] = loaded.get_cage().get_polygon_count();
    json["control_vertices"] = loaded.get_cage().get_vertex_count();
    json["quads"] = surface.get_base().get_primitive_count();
    json["subdivision_step"] = surface.get_base().get_base_tessellation_level() != 0;
    json["vertices"] = {{"smooth", vertices.smooth},
                        {"dart", vertices.dart},
                        {"crease", vertices.crease},
                        {"corner", vertices.corner},
                        {"border", vertices.border}};
    json["patches"] = {{"regular", patches.regular}, {"boundary", patches.boundary}, {"irregular", patches.irregular}};
    if (const RefinementStatistics refined = refinement_statistics(surface); refined.depth > 0) {
        json["isolation"] = {{"depth", refined.depth}, {"patches", refined.patches}, {"leaves", refined.leaves}};
        for (const auto& [level, count] : refined.patch_levels)
            json["isolation"]["levels"][std::to_string(level)] = count;
    }
    json["valences"] = Json::object();
    for (const auto& [valence, count] : valence_histogram(surface.get_base()))
        json["valences"][std::to_string(valence)] = count;
    json["bbox"] = {{"min", to_json(box.get_min())}, {"max", to_json(box.get_max())}};
    json["area"] = mesh.estimate_area(CtxEval(shader), {});  // at rest
    json["motion"] = to_json(loaded.motion);
    json["shading_groups"] = loaded.get_cage().group_names;
    json["uv_maps"] = to_json(uv_map_statistics(surface), loaded.uv_joins);
    json["color_maps"] = Json::array();
    for (unsigned int m = 0; m < mesh.get_color_map_count(); ++m)
        json["color_maps"].push_back(mesh.get_color_map_name(m).to_std());
    json["properties"] = to_json(MeshProperties(loaded.properties, loaded.get_cage(), mesh));
    json["bytes"] = {{"total", surface.get_memory_size() + mesh.get_memory_size()}};
    add_arrays(array_sizes(surface), json["bytes"]);
    json["build_seconds"] = surface.get_build_seconds();
    json["stages"] = to_json(surface.get_stages());
    json["findings"] = sds_io::to_json(loaded.mesh.findings);
    return json;
}

/// The names of files may be any bytes; what is not UTF-8 in them is replaced.
std::string to_json_text(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

Json to_json(const sds_render::Matrix4& matrix) {
    Json rows = Json::array();
    for (unsigned int r = 0; r < 4; ++r) rows.push_back({matrix[r][0], matrix[r][1], matrix[r][2], matrix[r][3]});
    return rows;
}

/// Of a layer, at a frame: its meshes, each with its places, and its cameras.
Json describe_scene(const InfoOptions& options, const LoadedScene& scene) {
    const sds_usda::UsdScene& layer = *scene.layer;
    Json json;
    json["scene"] = options.mesh;
    json["frame"] = scene.frame.time;
    json["frames"] = nullptr;
    if (layer.start_time_code && layer.end_time_code) json["frames"] = {*layer.start_time_code, *layer.end_time_code};
    json["codes_per_second"] = layer.time_codes_per_second;
    json["up"] = layer.up_axis == sds_usda::UpAxis::z ? "z" : "y";
    json["meters_per_unit"] = layer.meters_per_unit;
    json["cameras"] = Json::array();
    for (const sds_usda::UsdCamera& camera : layer.cameras) json["cameras"].push_back(prim_path(layer, camera.node));
    json["meshes"] = Json::array();
    for (const LoadedSurface& loaded : scene.surfaces) {
        json["meshes"].push_back(describe(loaded));
        json["meshes"].back()["instances"] = Json::array();
    }
    for (const MeshInstance& instance : scene.instances)
        json["meshes"][instance.mesh]["instances"].push_back({{"path", instance.name},
                                                              {"transform", to_json(instance.transform.at(0.0))},
                                                              {"moves", instance.transform.is_moving()}});
    json["findings"] = sds_io::to_json(scene.layer_findings);
    return json;
}

/// What a machine reads about input that is refused.
std::string refusal_text(const InfoOptions& options, const InputError& error) {
    Json json;
    json["mesh"] = options.mesh;
    json["error"] = error.what();
    json["findings"] = Json::array();
    if (const auto* cage = dynamic_cast<const CageError*>(&error))
        json["findings"] = sds_io::to_json(cage->get_findings());
    if (const auto* layer = dynamic_cast<const LayerError*>(&error))
        json["findings"] = sds_io::to_json(layer->get_findings());
    return to_json_text(json);
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
        put(label, std::string(value));
    }
    void put(const std::string& label, const std::string& value) {
        m_text += printable(label);
        m_text.append(label.size() < width ? width - label.size() : 1, ' ');
        m_text += printable(value) + "\n";
    }
    /// "key between value" of every entry.
    void put_entries(const std::string& label, const Json& object, const char* between) {
        std::string text;
        for (const auto& [key, value] : object.items())
            text += (text.empty() ? "" : ", ") + key + between + value.dump();
        put(label, text);
    }
    void put_arrays(const Json& bytes) {
        for (const auto& [name, size] : bytes.items())
            if (name != "total" && name != "scratch" && name != "peak") put("  " + name, size.dump());
    }
    void put_stages(const Json& stages) {
        for (const Json& stage : stages)
            line(std::string(2 * stage["depth"].get<std::size_t>() + 2, ' ') + stage["stage"].get<std::string>(),
                 "%.6f", stage["seconds"].get<double>());
    }
    const std::string& get_text() const { return m_text; }

private:
    static constexpr std::size_t width = 36;
    std::string m_text;
};

std::string to_point_text(const Json& point) {
    char text[128];
    std::snprintf(text, sizeof(text), "(%.9g, %.9g, %.9g)", point[0].get<double>(), point[1].get<double>(),
                  point[2].get<double>());
    return text;
}

std::string to_property_text(const Json& property) {
    const auto number = [&](const char* key) { return property[key].dump(); };
    return property["kind"].get<std::string>() + ", " + number("items") +
           (property["indexed"].get<bool>() ? " indexed" : "") + " items of " + property["type"].get<std::string>() +
           " x " + number("extent") + ", " + (property["times"] == 0 ? "still" : number("times") + " times") + ", " +
           number("bytes") + " bytes";
}

std::string to_join_text(const Json& map) {
    std::string text;
    if (map.contains("split_points")) text += ", " + map["split_points"].dump() + " points split off";
    if (map.contains("welded_points")) text += ", " + map["welded_points"].dump() + " points welded";
    return text;
}

std::string to_text(const Json& info) {
    Report report;
    report.put("polygons", info["polygons"].dump());
    report.put("control vertices", info["control_vertices"].dump());
    report.put("quads", info["quads"].dump());
    report.line("subdivision step", "%s", info["subdivision_step"].get<bool>() ? "yes" : "no, all polygons are quads");
    report.put_entries("vertices", info["vertices"], " ");
    report.put_entries("patches", info["patches"], " ");
    if (info.contains("isolation")) {
        const Json& refined = info["isolation"];
        report.put("isolation", "depth " + refined["depth"].dump() + ", " + refined["patches"].dump() + " patches, " +
                                    refined["leaves"].dump() + " of them leaves");
        report.put_entries("patches by level", refined["levels"], ": ");
    }
    report.put_entries("vertices by valence", info["valences"], ": ");
    report.put("box", to_point_text(info["bbox"]["min"]) + " to " + to_point_text(info["bbox"]["max"]));
    report.line("area", "%.9g", info["area"].get<double>());
    if (const Json& motion = info["motion"]; !motion.is_null()) {
        const Json& times = motion["times"];
        const bool is_sampled = motion["kind"] == "samples";
        report.line("motion", "%s, times %.9g to %.9g",
                    is_sampled ? (std::to_string(times.size()) + " samples").c_str() : "vectors",
                    times.front().get<double>(), times.back().get<double>());
    }
    report.put("shading groups", std::to_string(info["shading_groups"].size()));
    for (const Json& map : info["uv_maps"])
        report.put("uv map " + map["name"].get<std::string>(),
                   map["points"].dump() + " points, " + map["seam_edges"].dump() + " seam edges, " +
                       map["unmapped_quads"].dump() + " quads not mapped" + to_join_text(map));
    for (const Json& name : info["color_maps"]) report.line("color map " + name.get<std::string>(), "per vertex");
    for (const Json& property : info["properties"])
        report.put("property " + property["name"].get<std::string>(), to_property_text(property));
    report.put("bytes", info["bytes"]["total"].dump());
    report.put_arrays(info["bytes"]);
    report.line("build seconds", "%.6f", info["build_seconds"].get<double>());
    report.put_stages(info["stages"]);
    return report.get_text();
}

std::string to_scene_text(const Json& scene) {
    Report report;
    report.line("frame", "%.9g", scene["frame"].get<double>());
    if (const Json& frames = scene["frames"]; !frames.is_null())
        report.line("frames", "%.9g to %.9g, %.9g a second", frames[0].get<double>(), frames[1].get<double>(),
                    scene["codes_per_second"].get<double>());
    report.put("up", scene["up"].get<std::string>());
    for (const Json& path : scene["cameras"]) report.put("camera", path.get<std::string>());
    report.put("meshes", std::to_string(scene["meshes"].size()));
    std::string text = report.get_text();
    for (const Json& mesh : scene["meshes"]) {
        Report places;
        for (const Json& instance : mesh["instances"]) {
            const Json& at = instance["transform"][3];
            places.put(instance["moves"].get<bool>() ? "  moves" : "  stands",
                       instance["path"].get<std::string>() + " " + to_point_text(at));
        }
        text += "\nmesh " + mesh["mesh"].get<std::string>() + ", " + std::to_string(mesh["instances"].size()) +
                (mesh["instances"].size() == 1 ? " place\n" : " places\n") + places.get_text() + to_text(mesh);
    }
    return text;
}

/// All that a layer's range of frames shows, or its samples where it names none.
sds_usda::UsdFrame choose_range(const InfoOptions& options, const sds_usda::UsdScene& layer) {
    sds_usda::UsdFrame frame = choose_moment(options, layer);
    const auto grow = [&](double code) {
        frame.open = std::min(frame.open, code - frame.time);
        frame.close = std::max(frame.close, code - frame.time);
    };
    if (layer.start_time_code) grow(*layer.start_time_code);
    if (layer.end_time_code) grow(*layer.end_time_code);
    if (layer.start_time_code || layer.end_time_code) return frame;
    for (const sds_usda::UsdMesh& mesh : layer.meshes) {
        for (const double code : mesh.points.times) grow(code);
        for (const double code : transform_times(layer, mesh.node)) grow(code);
    }
    return frame;
}

struct EstimatedMesh {
    MeshSource source;
    SurfaceModes modes;
};

/// What would be built.
std::vector<EstimatedMesh> read_meshes(const InfoOptions& options) {
    std::vector<EstimatedMesh> meshes;
    if (is_layer(options.mesh)) {
        const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_range(options, layer); };
        for (MeshSource& source : read_layer_meshes(options, options.motion, choose).meshes)
            meshes.push_back({std::move(source), {}});
    } else {
        MeshSource& source = meshes.emplace_back().source;
        source.cage = std::move(*load_cage(options.mesh, options, CageReport::everything).cage);
        join_uvs(source.cage);
        source.further_uvs = load_uvs(options, source.cage);
        if (!options.motion.next.empty()) source.motion.vectors.resize(source.cage.positions.size());
    }
    for (EstimatedMesh& mesh : meshes) mesh.modes = get_modes(options, mesh.source.cage.rules);
    return meshes;
}

/// What a build would need, of all meshes together, one after the other; the text is printed from it.
Json describe_estimate(const InfoOptions& options) {
    BuildEstimate whole;
    std::vector<Stage> stages;
    for (const auto& [source, modes] : read_meshes(options)) {
        const bool has_vectors = !source.motion.vectors.empty();
        const BuildEstimate estimate = estimate_build(source.cage, source.further_uvs, has_vectors, modes);
        for (const ArraySize& array : estimate.arrays) {
            const auto known = std::find_if(whole.arrays.begin(), whole.arrays.end(),
                                            [&](const ArraySize& other) { return other.name == array.name; });
            if (known == whole.arrays.end())
                whole.arrays.push_back(array);
            else
                known->bytes += array.bytes;
        }
        whole.bytes += estimate.bytes;
        whole.scratch = std::max(whole.scratch, estimate.scratch);
        const std::vector<Stage> of_mesh = estimate_stages(source.cage, modes);
        for (std::size_t s = 0; s < std::min(stages.size(), of_mesh.size()); ++s)
            stages[s].seconds += of_mesh[s].seconds;
        if (stages.empty()) stages = of_mesh;
    }
    check_memory_limit("the surface", whole.get_peak(), options.memory_limit);
    Json json;
    json["bytes"] = {{"total", whole.bytes}, {"scratch", whole.scratch}, {"peak", whole.get_peak()}};
    add_arrays(whole.arrays, json["bytes"]);
    json["stages"] = to_json(stages);
    return json;
}

std::string to_estimate_text(const Json& estimate) {
    Report report;
    const Json& bytes = estimate["bytes"];
    report.put("peak bytes, about", bytes["peak"].dump() + " (" + to_size_text(bytes["peak"].get<std::size_t>()) + ")");
    report.put("bytes, about", bytes["total"].dump());
    report.put_arrays(bytes);
    double seconds = 0.0;
    for (const Json& stage : estimate["stages"]) seconds += stage["depth"] == 0 ? stage["seconds"].get<double>() : 0.0;
    report.line("build seconds, about", "%.6f", seconds);
    report.put_stages(estimate["stages"]);
    return report.get_text();
}

void run_info(const InfoOptions& options) {
    try {
        if (options.estimate) {
            const Json estimate = describe_estimate(options);
            print_text(options.json ? to_json_text(estimate) : to_estimate_text(estimate));
            return;
        }
        const auto choose = [&](const sds_usda::UsdScene& layer) { return choose_range(options, layer); };
        const LoadedScene loaded = load_scene(options, options.motion, {}, choose, nullptr);
        if (options.statistics) print_build_rate(loaded.surfaces);
        const Json info = loaded.has_names() ? describe_scene(options, loaded) : describe(loaded.surfaces.front());
        const auto to_any_text = [&] { return loaded.has_names() ? to_scene_text(info) : to_text(info); };
        print_text(options.json ? to_json_text(info) : to_any_text());
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

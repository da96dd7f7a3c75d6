#include "io/usda/scene.h"

#include "io/usda/layer.h"
#include "io/usda/scene_readers.h"

namespace sds_usda {

namespace {

bool is_known_schema(std::string_view type) {
    return type.empty() || type == "Mesh" || type == "Xform" || type == "Scope" || type == "Camera" ||
           type == "GeomSubset";
}

Timed<double> take_or(PrimReader& reader, std::string_view name, std::vector<double> otherwise) {
    Timed<double> taken = reader.take<double>(name, otherwise.size(), false);
    if (taken.is_empty()) taken = {{}, {otherwise.size()}, std::move(otherwise)};
    return taken;
}

class SceneReader {
public:
    SceneReader(Layer& layer, UsdFindings& findings) : layer_(layer), findings_(findings) {}

    UsdScene read();

private:
    void read_stage();
    std::optional<double> stage_number(std::string_view key) const;
    void record_arcs(const Prim& prim);
    void visit(Prim& prim, std::uint32_t parent, const std::vector<UsdPrimvar>& inherited);
    std::vector<UsdPrimvar> add_primvars(PrimReader& reader, std::vector<UsdPrimvar> inherited);

    Layer& layer_;
    UsdFindings& findings_;
    UsdScene scene_;
};

std::optional<double> SceneReader::stage_number(std::string_view key) const {
    const Metadatum* entry = layer_.root.find_metadatum(key);
    return entry == nullptr ? std::nullopt : entry->value.number();
}

void SceneReader::read_stage() {
    scene_.nodes.emplace_back();
    if (const Metadatum* axis = layer_.root.find_metadatum("upAxis")) {
        const auto word = axis->value.string().value_or("");
        scene_.up_axis = word == "Z" ? UpAxis::z : UpAxis::y;
        if (word != "Z" && word != "Y")
            findings_.record(UsdFindingCode::unknown_token, axis->offset, [&] { return "upAxis = " + quoted(word); });
    }
    if (const Metadatum* prim = layer_.root.find_metadatum("defaultPrim"))
        scene_.default_prim = prim->value.string().value_or("");
    scene_.meters_per_unit = stage_number("metersPerUnit").value_or(scene_.meters_per_unit);
    // the frames' rate stands for that of the time codes where that is missing
    const auto codes = stage_number("timeCodesPerSecond"), frames = stage_number("framesPerSecond");
    scene_.time_codes_per_second = codes.value_or(frames.value_or(24.0));
    scene_.frames_per_second = frames.value_or(24.0);
    scene_.start_time_code = stage_number("startTimeCode");
    scene_.end_time_code = stage_number("endTimeCode");
}

void SceneReader::record_arcs(const Prim& prim) {
    for (const Metadatum& entry : prim.metadata) {
        const std::string_view key = entry.key;
        const bool is_arc = key == "references" || key == "payload" || key == "inherits" || key == "specializes" ||
                            key == "subLayers" || key == "clips";
        if (is_arc && entry.op != ListOp::remove && entry.op != ListOp::reorder && entry.value.scalar_count() != 0)
            findings_.record_each(UsdFindingCode::composition_arc, entry.offset, std::string(key));
    }
}

/// Meshes below inherit what is constant; the prim's own stand before those of its ancestors.
std::vector<UsdPrimvar> SceneReader::add_primvars(PrimReader& reader, std::vector<UsdPrimvar> inherited) {
    for (Property& property : reader.prim().properties) {
        if (!is_primvar(property)) continue;
        const std::string_view name = property.name.substr(primvar_prefix.size());
        std::erase_if(inherited, [name](const UsdPrimvar& other) { return other.name == name; });
        reader.find(property.name);
        if (!property.value && !property.samples) continue;  // blocked
        const auto is_said = [](const Metadatum& entry) {
            return entry.key == "interpolation" && entry.value.string().value_or("constant") != "constant";
        };
        if (std::any_of(property.metadata.begin(), property.metadata.end(), is_said)) {
            reader.find(std::string(property.name) + ":indices");
            findings_.record(UsdFindingCode::ignored_primvar, property.offset,
                             [&] { return name_in(property.name, reader.prim()); });
        } else if (auto primvar = read_primvar(reader, property, {})) {
            inherited.push_back(std::move(*primvar));
        }
    }
    return inherited;
}

void SceneReader::visit(Prim& prim, std::uint32_t parent, const std::vector<UsdPrimvar>& inherited) {
    if (prim.specifier == Specifier::class_ || prim.type == "GeomSubset") return;
    record_arcs(prim);
    if (prim.specifier == Specifier::over) {
        findings_.record(UsdFindingCode::undefined_prim, prim.offset, [&] { return quoted(prim.name); });
        return;
    }
    const Metadatum* active = prim.find_metadatum("active");
    if (active != nullptr && !active->value.boolean().value_or(true)) return;
    if (!is_known_schema(prim.type))
        findings_.record_each(UsdFindingCode::unknown_schema, prim.offset, quoted(prim.type));
    if (prim.type == "PointInstancer") return;  // its prototypes are drawn at its points only

    const auto index = static_cast<std::uint32_t>(scene_.nodes.size());
    UsdNode node;
    node.parent = parent;
    PrimReader reader(prim, *layer_.text, findings_);
    read_node(reader, scene_.nodes[parent], node);
    scene_.nodes.push_back(std::move(node));
    if (prim.type == "Mesh") {
        if (auto mesh = read_mesh(reader, *layer_.text, inherited)) {
            mesh->node = index;
            mesh->line = prim.offset;
            scene_.meshes.push_back(std::move(*mesh));
        }
    } else if (prim.type == "Camera") {
        scene_.cameras.push_back(read_camera(reader));
        scene_.cameras.back().node = index;
    }
    const bool has_primvars =
        prim.type != "Mesh" && std::any_of(prim.properties.begin(), prim.properties.end(), is_primvar);
    std::vector<UsdPrimvar> own;
    if (has_primvars) own = add_primvars(reader, inherited);
    if (is_known_schema(prim.type)) reader.record_ignored();
    for (Prim& child : prim.children) visit(child, index, has_primvars ? own : inherited);
}

UsdScene SceneReader::read() {
    read_stage();
    record_arcs(layer_.root);
    for (Prim& prim : layer_.root.children) visit(prim, 0, {});
    if (scene_.meshes.empty() && !findings_.has_errors())
        findings_.record(UsdFindingCode::no_mesh, whole_file, [] { return std::string(); });
    return std::move(scene_);
}

}  // namespace

UsdCamera read_camera(PrimReader& reader) {
    UsdCamera camera;
    constexpr std::array<std::string_view, 2> projections{"perspective", "orthographic"};
    enum class Projection { perspective, orthographic };
    camera.is_orthographic =
        reader.take_word("projection", projections, Projection::perspective) == Projection::orthographic;
    camera.focal_length = take_or(reader, "focalLength", {50.0});
    camera.horizontal_aperture = take_or(reader, "horizontalAperture", {20.955});
    camera.vertical_aperture = take_or(reader, "verticalAperture", {15.2908});
    camera.horizontal_aperture_offset = take_or(reader, "horizontalApertureOffset", {0.0});
    camera.vertical_aperture_offset = take_or(reader, "verticalApertureOffset", {0.0});
    camera.f_stop = take_or(reader, "fStop", {0.0});
    camera.focus_distance = take_or(reader, "focusDistance", {0.0});
    camera.shutter_open = take_or(reader, "shutter:open", {0.0});
    camera.shutter_close = take_or(reader, "shutter:close", {0.0});
    camera.exposure = take_or(reader, "exposure", {0.0});
    camera.clipping_range = take_or(reader, "clippingRange", {1.0, 1000000.0});
    return camera;
}

namespace {

void settle_places(std::string_view text, std::vector<UsdMesh>& meshes) {
    std::vector<UsdMesh*> sorted;
    for (UsdMesh& mesh : meshes) sorted.push_back(&mesh);
    std::sort(sorted.begin(), sorted.end(), [](const UsdMesh* a, const UsdMesh* b) { return a->line < b->line; });
    PlaceWalker walker(text);
    for (UsdMesh* mesh : sorted) {
        walker.move_to(mesh->line);
        mesh->line = walker.line;
        mesh->column = walker.column;
    }
}

}  // namespace

UsdSceneResult read_usd_scene(std::string text) {
    UsdSceneResult result;
    Layer layer = parse_layer(std::move(text), result.findings);
    UsdScene scene;
    if (!result.findings.has_errors()) {
        apply_variants(layer, result.findings);
        scene = SceneReader(layer, result.findings).read();
    }
    result.findings.settle_places(*layer.text);
    settle_places(*layer.text, scene.meshes);
    if (!result.findings.has_errors()) result.scene = std::move(scene);
    return result;
}

}  // namespace sds_usda

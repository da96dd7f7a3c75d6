#include "io/usda/scene.h"

#include "io/usda/layer.h"
#include "io/usda/scene_readers.h"

#include <set>
#include <unordered_map>

namespace sds_usda {

namespace {

bool is_known_schema(std::string_view type) {
    return type.empty() || type == "Mesh" || type == "Xform" || type == "Scope" || type == "Camera" ||
           type == "GeomSubset" || type == "PointInstancer";
}

bool is_arc(const Metadatum& entry) {
    const std::string_view key = entry.key;
    const bool is_named = key == "references" || key == "payload" || key == "inherits" || key == "specializes" ||
                          key == "subLayers" || key == "clips";
    return is_named && entry.op != ListOp::remove && entry.op != ListOp::reorder && entry.value.get_scalar_count() != 0;
}

/// The paths of an arc that stays within the layer; none of others.
std::vector<std::string_view> targets_of(const Metadatum& entry) {
    const auto* paths = std::get_if<std::vector<std::string_view>>(&entry.value.data);
    if (!is_arc(entry) || entry.value.type.kind != ValueKind::path || paths == nullptr) return {};
    return *paths;
}

/// A path that may be relative to a prim's.
std::string resolve(std::string_view path, const std::string& base) {
    return path.starts_with('/') ? std::string(path) : base + "/" + std::string(path);
}

Timed<double> take_or(PrimReader& reader, std::string_view name, std::vector<double> otherwise) {
    Timed<double> taken = reader.take<double>(name, otherwise.size(), false);
    if (taken.is_empty()) taken = {{}, {otherwise.size()}, std::move(otherwise)};
    return taken;
}

class SceneReader {
public:
    SceneReader(Layer& layer, UsdFindings& findings) : m_layer(layer), m_findings(findings) {}

    UsdScene read();

private:
    /// On the way to a prim.
    struct Way {
        std::string path;  ///< of the parent; empty for the root
        std::uint32_t parent = 0;
        bool is_optional = false;  ///< only what somebody asks for is read
    };
    /// What is there for others has to be found first.
    struct Arc {
        std::uint32_t node;
        std::string target;
        std::size_t offset;
        std::string_view key;
    };
    struct Prototypes {
        std::size_t instancer;
        std::vector<std::string> targets;
        std::size_t offset;
    };

    void read_stage();
    std::optional<double> stage_number(std::string_view key) const;
    void collect_targets(const Prim& prim, const std::string& path);
    bool is_target(const std::string& path) const { return m_targets.contains(path); }
    bool leads_to_target(const std::string& path) const;
    void record_arcs(const Prim& prim, bool are_near_too);
    bool take_arcs(const Prim& prim, std::uint32_t node, const std::string& path);
    void visit(Prim& prim, const Way& way, const std::vector<UsdPrimvar>& inherited);
    void read_contents(PrimReader& reader, std::uint32_t node, const std::string& path,
                       const std::vector<UsdPrimvar>& inherited);
    void read_places(PrimReader& reader, std::uint32_t node, const std::string& path);
    void record_overrides(PrimReader& reader);
    void resolve_targets();
    std::vector<UsdPrimvar> add_primvars(PrimReader& reader, std::vector<UsdPrimvar> inherited);

    Layer& m_layer;
    UsdFindings& m_findings;
    UsdScene m_scene;
    std::set<std::string> m_targets;
    std::vector<Arc> m_arcs;
    std::vector<Prototypes> m_prototypes;
};

std::optional<double> SceneReader::stage_number(std::string_view key) const {
    const Metadatum* entry = m_layer.root.find_metadatum(key);
    return entry == nullptr ? std::nullopt : entry->value.number();
}

void SceneReader::read_stage() {
    m_scene.nodes.emplace_back();
    if (const Metadatum* axis = m_layer.root.find_metadatum("upAxis")) {
        const auto word = axis->value.string().value_or("");
        m_scene.up_axis = word == "Z" ? UpAxis::z : UpAxis::y;
        if (word != "Z" && word != "Y")
            m_findings.record(UsdFindingCode::unknown_token, axis->offset, [&] { return "upAxis = " + quoted(word); });
    }
    if (const Metadatum* prim = m_layer.root.find_metadatum("defaultPrim"))
        m_scene.default_prim = prim->value.string().value_or("");
    m_scene.meters_per_unit = stage_number("metersPerUnit").value_or(m_scene.meters_per_unit);
    // the frames' rate stands for that of the time codes where that is missing
    const auto codes = stage_number("timeCodesPerSecond"), frames = stage_number("framesPerSecond");
    m_scene.time_codes_per_second = codes.value_or(frames.value_or(24.0));
    m_scene.frames_per_second = frames.value_or(24.0);
    m_scene.start_time_code = stage_number("startTimeCode");
    m_scene.end_time_code = stage_number("endTimeCode");
}

void SceneReader::collect_targets(const Prim& prim, const std::string& path) {
    for (const Metadatum& entry : prim.metadata)
        for (const std::string_view target : targets_of(entry)) m_targets.insert(resolve(target, path));
    if (prim.type == "PointInstancer")
        if (const Property* prototypes = prim.find_property("prototypes"))
            for (const PathList& list : prototypes->paths)
                for (const std::string_view target : list.paths) m_targets.insert(resolve(target, path));
    for (const Prim& child : prim.children) collect_targets(child, path + "/" + std::string(child.name));
}

bool SceneReader::leads_to_target(const std::string& path) const {
    const auto next = m_targets.lower_bound(path + "/");
    return next != m_targets.end() && next->starts_with(path + "/");
}

void SceneReader::record_arcs(const Prim& prim, bool are_near_too) {
    for (const Metadatum& entry : prim.metadata)
        if (is_arc(entry) && (are_near_too || targets_of(entry).empty()))
            m_findings.record_each(UsdFindingCode::composition_arc, entry.offset, std::string(entry.key));
}

/// Keeps the arcs that stay within the layer and tells of the others. Returns whether there are any.
bool SceneReader::take_arcs(const Prim& prim, std::uint32_t node, const std::string& path) {
    // what stands in the prim and what an arc brings cannot both be its mesh
    const bool is_mesh = prim.find_property("points") != nullptr;
    record_arcs(prim, is_mesh);
    if (is_mesh) return false;
    const std::size_t before = m_arcs.size();
    for (const Metadatum& entry : prim.metadata)
        for (const std::string_view target : targets_of(entry))
            m_arcs.push_back({node, resolve(target, path), entry.offset, entry.key});
    return m_arcs.size() > before;
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
            m_findings.record(UsdFindingCode::ignored_primvar, property.offset,
                              [&] { return name_in(property.name, reader.prim()); });
        } else if (auto primvar = read_primvar(reader, property, {})) {
            inherited.push_back(std::move(*primvar));
        }
    }
    return inherited;
}

void SceneReader::read_places(PrimReader& reader, std::uint32_t node, const std::string& path) {
    std::optional<UsdInstancer> instancer = read_instancer(reader);
    if (!instancer) return;
    instancer->node = node;
    Prototypes& prototypes = m_prototypes.emplace_back();
    prototypes.instancer = m_scene.instancers.size();
    prototypes.offset = reader.place_of("prototypes");
    for (const PathList& list : reader.find("prototypes")->paths)
        for (const std::string_view target : list.paths) prototypes.targets.push_back(resolve(target, path));
    m_scene.instancers.push_back(std::move(*instancer));
}

void SceneReader::read_contents(PrimReader& reader, std::uint32_t node, const std::string& path,
                                const std::vector<UsdPrimvar>& inherited) {
    Prim& prim = reader.prim();
    if (prim.type == "Mesh") {
        if (auto mesh = read_mesh(reader, *m_layer.text, inherited)) {
            mesh->node = node;
            mesh->line = prim.offset;
            m_scene.meshes.push_back(std::move(*mesh));
        }
    } else if (prim.type == "Camera") {
        m_scene.cameras.push_back(read_camera(reader));
        m_scene.cameras.back().node = node;
    } else if (prim.type == "PointInstancer") {
        read_places(reader, node, path);
    }
}

/// What a prim says itself of what an arc within the layer brings, beyond its place.
void SceneReader::record_overrides(PrimReader& reader) {
    const auto record = [&](std::size_t offset, const std::string& what) {
        m_findings.record(UsdFindingCode::ignored_override, offset, [&] { return what; });
    };
    for (const Property& property : reader.prim().properties) {
        const bool is_followed = property.name.starts_with("xformOp") || property.name == "visibility" ||
                                 property.name == "purpose" || property.is_relationship();
        if (is_followed) continue;
        reader.find(property.name);
        record(property.offset, name_in(property.name, reader.prim()));
    }
    for (const Prim& child : reader.prim().children)
        if (child.specifier == Specifier::over)
            record(child.offset, "'over' of " + quoted(child.name) + " in " + quoted(reader.prim().name));
}

void SceneReader::visit(Prim& prim, const Way& way, const std::vector<UsdPrimvar>& inherited) {
    if (prim.type == "GeomSubset") return;
    const std::string path = way.path + "/" + std::string(prim.name);
    const bool is_asked_for = is_target(path) || (!way.is_optional && prim.specifier == Specifier::def);
    if (!is_asked_for && !leads_to_target(path)) {
        if (prim.specifier != Specifier::over || way.is_optional) return;
        record_arcs(prim, true);
        m_findings.record(UsdFindingCode::undefined_prim, prim.offset, [&] { return quoted(prim.name); });
        return;
    }
    const Metadatum* active = prim.find_metadatum("active");
    if (active != nullptr && !active->value.boolean().value_or(true)) return;
    if (!is_known_schema(prim.type))
        m_findings.record_each(UsdFindingCode::unknown_schema, prim.offset, quoted(prim.type));

    const auto index = static_cast<std::uint32_t>(m_scene.nodes.size());
    UsdNode node;
    node.parent = way.parent;
    node.is_hidden = way.is_optional || prim.specifier != Specifier::def;
    PrimReader reader(prim, *m_layer.text, m_findings);
    read_node(reader, m_scene.nodes[way.parent], node);
    m_scene.nodes.push_back(std::move(node));
    const bool is_brought = take_arcs(prim, index, path);
    if (is_brought)
        record_overrides(reader);
    else if (is_asked_for)
        read_contents(reader, index, path, inherited);
    const bool has_primvars =
        prim.type != "Mesh" && !is_brought && std::any_of(prim.properties.begin(), prim.properties.end(), is_primvar);
    std::vector<UsdPrimvar> own;
    if (has_primvars) own = add_primvars(reader, inherited);
    if (is_known_schema(prim.type)) reader.record_ignored();
    // below an instancer, and on the way to a target, there is nothing to be seen by itself
    const Way below{path, index, !is_asked_for || prim.type == "PointInstancer"};
    for (Prim& child : prim.children)
        if (!is_brought || child.specifier != Specifier::over) visit(child, below, has_primvars ? own : inherited);
    m_scene.nodes[index].end = static_cast<std::uint32_t>(m_scene.nodes.size());
}

void SceneReader::resolve_targets() {
    if (m_arcs.empty() && m_prototypes.empty()) return;
    std::unordered_map<std::string, std::uint32_t> nodes;
    std::vector<std::string> paths(m_scene.nodes.size());
    for (std::uint32_t node = 1; node < m_scene.nodes.size(); ++node) {
        paths[node] = paths[m_scene.nodes[node].parent] + "/" + m_scene.nodes[node].name;
        nodes.emplace(paths[node], node);
    }
    for (const Arc& arc : m_arcs) {
        const auto found = nodes.find(arc.target);
        const bool holds_itself =
            found != nodes.end() && found->second <= arc.node && arc.node < m_scene.nodes[found->second].end;
        if (found == nodes.end() || holds_itself)
            m_findings.record_each(UsdFindingCode::composition_arc, arc.offset,
                                   std::string(arc.key) + " to " + quoted(arc.target));
        else
            m_scene.references.push_back({arc.node, found->second});
    }
    std::vector<UsdInstancer> instancers;
    for (const Prototypes& prototypes : m_prototypes) {
        UsdInstancer& instancer = m_scene.instancers[prototypes.instancer];
        for (const std::string& target : prototypes.targets) {
            const auto found = nodes.find(target);
            if (found != nodes.end()) instancer.prototypes.push_back(found->second);
        }
        if (instancer.prototypes.size() == prototypes.targets.size())
            instancers.push_back(std::move(instancer));
        else
            m_findings.record(UsdFindingCode::bad_instancer, prototypes.offset,
                              [&] { return quoted(paths[instancer.node]) + ": a prototype is not there"; });
    }
    m_scene.instancers = std::move(instancers);
}

UsdScene SceneReader::read() {
    read_stage();
    record_arcs(m_layer.root, true);
    for (const Prim& prim : m_layer.root.children) collect_targets(prim, "/" + std::string(prim.name));
    for (Prim& prim : m_layer.root.children) visit(prim, {}, {});
    m_scene.nodes[0].end = static_cast<std::uint32_t>(m_scene.nodes.size());
    resolve_targets();
    if (m_scene.meshes.empty() && !m_findings.has_errors())
        m_findings.record(UsdFindingCode::no_mesh, whole_file, [] { return std::string(); });
    return std::move(m_scene);
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

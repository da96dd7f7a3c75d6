#include "io/usda/scene_readers.h"

#include <cmath>
#include <limits>
#include <numeric>

namespace sds_usda {

namespace {

constexpr std::string_view primvar_prefix = "primvars:", indices_suffix = ":indices";

std::string counts_differ(std::size_t found, const char* of, std::size_t wanted) {
    return std::to_string(found) + " for " + std::to_string(wanted) + " " + of;
}

class MeshReader {
public:
    MeshReader(PrimReader& reader, const std::string& text) : reader_(reader), text_(text) {}

    std::optional<UsdMesh> read();

private:
    bool has_all();
    Timed<float> read_points(std::string_view name);
    void read_topology();
    void read_counts();
    void read_sharpness();
    void check_sharpnesses(std::string_view name, const std::vector<float>& values);
    void check_count(std::string_view name, std::size_t found, const char* of, std::size_t wanted);
    void read_words();
    void note_ignored();
    void read_primvars();
    std::optional<UsdPrimvar> read_primvar(Property& property, Property* indices);
    std::string fault_of(const UsdPrimvar& primvar) const;
    std::size_t places_of(Interpolation interpolation) const;
    void read_subset(Prim& child);

    PrimReader& reader_;
    const std::string& text_;
    UsdMesh mesh_;
};

bool MeshReader::has_all() {
    for (const std::string_view name : {"points", "faceVertexCounts", "faceVertexIndices"}) {
        const Property* property = reader_.find(name);
        if (property != nullptr && (property->value || (property->samples && !property->samples->times.empty())))
            continue;
        reader_.findings().record(UsdFindingCode::missing_attribute, reader_.prim().offset,
                                  [&] { return name_in(name, reader_.prim()); });
        return false;
    }
    return true;
}

/// Points or their rates, finite, every sample of one size.
Timed<float> MeshReader::read_points(std::string_view name) {
    Timed<float> points = reader_.take<float>(name, 3, true);
    for (std::size_t s = 1; s < points.sample_count(); ++s)
        check_count(name, points.sample(s).size() / 3, "points of the first sample", points.sample(0).size() / 3);
    const auto bad =
        std::find_if(points.values.begin(), points.values.end(), [](float v) { return !std::isfinite(v); });
    if (bad != points.values.end())
        reader_.findings().record(UsdFindingCode::non_finite_number,
                                  reader_.place_of(name, static_cast<std::size_t>(bad - points.values.begin())),
                                  [&] { return name_in(name, reader_.prim()); });
    return points;
}

void MeshReader::check_count(std::string_view name, std::size_t found, const char* of, std::size_t wanted) {
    if (found == wanted) return;
    reader_.findings().record(UsdFindingCode::wrong_count, reader_.place_of(name),
                              [&] { return name_in(name, reader_.prim()) + ": " + counts_differ(found, of, wanted); });
}

void MeshReader::read_counts() {
    const std::vector<std::int32_t> counts = reader_.take_array<std::int32_t>("faceVertexCounts");
    std::size_t corner_count = 0;
    for (std::size_t f = 0; f < counts.size(); ++f) {
        if (counts[f] < 0) {
            reader_.findings().record(UsdFindingCode::wrong_count, reader_.place_of("faceVertexCounts", f),
                                      [&] { return "face of " + std::to_string(counts[f]) + " corners"; });
            return;
        }
        corner_count += static_cast<std::size_t>(counts[f]);
    }
    mesh_.counts.assign(counts.begin(), counts.end());
    mesh_.indices = reader_.take_indices("faceVertexIndices", mesh_.point_count());
    const bool were_read = !reader_.findings().has_errors();
    if (were_read) check_count("faceVertexIndices", mesh_.indices.size(), "face-corners", corner_count);
    if (std::max(mesh_.indices.size(), mesh_.point_count()) >= std::numeric_limits<std::uint32_t>::max())
        reader_.findings().record(UsdFindingCode::too_many_elements, reader_.prim().offset,
                                  [&] { return quoted(reader_.prim().name); });
}

void MeshReader::read_topology() {
    mesh_.points = read_points("points");
    mesh_.velocities = read_points("velocities");
    mesh_.accelerations = read_points("accelerations");
    if (reader_.findings().has_errors()) return;  // what follows would only repeat it
    if (!mesh_.velocities.is_empty())
        check_count("velocities", mesh_.velocities.ends.front() / 3, "points", mesh_.point_count());
    if (!mesh_.accelerations.is_empty())
        check_count("accelerations", mesh_.accelerations.ends.front() / 3, "points", mesh_.point_count());
    read_counts();
    mesh_.hole_indices = reader_.take_indices("holeIndices", mesh_.counts.size());
    read_sharpness();
}

void MeshReader::read_sharpness() {
    mesh_.crease_indices = reader_.take_indices("creaseIndices", mesh_.point_count());
    mesh_.crease_lengths = reader_.take_indices("creaseLengths", std::numeric_limits<std::uint32_t>::max());
    mesh_.crease_sharpnesses = reader_.take_array<float>("creaseSharpnesses");
    mesh_.corner_indices = reader_.take_indices("cornerIndices", mesh_.point_count());
    mesh_.corner_sharpnesses = reader_.take_array<float>("cornerSharpnesses");
    if (reader_.findings().has_errors()) return;

    std::size_t chained = 0, edges = 0;
    for (std::size_t i = 0; i < mesh_.crease_lengths.size(); ++i) {
        const std::size_t length = mesh_.crease_lengths[i];
        if (length < 2)
            reader_.findings().record(UsdFindingCode::wrong_count, reader_.place_of("creaseLengths", i),
                                      [&] { return "crease of " + std::to_string(length) + " points"; });
        chained += length;
        edges += length - std::min<std::size_t>(length, 1);
    }
    check_count("creaseIndices", mesh_.crease_indices.size(), "points of creases", chained);
    if (mesh_.crease_sharpnesses.size() != edges)
        check_count("creaseSharpnesses", mesh_.crease_sharpnesses.size(), "creases", mesh_.crease_lengths.size());
    check_count("cornerSharpnesses", mesh_.corner_sharpnesses.size(), "corners", mesh_.corner_indices.size());
    check_sharpnesses("creaseSharpnesses", mesh_.crease_sharpnesses);
    check_sharpnesses("cornerSharpnesses", mesh_.corner_sharpnesses);
}

void MeshReader::check_sharpnesses(std::string_view name, const std::vector<float>& values) {
    const auto record = [&](UsdFindingCode code, auto is_bad) {
        const auto bad = std::find_if(values.begin(), values.end(), is_bad);
        if (bad != values.end())
            reader_.findings().record(code, reader_.place_of(name, static_cast<std::size_t>(bad - values.begin())),
                                      [&] { return name_in(name, reader_.prim()); });
    };
    record(UsdFindingCode::non_finite_number, [](float v) { return std::isnan(v); });
    record(UsdFindingCode::negative_sharpness, [](float v) { return v < 0.0f; });
}

void MeshReader::read_words() {
    const auto scheme = reader_.take_string("subdivisionScheme").value_or("catmullClark");
    const auto known = std::find(scheme_words.begin(), scheme_words.end(), scheme);
    if (known == scheme_words.end())
        reader_.findings().record(UsdFindingCode::unsupported_scheme, reader_.place_of("subdivisionScheme"),
                                  [&] { return quoted(scheme) + " of " + quoted(reader_.prim().name); });
    else
        mesh_.scheme = static_cast<SubdivisionScheme>(known - scheme_words.begin());
    mesh_.interpolate_boundary =
        reader_.take_word("interpolateBoundary", boundary_words, InterpolateBoundary::edge_and_corner);
    mesh_.face_varying_linear =
        reader_.take_word("faceVaryingLinearInterpolation", face_varying_words, FaceVaryingLinear::corners_plus1);
    mesh_.triangle_rule = reader_.take_word("triangleSubdivisionRule", triangle_words, TriangleRule::catmull_clark);
    constexpr std::array<std::string_view, 2> orientations{"rightHanded", "leftHanded"};
    enum class Orientation { right, left };
    mesh_.is_left_handed = reader_.take_word("orientation", orientations, Orientation::right) == Orientation::left;
    mesh_.is_double_sided = reader_.take_bool("doubleSided", false);
}

void MeshReader::note_ignored() {
    for (const std::string_view name : {"normals", "primvars:normals"})
        if (reader_.find(name) != nullptr)
            reader_.findings().record(UsdFindingCode::ignored_normals, reader_.place_of(name),
                                      [&] { return name_in(name, reader_.prim()); });
    reader_.find("extent");  // follows from the points
    for (const Property& property : reader_.prim().properties)
        if (property.name.starts_with("subsetFamily:")) reader_.find(property.name);
}

std::size_t MeshReader::places_of(Interpolation interpolation) const {
    switch (interpolation) {
        case Interpolation::constant:
            return 1;
        case Interpolation::uniform:
            return mesh_.counts.size();
        case Interpolation::varying:
        case Interpolation::vertex:
            return mesh_.point_count();
        case Interpolation::face_varying:
            return mesh_.indices.size();
    }
    return 0;
}

void MeshReader::read_primvars() {
    for (Property& property : reader_.prim().properties) {
        const bool is_primvar = property.name.starts_with(primvar_prefix) && !property.name.ends_with(indices_suffix);
        if (!is_primvar || property.name == "primvars:normals" || (!property.value && !property.samples)) continue;
        reader_.find(property.name);
        Property* indices = reader_.find(std::string(property.name) + std::string(indices_suffix));
        if (auto primvar = read_primvar(property, indices)) mesh_.primvars.push_back(std::move(*primvar));
    }
}

std::optional<UsdPrimvar> MeshReader::read_primvar(Property& property, Property* indices) {
    const auto metadatum = [&](std::string_view key) -> const Value* {
        for (const Metadatum& entry : property.metadata)
            if (entry.key == key) return &entry.value;
        return nullptr;
    };
    UsdPrimvar primvar;
    primvar.name = property.name.substr(primvar_prefix.size());
    primvar.type_name = property.type;
    std::string fault;
    if (const Value* word = metadatum("interpolation")) {
        const auto text = word->string().value_or("");
        const auto known = std::find(interpolation_words.begin(), interpolation_words.end(), text);
        if (known == interpolation_words.end()) fault = "interpolation " + quoted(text);
        primvar.interpolation = static_cast<Interpolation>(known - interpolation_words.begin());
    }
    if (const Value* size = metadatum("elementSize")) {
        const double number = size->number().value_or(0.0);
        if (!(number >= 1.0 && number <= 1e6)) fault = "its elementSize";
        primvar.element_size = fault.empty() ? static_cast<std::uint32_t>(number) : 1;
    }
    const ValueType type = property.samples ? property.samples->values.type : property.value->type;
    primvar.components = type.components;
    if (type.kind == ValueKind::untyped || type.kind == ValueKind::dictionary)
        fault = "type " + quoted(property.type);
    else
        with_storage(type.kind, [&]<class T>(T) {
            using Kept = std::conditional_t<std::is_same_v<T, std::string_view>, std::string, T>;
            primvar.values = take_timed<Kept>(property);
        });
    if (indices != nullptr) {
        const Timed<std::int32_t> signed_indices = reader_.take<std::int32_t>(indices->name, 1, true);
        // a negative index becomes one that is out of range
        primvar.indices = {
            signed_indices.times, signed_indices.ends, {signed_indices.values.begin(), signed_indices.values.end()}};
    }
    if (fault.empty()) fault = fault_of(primvar);
    if (fault.empty()) return primvar;
    reader_.findings().record(UsdFindingCode::bad_primvar, property.offset,
                              [&] { return name_in(property.name, reader_.prim()) + ": " + fault; });
    return std::nullopt;
}

/// What does not fit the mesh, or nothing.
std::string MeshReader::fault_of(const UsdPrimvar& primvar) const {
    const std::size_t stride = std::size_t{primvar.components} * primvar.element_size;
    const std::size_t places = places_of(primvar.interpolation);
    const std::string of =
        std::string(interpolation_words[static_cast<std::size_t>(primvar.interpolation)]) + " places";
    const bool is_constant = primvar.interpolation == Interpolation::constant;
    std::size_t fewest = std::numeric_limits<std::size_t>::max();
    std::string fault = std::visit(
        [&](const auto& values) -> std::string {
            if (values.is_empty()) return "no value";
            for (std::size_t s = 0; s < values.sample_count(); ++s) {
                const std::size_t count = values.sample(s).size() / stride;
                fewest = std::min(fewest, count);
                if (values.sample(s).size() % stride != 0) return "values that are no whole elements";
                if (primvar.indices.is_empty() && !is_constant && count != places)
                    return counts_differ(count, of.c_str(), places);
            }
            return {};
        },
        primvar.values);
    for (std::size_t s = 0; s < primvar.indices.sample_count() && fault.empty(); ++s)
        if (!is_constant && primvar.indices.sample(s).size() != places)
            fault = counts_differ(primvar.indices.sample(s).size(), ("indices at " + of).c_str(), places);
    for (const std::uint32_t index : primvar.indices.values)
        if (index >= fewest && fault.empty())
            fault = "index " + std::to_string(static_cast<std::int32_t>(index)) + " of " + std::to_string(fewest);
    return fault;
}

void MeshReader::read_subset(Prim& child) {
    UsdFindings& findings = reader_.findings();
    PrimReader reader(child, text_, findings);
    UsdSubset subset;
    subset.name = child.name;
    if (const Metadatum* shown = child.find_metadatum("displayName"))
        subset.name = shown->value.string().value_or(child.name);
    subset.family = reader.take_string("familyName").value_or("");
    const std::string_view element = reader.take_string("elementType").value_or("face");
    const std::vector<std::int32_t> faces = reader.take_array<std::int32_t>("indices");
    const auto bad = std::find_if(faces.begin(), faces.end(), [&](std::int32_t f) {
        return f < 0 || static_cast<std::size_t>(f) >= mesh_.counts.size();
    });
    if (element != "face") {
        findings.record(UsdFindingCode::bad_subset, reader.place_of("elementType"),
                        [&] { return quoted(child.name) + ": elementType " + quoted(element); });
    } else if (bad != faces.end()) {
        const std::size_t place = reader.place_of("indices", static_cast<std::size_t>(bad - faces.begin()));
        findings.record(UsdFindingCode::bad_subset, place, [&] {
            return quoted(child.name) + ": face " + std::to_string(*bad) + " of " + std::to_string(mesh_.counts.size());
        });
    } else {
        subset.faces.assign(faces.begin(), faces.end());
        mesh_.subsets.push_back(std::move(subset));
    }
    reader.record_ignored();
}

std::optional<UsdMesh> MeshReader::read() {
    read_words();
    if (!has_all()) return std::nullopt;
    read_topology();
    note_ignored();
    if (reader_.findings().has_errors()) return std::nullopt;
    read_primvars();
    for (Prim& child : reader_.prim().children)
        if (child.specifier == Specifier::def && child.type == "GeomSubset") read_subset(child);
    return std::move(mesh_);
}

}  // namespace

std::optional<UsdMesh> read_mesh(PrimReader& reader, const std::string& text) {
    return MeshReader(reader, text).read();
}

}  // namespace sds_usda

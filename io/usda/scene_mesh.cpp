#include "io/usda/scene_readers.h"

#include <cmath>
#include <limits>
#include <unordered_set>

namespace sds_usda {

namespace {

class MeshReader {
public:
    MeshReader(PrimReader& reader, const std::string& text) : reader_(reader), text_(text) {}

    std::optional<UsdMesh> read(const std::vector<UsdPrimvar>& inherited);

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
    void read_primvars(const std::vector<UsdPrimvar>& inherited);
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

void MeshReader::read_primvars(const std::vector<UsdPrimvar>& inherited) {
    std::unordered_set<std::string_view> own;
    for (Property& property : reader_.prim().properties) {
        if (!is_primvar(property)) continue;
        own.insert(property.name);
        if (!property.value && !property.samples) continue;
        const PlaceCounts counts{mesh_.counts.size(), mesh_.point_count(), mesh_.indices.size()};
        if (auto primvar = read_primvar(reader_, property, counts)) mesh_.primvars.push_back(std::move(*primvar));
    }
    for (const UsdPrimvar& primvar : inherited)
        if (!own.contains(std::string(primvar_prefix) + primvar.name)) mesh_.primvars.push_back(primvar);
}

void MeshReader::read_subset(Prim& child) {
    UsdFindings& findings = reader_.findings();
    PrimReader reader(child, text_, findings);
    UsdSubset subset;
    const Metadatum* shown = child.find_metadatum("displayName");
    subset.name = reader.take_name(shown == nullptr ? child.name : shown->value.string().value_or(child.name));
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

std::optional<UsdMesh> MeshReader::read(const std::vector<UsdPrimvar>& inherited) {
    read_words();
    if (!has_all()) return std::nullopt;
    read_topology();
    note_ignored();
    if (reader_.findings().has_errors()) return std::nullopt;
    read_primvars(inherited);
    for (Prim& child : reader_.prim().children)
        if (child.specifier == Specifier::def && child.type == "GeomSubset") read_subset(child);
    return std::move(mesh_);
}

}  // namespace

std::optional<UsdMesh> read_mesh(PrimReader& reader, const std::string& text,
                                 const std::vector<UsdPrimvar>& inherited) {
    return MeshReader(reader, text).read(inherited);
}

}  // namespace sds_usda

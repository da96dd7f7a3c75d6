#include "io/usda/scene_readers.h"

#include <cmath>
#include <limits>
#include <unordered_set>

namespace sds_usda {

namespace {

class MeshReader {
public:
    MeshReader(PrimReader& reader, const std::string& text) : m_reader(reader), m_text(text) {}

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

    PrimReader& m_reader;
    const std::string& m_text;
    UsdMesh m_mesh;
};

bool MeshReader::has_all() {
    for (const std::string_view name : {"points", "faceVertexCounts", "faceVertexIndices"}) {
        const Property* property = m_reader.find(name);
        if (property != nullptr && (property->value || (property->samples && !property->samples->times.empty())))
            continue;
        m_reader.findings().record(UsdFindingCode::missing_attribute, m_reader.prim().offset,
                                   [&] { return name_in(name, m_reader.prim()); });
        return false;
    }
    return true;
}

/// Points or their rates, finite, every sample of one size.
Timed<float> MeshReader::read_points(std::string_view name) {
    Timed<float> points = m_reader.take<float>(name, 3, true);
    for (std::size_t s = 1; s < points.get_sample_count(); ++s)
        check_count(name, points.sample(s).size() / 3, "points of the first sample", points.sample(0).size() / 3);
    const auto bad =
        std::find_if(points.values.begin(), points.values.end(), [](float v) { return !std::isfinite(v); });
    if (bad != points.values.end())
        m_reader.findings().record(UsdFindingCode::non_finite_number,
                                   m_reader.place_of(name, static_cast<std::size_t>(bad - points.values.begin())),
                                   [&] { return name_in(name, m_reader.prim()); });
    return points;
}

void MeshReader::check_count(std::string_view name, std::size_t found, const char* of, std::size_t wanted) {
    if (found == wanted) return;
    m_reader.findings().record(UsdFindingCode::wrong_count, m_reader.place_of(name), [&] {
        return name_in(name, m_reader.prim()) + ": " + counts_differ(found, of, wanted);
    });
}

void MeshReader::read_counts() {
    const std::vector<std::int32_t> counts = m_reader.take_array<std::int32_t>("faceVertexCounts");
    std::size_t corner_count = 0;
    for (std::size_t f = 0; f < counts.size(); ++f) {
        if (counts[f] < 0) {
            m_reader.findings().record(UsdFindingCode::wrong_count, m_reader.place_of("faceVertexCounts", f),
                                       [&] { return "face of " + std::to_string(counts[f]) + " corners"; });
            return;
        }
        corner_count += static_cast<std::size_t>(counts[f]);
    }
    m_mesh.counts.assign(counts.begin(), counts.end());
    m_mesh.indices = m_reader.take_indices("faceVertexIndices", m_mesh.get_point_count());
    const bool were_read = !m_reader.findings().has_errors();
    if (were_read) check_count("faceVertexIndices", m_mesh.indices.size(), "face-corners", corner_count);
    if (std::max(m_mesh.indices.size(), m_mesh.get_point_count()) >= std::numeric_limits<std::uint32_t>::max())
        m_reader.findings().record(UsdFindingCode::too_many_elements, m_reader.prim().offset,
                                   [&] { return quoted(m_reader.prim().name); });
}

void MeshReader::read_topology() {
    m_mesh.points = read_points("points");
    m_mesh.velocities = read_points("velocities");
    m_mesh.accelerations = read_points("accelerations");
    if (m_reader.findings().has_errors()) return;  // what follows would only repeat it
    if (!m_mesh.velocities.is_empty())
        check_count("velocities", m_mesh.velocities.ends.front() / 3, "points", m_mesh.get_point_count());
    if (!m_mesh.accelerations.is_empty())
        check_count("accelerations", m_mesh.accelerations.ends.front() / 3, "points", m_mesh.get_point_count());
    read_counts();
    m_mesh.hole_indices = m_reader.take_indices("holeIndices", m_mesh.counts.size());
    read_sharpness();
}

void MeshReader::read_sharpness() {
    m_mesh.crease_indices = m_reader.take_indices("creaseIndices", m_mesh.get_point_count());
    m_mesh.crease_lengths = m_reader.take_indices("creaseLengths", std::numeric_limits<std::uint32_t>::max());
    m_mesh.crease_sharpnesses = m_reader.take_array<float>("creaseSharpnesses");
    m_mesh.corner_indices = m_reader.take_indices("cornerIndices", m_mesh.get_point_count());
    m_mesh.corner_sharpnesses = m_reader.take_array<float>("cornerSharpnesses");
    if (m_reader.findings().has_errors()) return;

    std::size_t chained = 0, edges = 0;
    for (std::size_t i = 0; i < m_mesh.crease_lengths.size(); ++i) {
        const std::size_t length = m_mesh.crease_lengths[i];
        if (length < 2)
            m_reader.findings().record(UsdFindingCode::wrong_count, m_reader.place_of("creaseLengths", i),
                                       [&] { return "crease of " + std::to_string(length) + " points"; });
        chained += length;
        edges += length - std::min<std::size_t>(length, 1);
    }
    check_count("creaseIndices", m_mesh.crease_indices.size(), "points of creases", chained);
    if (m_mesh.crease_sharpnesses.size() != edges)
        check_count("creaseSharpnesses", m_mesh.crease_sharpnesses.size(), "creases", m_mesh.crease_lengths.size());
    check_count("cornerSharpnesses", m_mesh.corner_sharpnesses.size(), "corners", m_mesh.corner_indices.size());
    check_sharpnesses("creaseSharpnesses", m_mesh.crease_sharpnesses);
    check_sharpnesses("cornerSharpnesses", m_mesh.corner_sharpnesses);
}

void MeshReader::check_sharpnesses(std::string_view name, const std::vector<float>& values) {
    const auto record = [&](UsdFindingCode code, auto is_bad) {
        const auto bad = std::find_if(values.begin(), values.end(), is_bad);
        if (bad != values.end())
            m_reader.findings().record(code, m_reader.place_of(name, static_cast<std::size_t>(bad - values.begin())),
                                       [&] { return name_in(name, m_reader.prim()); });
    };
    record(UsdFindingCode::non_finite_number, [](float v) { return std::isnan(v); });
    record(UsdFindingCode::negative_sharpness, [](float v) { return v < 0.0f; });
}

void MeshReader::read_words() {
    const auto scheme = m_reader.take_string("subdivisionScheme").value_or("catmullClark");
    const auto known = std::find(scheme_words.begin(), scheme_words.end(), scheme);
    if (known == scheme_words.end())
        m_reader.findings().record(UsdFindingCode::unsupported_scheme, m_reader.place_of("subdivisionScheme"),
                                   [&] { return quoted(scheme) + " of " + quoted(m_reader.prim().name); });
    else
        m_mesh.scheme = static_cast<SubdivisionScheme>(known - scheme_words.begin());
    m_mesh.interpolate_boundary =
        m_reader.take_word("interpolateBoundary", boundary_words, InterpolateBoundary::edge_and_corner);
    m_mesh.face_varying_linear =
        m_reader.take_word("faceVaryingLinearInterpolation", face_varying_words, FaceVaryingLinear::corners_plus1);
    m_mesh.triangle_rule = m_reader.take_word("triangleSubdivisionRule", triangle_words, TriangleRule::catmull_clark);
    constexpr std::array<std::string_view, 2> orientations{"rightHanded", "leftHanded"};
    enum class Orientation { right, left };
    m_mesh.is_left_handed = m_reader.take_word("orientation", orientations, Orientation::right) == Orientation::left;
    m_mesh.is_double_sided = m_reader.take_bool("doubleSided", false);
}

void MeshReader::note_ignored() {
    for (const std::string_view name : {"normals", "primvars:normals"})
        if (m_reader.find(name) != nullptr)
            m_reader.findings().record(UsdFindingCode::ignored_normals, m_reader.place_of(name),
                                       [&] { return name_in(name, m_reader.prim()); });
    m_reader.find("extent");  // follows from the points
    for (const Property& property : m_reader.prim().properties)
        if (property.name.starts_with("subsetFamily:")) m_reader.find(property.name);
}

void MeshReader::read_primvars(const std::vector<UsdPrimvar>& inherited) {
    std::unordered_set<std::string_view> own;
    for (Property& property : m_reader.prim().properties) {
        if (!is_primvar(property)) continue;
        own.insert(property.name);
        if (!property.value && !property.samples) continue;
        const PlaceCounts counts{m_mesh.counts.size(), m_mesh.get_point_count(), m_mesh.indices.size()};
        if (auto primvar = read_primvar(m_reader, property, counts)) m_mesh.primvars.push_back(std::move(*primvar));
    }
    for (const UsdPrimvar& primvar : inherited)
        if (!own.contains(std::string(primvar_prefix) + primvar.name)) m_mesh.primvars.push_back(primvar);
}

void MeshReader::read_subset(Prim& child) {
    UsdFindings& findings = m_reader.findings();
    PrimReader reader(child, m_text, findings);
    UsdSubset subset;
    const Metadatum* shown = child.find_metadatum("displayName");
    subset.name = reader.take_name(shown == nullptr ? child.name : shown->value.string().value_or(child.name));
    subset.family = reader.take_string("familyName").value_or("");
    const std::string_view element = reader.take_string("elementType").value_or("face");
    const std::vector<std::int32_t> faces = reader.take_array<std::int32_t>("indices");
    const auto bad = std::find_if(faces.begin(), faces.end(), [&](std::int32_t f) {
        return f < 0 || static_cast<std::size_t>(f) >= m_mesh.counts.size();
    });
    if (element != "face") {
        findings.record(UsdFindingCode::bad_subset, reader.place_of("elementType"),
                        [&] { return quoted(child.name) + ": elementType " + quoted(element); });
    } else if (bad != faces.end()) {
        const std::size_t place = reader.place_of("indices", static_cast<std::size_t>(bad - faces.begin()));
        findings.record(UsdFindingCode::bad_subset, place, [&] {
            return quoted(child.name) + ": face " + std::to_string(*bad) + " of " +
                   std::to_string(m_mesh.counts.size());
        });
    } else {
        subset.faces.assign(faces.begin(), faces.end());
        m_mesh.subsets.push_back(std::move(subset));
    }
    reader.record_ignored();
}

std::optional<UsdMesh> MeshReader::read(const std::vector<UsdPrimvar>& inherited) {
    read_words();
    if (!has_all()) return std::nullopt;
    read_topology();
    note_ignored();
    if (m_reader.findings().has_errors()) return std::nullopt;
    read_primvars(inherited);
    for (Prim& child : m_reader.prim().children)
        if (child.specifier == Specifier::def && child.type == "GeomSubset") read_subset(child);
    return std::move(m_mesh);
}

}  // namespace

std::optional<UsdMesh> read_mesh(PrimReader& reader, const std::string& text,
                                 const std::vector<UsdPrimvar>& inherited) {
    return MeshReader(reader, text).read(inherited);
}

}  // namespace sds_usda

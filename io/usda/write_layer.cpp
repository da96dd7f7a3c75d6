#include "io/usda/write_layer.h"

#include "sds/mesh_property/element_types.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <unordered_set>

namespace sds_usda {

namespace {

bool is_identifier_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/// A prim's name made of `name`, unlike those in `taken`; a primvar's, which may have colons inside.
std::string identifier(const std::string& name, std::unordered_set<std::string>& taken, bool is_primvar = false) {
    std::string made = name;
    const auto is_wrong = [&](std::size_t i) {
        const bool is_colon = is_primvar && made[i] == ':' && i != 0 && i + 1 < made.size() && made[i - 1] != ':';
        return !is_colon && !is_identifier_char(made[i]);
    };
    for (std::size_t i = 0; i < made.size(); ++i)
        if (is_wrong(i)) made[i] = '_';
    if (made.empty() || (made.front() >= '0' && made.front() <= '9')) made.insert(made.begin(), '_');
    const std::string stem = made;
    for (std::size_t i = 1; !taken.insert(made).second; ++i) made = stem + "_" + std::to_string(i);
    return made;
}

struct PropertyType {
    std::string_view name;
    bool has_tuples;
};

PropertyType property_type(ResourceProperty::Type type) {
    switch (type) {
        case ResourceProperty::Type::uint32:
            return {"uint", false};
        case ResourceProperty::Type::int64:
            return {"int64", false};
        case ResourceProperty::Type::uint64:
            return {"uint64", false};
        case ResourceProperty::Type::float16:
        case ResourceProperty::Type::float32:
            return {"float", true};
        case ResourceProperty::Type::float64:
            return {"double", true};
        default:
            return {"int", true};
    }
}

Interpolation interpolation_of(const sds_model::PropertySource& source) {
    switch (source.kind) {
        case PolyMeshProperty::Type::constant:
            return Interpolation::constant;
        case PolyMeshProperty::Type::per_polygon:
            return Interpolation::uniform;
        case PolyMeshProperty::Type::varying:
            return source.indices.empty() ? Interpolation::varying : Interpolation::face_varying;
        case PolyMeshProperty::Type::per_vertex:
            break;
    }
    return source.indices.empty() ? Interpolation::vertex : Interpolation::face_varying;
}

class LayerWriter {
public:
    explicit LayerWriter(const std::function<void(std::string_view)>& write) : m_write(write) {}

    void write_layer(std::span<const UsdaMesh> meshes, const UsdaStage& stage);

private:
    void text(std::string_view bytes);
    void line(std::string_view bytes);
    void string(std::string_view bytes);
    template <class T>
    void number(T value);
    template <class T>
    void array(std::string_view head, std::span<const T> values);
    template <class At>
    void tuples(std::size_t count, std::size_t components, At at);
    void word(std::string_view head, std::string_view value);
    void begin_prim(std::string_view type, const std::string& name, std::unordered_set<std::string>& taken);
    void end_prim();
    void write_mesh(const UsdaMesh& mesh);
    void write_extent(std::span<const float> points);
    void write_creases(const UsdaMesh& mesh);
    void write_primvar(const UsdaPrimvar& primvar, const std::string& name);
    void write_property(const sds_model::PropertySource& source, const std::string& name);
    void write_items(const sds_model::PropertySource& source, std::size_t sample, std::size_t components);
    void write_indices(const std::string& name, std::span<const std::uint32_t> indices, std::size_t gap);
    void write_groups(const UsdaMesh& mesh);
    void flush();

    const std::function<void(std::string_view)>& m_write;
    std::string m_buffer;
    std::string m_indent;
};

void LayerWriter::flush() {
    if (!m_buffer.empty()) m_write(m_buffer);
    m_buffer.clear();
}

void LayerWriter::text(std::string_view bytes) {
    constexpr std::size_t block = std::size_t{1} << 16;
    m_buffer += bytes;
    if (m_buffer.size() >= block) flush();
}

void LayerWriter::line(std::string_view bytes) {
    text(m_indent);
    text(bytes);
    text("\n");
}

void LayerWriter::string(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    text("\"");
    for (const char c : bytes) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            text(std::string{'\\', c});
        else if (code < 0x20 || code == 0x7F)
            text(std::string{'\\', 'x', digits[code >> 4], digits[code & 15u]});
        else
            text({&c, 1});
    }
    text("\"");
}

template <class T>
void LayerWriter::number(T value) {
    if constexpr (std::is_floating_point_v<T>)
        if (std::isnan(value)) return text("nan");
    std::array<char, 32> digits;
    const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    text({digits.data(), static_cast<std::size_t>(end - digits.data())});
}

template <class T>
void LayerWriter::array(std::string_view head, std::span<const T> values) {
    text(m_indent);
    text(head);
    text(" = ");
    tuples(values.size(), 1, [&](std::size_t i, std::size_t) { return values[i]; });
    text("\n");
}

/// "[(..), ..]" of the scalars at(element, component); without brackets around a single one.
template <class At>
void LayerWriter::tuples(std::size_t count, std::size_t components, At at) {
    text("[");
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0) text(", ");
        if (components > 1) text("(");
        for (std::size_t k = 0; k < components; ++k) {
            if (k != 0) text(", ");
            number(at(i, k));
        }
        if (components > 1) text(")");
    }
    text("]");
}

void LayerWriter::word(std::string_view head, std::string_view value) {
    text(m_indent);
    text("uniform token ");
    text(head);
    text(" = ");
    string(value);
    text("\n");
}

void LayerWriter::begin_prim(std::string_view type, const std::string& name, std::unordered_set<std::string>& taken) {
    const std::string made = identifier(name, taken);
    text(m_indent + "def " + std::string(type) + " \"" + made + "\"");
    if (made != name) {
        text(" (\n" + m_indent + "    displayName = ");
        string(name);
        text("\n" + m_indent + ")");
    }
    text("\n" + m_indent + "{\n");
    m_indent += "    ";
}

void LayerWriter::end_prim() {
    m_indent.resize(m_indent.size() - 4);
    line("}");
}

void LayerWriter::write_extent(std::span<const float> points) {
    if (points.size() < 3) return;
    std::array<float, 6> extent{points[0], points[1], points[2], points[0], points[1], points[2]};
    for (std::size_t i = 0; i < points.size(); ++i) {
        extent[i % 3] = std::min(extent[i % 3], points[i]);
        extent[3 + i % 3] = std::max(extent[3 + i % 3], points[i]);
    }
    text(m_indent + "float3[] extent = ");
    tuples(2, 3, [&](std::size_t i, std::size_t k) { return extent[3 * i + k]; });
    text("\n");
}

void LayerWriter::write_creases(const UsdaMesh& mesh) {
    if (!mesh.hole_indices.empty()) array("int[] holeIndices", mesh.hole_indices);
    if (!mesh.crease_indices.empty()) {
        array("int[] creaseIndices", mesh.crease_indices);
        array("int[] creaseLengths", mesh.crease_lengths);
        array("float[] creaseSharpnesses", mesh.crease_sharpnesses);
    }
    if (!mesh.corner_indices.empty()) {
        array("int[] cornerIndices", mesh.corner_indices);
        array("float[] cornerSharpnesses", mesh.corner_sharpnesses);
    }
}

void LayerWriter::write_indices(const std::string& name, std::span<const std::uint32_t> indices, std::size_t gap) {
    if (indices.empty()) return;
    text(m_indent + "int[] primvars:" + name + ":indices = ");
    tuples(indices.size(), 1,
           [&](std::size_t i, std::size_t) { return indices[i] == no_element ? gap : std::size_t{indices[i]}; });
    text("\n");
}

void LayerWriter::write_primvar(const UsdaPrimvar& primvar, const std::string& name) {
    const std::size_t count = (primvar.values.size() + primvar.stride - primvar.components) / primvar.stride;
    const bool has_gaps =
        std::find(primvar.indices.begin(), primvar.indices.end(), no_element) != primvar.indices.end();
    text(m_indent + primvar.type_name + "[] primvars:" + name + " = ");
    tuples(count + (has_gaps ? 1 : 0), primvar.components,
           [&](std::size_t i, std::size_t k) { return i < count ? primvar.values[i * primvar.stride + k] : 0.0f; });
    text(" (\n");
    const auto interpolation = interpolation_words[static_cast<std::size_t>(primvar.interpolation)];
    line("    interpolation = \"" + std::string(interpolation) + "\"");
    line(")");
    write_indices(name, primvar.indices, count);
}

void LayerWriter::write_items(const sds_model::PropertySource& source, std::size_t sample, std::size_t components) {
    const ResourceProperty& items = source.samples[sample];
    const std::size_t per_item = source.extent / components;
    sds::with_element(source.type, [&]<class T>(T) {
        tuples(items.get_item_count() * per_item, components, [&](std::size_t i, std::size_t k) {
            const T* const item = items.get_item_values<T>(static_cast<unsigned int>(i / per_item));
            const T value = item[(i % per_item) * components + k];
            if constexpr (std::is_same_v<T, sds::Half>)
                return static_cast<float>(sds::to_real(value));
            else if constexpr (sizeof(T) < sizeof(int))
                return int{value};
            else
                return value;
        });
    });
}

void LayerWriter::write_property(const sds_model::PropertySource& source, const std::string& name) {
    const PropertyType type = property_type(source.type);
    const bool is_tuple = type.has_tuples && source.extent >= 2 && source.extent <= 4;
    const std::size_t components = is_tuple ? source.extent : 1;
    const std::string head =
        m_indent + std::string(type.name) + (is_tuple ? std::to_string(components) : "") + "[] primvars:" + name;
    text(head);
    if (source.times.empty()) {
        text(" = ");
        write_items(source, 0, components);
    }
    text(" (\n");
    const auto interpolation = interpolation_words[static_cast<std::size_t>(interpolation_of(source))];
    line("    interpolation = \"" + std::string(interpolation) + "\"");
    if (!is_tuple && source.extent > 1) line("    elementSize = " + std::to_string(source.extent));
    line(")");
    if (!source.times.empty()) {
        text(head + ".timeSamples = {\n");
        for (std::size_t s = 0; s < source.times.size(); ++s) {
            text(m_indent + "    ");
            number(source.times[s]);
            text(": ");
            write_items(source, s, components);
            text(",\n");
        }
        line("}");
    }
    write_indices(name, source.indices, 0);
}

void LayerWriter::write_groups(const UsdaMesh& mesh) {
    if (mesh.polygon_groups.empty()) return;
    word("subsetFamily:materialBind:familyType", "partition");
    std::vector<std::vector<std::uint32_t>> faces(mesh.group_names.size());
    for (std::size_t f = 0; f < mesh.polygon_groups.size(); ++f)
        faces[mesh.polygon_groups[f]].push_back(static_cast<std::uint32_t>(f));
    std::unordered_set<std::string> taken;
    for (std::size_t g = 0; g < faces.size(); ++g) {
        begin_prim("GeomSubset", mesh.group_names[g], taken);
        word("elementType", "face");
        word("familyName", "materialBind");
        array("int[] indices", std::span<const std::uint32_t>(faces[g]));
        end_prim();
    }
}

void LayerWriter::write_mesh(const UsdaMesh& mesh) {
    word("subdivisionScheme", scheme_words[static_cast<std::size_t>(mesh.scheme)]);
    word("interpolateBoundary", boundary_words[static_cast<std::size_t>(mesh.interpolate_boundary)]);
    word("faceVaryingLinearInterpolation", face_varying_words[static_cast<std::size_t>(mesh.face_varying_linear)]);
    word("triangleSubdivisionRule", triangle_words[static_cast<std::size_t>(mesh.triangle_rule)]);
    word("orientation", mesh.is_left_handed ? "leftHanded" : "rightHanded");
    write_extent(mesh.points);
    text(m_indent + "point3f[] points = ");
    tuples(mesh.points.size() / 3, 3, [&](std::size_t i, std::size_t k) { return mesh.points[3 * i + k]; });
    text("\n");
    array("int[] faceVertexCounts", mesh.counts);
    array("int[] faceVertexIndices", mesh.indices);
    write_creases(mesh);
    std::unordered_set<std::string> names;
    for (const UsdaPrimvar& primvar : mesh.primvars) write_primvar(primvar, identifier(primvar.name, names, true));
    for (const sds_model::PropertySource& source : mesh.properties)
        write_property(source, identifier(source.name, names, true));
    write_groups(mesh);
}

void LayerWriter::write_layer(std::span<const UsdaMesh> meshes, const UsdaStage& stage) {
    text("#usda 1.0\n(\n    defaultPrim = \"World\"\n    metersPerUnit = ");
    number(stage.meters_per_unit);
    text(stage.up_axis == UpAxis::z ? "\n    upAxis = \"Z\"\n)\n\n" : "\n    upAxis = \"Y\"\n)\n\n");
    std::unordered_set<std::string> roots, names;
    begin_prim("Xform", "World", roots);
    for (const UsdaMesh& mesh : meshes) {
        begin_prim("Mesh", mesh.name, names);
        write_mesh(mesh);
        end_prim();
    }
    end_prim();
    flush();
}

}  // namespace

void write_usda(std::span<const UsdaMesh> meshes, const UsdaStage& stage,
                const std::function<void(std::string_view)>& write) {
    LayerWriter(write).write_layer(meshes, stage);
}

}  // namespace sds_usda

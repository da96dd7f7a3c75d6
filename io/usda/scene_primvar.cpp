#include "io/usda/scene_readers.h"

#include <limits>

namespace sds_usda {

namespace {

constexpr std::string_view indices_suffix = ":indices";

std::size_t places_of(Interpolation interpolation, const PlaceCounts& mesh) {
    switch (interpolation) {
        case Interpolation::constant:
            return 1;
        case Interpolation::uniform:
            return mesh.faces;
        case Interpolation::varying:
        case Interpolation::vertex:
            return mesh.points;
        case Interpolation::face_varying:
            return mesh.corners;
    }
    return 0;
}

/// What does not fit the mesh, or nothing.
std::string fault_of(const UsdPrimvar& primvar, const PlaceCounts& mesh) {
    const std::size_t stride = std::size_t{primvar.components} * primvar.element_size;
    const std::size_t places = places_of(primvar.interpolation, mesh);
    const std::string of =
        std::string(interpolation_words[static_cast<std::size_t>(primvar.interpolation)]) + " places";
    const bool is_constant = primvar.interpolation == Interpolation::constant;
    std::size_t fewest = std::numeric_limits<std::size_t>::max();
    std::string fault = std::visit(
        [&](const auto& values) -> std::string {
            if (values.is_empty()) return "no value";
            for (std::size_t s = 0; s < values.get_sample_count(); ++s) {
                const std::size_t count = values.sample(s).size() / stride;
                fewest = std::min(fewest, count);
                if (values.sample(s).size() % stride != 0) return "values that are no whole elements";
                if (primvar.indices.is_empty() && !is_constant && count != places)
                    return counts_differ(count, of.c_str(), places);
            }
            return {};
        },
        primvar.values);
    for (std::size_t s = 0; s < primvar.indices.get_sample_count() && fault.empty(); ++s)
        if (!is_constant && primvar.indices.sample(s).size() != places)
            fault = counts_differ(primvar.indices.sample(s).size(), ("indices at " + of).c_str(), places);
    for (const std::uint32_t index : primvar.indices.values)
        if (index >= fewest && fault.empty())
            fault = "index " + std::to_string(static_cast<std::int32_t>(index)) + " of " + std::to_string(fewest);
    return fault;
}

bool has_reals(const UsdPrimvar& primvar) {
    return std::holds_alternative<Timed<float>>(primvar.values) ||
           std::holds_alternative<Timed<double>>(primvar.values);
}

/// What surfaces make of a primvar that is not all it says.
void note_limits(const UsdPrimvar& primvar, std::size_t offset, PrimReader& reader) {
    const auto note = [&](UsdFindingCode code) {
        reader.findings().record(code, offset,
                                 [&] { return name_in(std::string(primvar_prefix) + primvar.name, reader.prim()); });
    };
    const bool is_moving =
        std::visit([](const auto& values) { return values.get_sample_count() > 1; }, primvar.values) ||
        primvar.indices.get_sample_count() > 1;
    if (std::holds_alternative<Timed<std::string>>(primvar.values)) return note(UsdFindingCode::unused_primvar);
    const bool is_followed = has_reals(primvar) && !is_uv_map(primvar) && !is_display_color(primvar) &&
                             primvar.indices.get_sample_count() <= 1 &&
                             std::visit([](const auto& values) { return has_even_samples(values); }, primvar.values);
    if (is_moving && !is_followed) note(UsdFindingCode::held_primvar);
}

}  // namespace

bool is_uv_map(const UsdPrimvar& primvar) {
    return has_reals(primvar) && (primvar.components == 2 || primvar.components == 3) && primvar.element_size == 1 &&
           (primvar.type_name.starts_with("texCoord") || primvar.name == "st");
}

bool is_display_color(const UsdPrimvar& primvar) {
    return has_reals(primvar) && primvar.components == 3 && primvar.element_size == 1 && primvar.name == "displayColor";
}

bool is_primvar(const Property& property) {
    return property.name.starts_with(primvar_prefix) && !property.name.ends_with(indices_suffix) &&
           property.name != "primvars:normals";
}

std::optional<UsdPrimvar> read_primvar(PrimReader& reader, Property& property, const PlaceCounts& mesh) {
    reader.find(property.name);
    Property* indices = reader.find(std::string(property.name) + std::string(indices_suffix));
    const auto metadatum = [&](std::string_view key) -> const Value* {
        for (const Metadatum& entry : property.metadata)
            if (entry.key == key) return &entry.value;
        return nullptr;
    };
    UsdPrimvar primvar;
    primvar.name = reader.take_name(property.name.substr(primvar_prefix.size()));
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
        const Timed<std::int32_t> signed_indices = reader.take<std::int32_t>(indices->name, 1, true);
        // a negative index becomes one that is out of range
        primvar.indices = {
            signed_indices.times, signed_indices.ends, {signed_indices.values.begin(), signed_indices.values.end()}};
    }
    if (fault.empty()) fault = fault_of(primvar, mesh);
    if (fault.empty()) {
        note_limits(primvar, property.offset, reader);
        return primvar;
    }
    reader.findings().record(UsdFindingCode::bad_primvar, property.offset,
                             [&] { return name_in(property.name, reader.prim()) + ": " + fault; });
    return std::nullopt;
}

}  // namespace sds_usda

#include "io/usda/scene_readers.h"

#include <cmath>

namespace sds_usda {

namespace {

class InstancerReader {
public:
    explicit InstancerReader(PrimReader& reader) : m_reader(reader) {}

    std::optional<UsdInstancer> read();

private:
    void fail(std::string_view name, const std::string& why);
    Timed<float> take_reals(std::string_view name, std::size_t components);
    Timed<std::int64_t> take_ids(std::string_view name);
    void check_prototypes(std::size_t count);
    template <class T>
    void check_sizes(std::string_view name, const Timed<T>& values, std::size_t stride);

    PrimReader& m_reader;
    UsdInstancer m_instancer;
    bool m_is_right = true;
};

void InstancerReader::fail(std::string_view name, const std::string& why) {
    if (m_is_right)
        m_reader.findings().record(UsdFindingCode::bad_instancer, m_reader.place_of(name),
                                   [&] { return name_in(name, m_reader.prim()) + ": " + why; });
    m_is_right = false;
}

Timed<float> InstancerReader::take_reals(std::string_view name, std::size_t components) {
    Timed<float> values = m_reader.take<float>(name, components, true);
    if (!std::all_of(values.values.begin(), values.values.end(), [](float v) { return std::isfinite(v); }))
        fail(name, "NaN or infinite number");
    return values;
}

Timed<std::int64_t> InstancerReader::take_ids(std::string_view name) {
    Property* property = m_reader.find(name);
    if (property == nullptr || (!property->value && !property->samples)) return {};
    const ValueType type = property->samples ? property->samples->values.type : property->value->type;
    const bool is_whole = type.kind == ValueKind::int64 || type.kind == ValueKind::int32;
    if (is_whole && type.is_array && type.components == 1) return take_timed<std::int64_t>(*property);
    fail(name, "type " + quoted(property->type));
    return {};
}

/// At every sample of either there is one element per place.
template <class T>
void InstancerReader::check_sizes(std::string_view name, const Timed<T>& values, std::size_t stride) {
    const Timed<std::uint32_t>& places = m_instancer.proto_indices;
    if (values.is_empty() || places.is_empty()) return;
    const auto check = [&](double time) {
        const std::size_t found = values.sample(find_sample(values.times, time).sample).size() / stride;
        const std::size_t wanted = places.sample(find_sample(places.times, time).sample).size();
        if (found != wanted) fail(name, counts_differ(found, "protoIndices", wanted));
    };
    for (const double time : values.times) check(time);
    for (const double time : places.times) check(time);
    if (values.times.empty() && places.times.empty()) check(0.0);
}

void InstancerReader::check_prototypes(std::size_t count) {
    for (const std::uint32_t index : m_instancer.proto_indices.values)
        if (index >= count)
            return fail("protoIndices", "index " + std::to_string(static_cast<std::int32_t>(index)) + " of " +
                                            std::to_string(count) + " prototypes");
}

std::optional<UsdInstancer> InstancerReader::read() {
    Timed<std::int32_t> indices = m_reader.take<std::int32_t>("protoIndices", 1, true);
    // a negative index becomes one that is out of range
    m_instancer.proto_indices = {
        std::move(indices.times), std::move(indices.ends), {indices.values.begin(), indices.values.end()}};
    m_instancer.positions = take_reals("positions", 3);
    m_instancer.orientations = take_reals("orientations", 4);
    m_instancer.scales = take_reals("scales", 3);
    m_instancer.velocities = take_reals("velocities", 3);
    m_instancer.ids = take_ids("ids");
    m_instancer.invisible_ids = take_ids("invisibleIds");
    const Property* prototypes = m_reader.find("prototypes");
    m_reader.find("extent");  // follows from the places
    std::size_t count = 0;
    if (prototypes != nullptr)
        for (const PathList& list : prototypes->paths) count += list.paths.size();
    if (m_instancer.proto_indices.is_empty() || m_instancer.positions.is_empty() || count == 0)
        fail("protoIndices", "prototypes, protoIndices and positions are needed");
    check_prototypes(count);
    check_sizes("positions", m_instancer.positions, 3);
    check_sizes("orientations", m_instancer.orientations, 4);
    check_sizes("scales", m_instancer.scales, 3);
    check_sizes("velocities", m_instancer.velocities, 3);
    check_sizes("ids", m_instancer.ids, 1);
    if (!m_is_right) return std::nullopt;
    return std::move(m_instancer);
}

}  // namespace

std::optional<UsdInstancer> read_instancer(PrimReader& reader) { return InstancerReader(reader).read(); }

}  // namespace sds_usda

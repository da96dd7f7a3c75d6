#include "io/property_file.h"

#include "io/input_error.h"
#include "io/json.h"
#include "io/npy.h"
#include "io/number_array.h"
#include "io/read_file.h"
#include "model/array_size.h"
#include "model/array_view.h"
#include "qn_poly/poly_check.h"
#include "sds/mesh_property/element_types.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

namespace sds_io {

namespace {

using Json = nlohmann::json;
using Kind = PolyMeshProperty::Type;
using Shape = std::vector<std::size_t>;

constexpr Kind kinds[] = {Kind::per_vertex, Kind::varying, Kind::per_polygon, Kind::constant};

/// Kinds whose items are the cage's vertices, unless there are indices.
constexpr bool is_of_vertices(Kind kind) { return kind == Kind::per_vertex || kind == Kind::varying; }

constexpr const char* keys[] = {"name", "kind", "type", "extent", "values", "indices", "times"};
constexpr std::size_t max_count = 0xFFFFFFFEu;

/// What is wrong with one key of a property: "expected what, found what".
class ValueError : public std::runtime_error {
public:
    ValueError(const std::string& expected, const std::string& found)
        : std::runtime_error("expected " + expected + ", found " + found) {}
};

/// Words and numbers as they are, the rest by its kind.
std::string describe(const Json& value) { return value.is_structured() ? value.type_name() : value.dump(); }

/// The element that stands for a number exactly or, for reals, as nearly as it can; none when the type has no such.
template <class T, class N>
std::optional<T> to_element(N number) {
    if constexpr (std::is_same_v<T, sds::Half>) {
        const T half = sds::from_real<T>(static_cast<double>(number));
        return std::isfinite(sds::to_real(half)) ? std::optional<T>(half) : std::nullopt;
    } else if constexpr (std::is_floating_point_v<T>) {
        const T real = static_cast<T>(number);
        return std::fabs(real) <= greatest_property_value<T> ? std::optional<T>(real) : std::nullopt;
    } else if constexpr (std::is_floating_point_v<N>) {
        const bool is_held = number == std::trunc(number) &&
                             number >= static_cast<double>(std::numeric_limits<T>::min()) &&
                             number < std::ldexp(1.0, std::numeric_limits<T>::digits);
        return is_held ? std::optional<T>(static_cast<T>(number)) : std::nullopt;
    } else {
        return std::in_range<T>(number) ? std::optional<T>(static_cast<T>(number)) : std::nullopt;
    }
}

template <class T>
std::optional<T> to_element(const Number& number) {
    return std::visit([](const auto value) { return to_element<T>(value); }, number);
}

/// A shape without the axes that hold one entry.
Shape squeezed(Shape shape) {
    std::erase(shape, 1u);
    return shape;
}

std::string type_names() {
    std::string names;
    for (unsigned int i = 0; i < ResourceProperty::type_count; ++i)
        names += (i > 0 ? ", " : "") + std::string(ResourceProperty::get_type_name(ResourceProperty::Type{i}));
    return names;
}

bool is_layer_name(const std::string& name) {
    return !name.empty() && std::none_of(name.begin(), name.end(), [](const char c) {
        const auto byte = static_cast<unsigned char>(c);
        return std::iscntrl(byte) || std::isspace(byte) || c == ',' || c == '.' || c == '/';
    });
}

/// Reads one object of the list.
class EntryReader {
public:
    /// `held` bytes belong to the entries before.
    EntryReader(const Json& entry, const std::string& folder, const ControlCage& cage, const PolyMesh& polygons,
                std::size_t held, std::size_t limit)
        : m_entry(entry), m_folder(folder), m_cage(cage), m_polygons(polygons), m_held(held), m_limit(limit) {}

    PropertySource read() {
        check_keys();
        read_key("name", &EntryReader::read_name);
        read_key("kind", &EntryReader::read_kind);
        read_key("type", &EntryReader::read_type);
        read_key("extent", &EntryReader::read_extent, false);
        read_key("times", &EntryReader::read_times, false);
        read_key("values", &EntryReader::read_values);
        read_key("indices", &EntryReader::read_indices, false);
        check_lengths_and_indices();
        return std::move(m_source);
    }

    /// As far as it is known.
    const std::string& get_name() const { return m_source.name; }

private:
    using Read = void (EntryReader::*)(const Json&);

    void check_keys() const {
        if (!m_entry.is_object()) throw ValueError("an object", describe(m_entry));
        for (const auto& [key, value] : m_entry.items())
            if (std::find(std::begin(keys), std::end(keys), key) == std::end(keys))
                throw ValueError("the keys name, kind, type, extent, values, indices and times", "'" + key + "'");
    }

    void read_key(const char* key, Read reader, bool is_needed = true) {
        const auto value = m_entry.find(key);
        if (value == m_entry.end() && !is_needed) return;
        try {
            if (value == m_entry.end()) throw ValueError("a value", "none");
            (this->*reader)(*value);
        } catch (const InputError&) {
            throw;  // names its own file
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(std::string(key) + ": " + error.what());
        } catch (const std::invalid_argument& error) {
            throw std::runtime_error(std::string(key) + ": " + error.what());
        }
    }

    static std::string read_word(const Json& value, const std::string& expected) {
        if (!value.is_string()) throw ValueError(expected, describe(value));
        return value.get<std::string>();
    }

    /// An array from a file is held three times for a while: as it was read, as numbers of any kind, and as it is kept.
    NumberArray read_array(const Json& value) const {
        return read_numbers(value, m_folder, [&](std::size_t count, std::size_t element_size) {
            const std::size_t bytes = get_array_size(count, 2 * element_size + sizeof(Number));
            check_memory_limit("property '" + m_source.name + "'", std::max(bytes, bytes + m_held), m_limit);
        });
    }

    void read_name(const Json& value) {
        const std::string expected = "a name without blanks, commas, dots and slashes";
        const std::string name = read_word(value, expected);
        if (!is_layer_name(name)) throw ValueError(expected, "'" + name + "'");
        m_source.name = name;
    }

    void read_kind(const Json& value) {
        const std::string expected = "vertex, varying, uniform or constant", word = read_word(value, expected);
        const auto kind =
            std::find_if(std::begin(kinds), std::end(kinds), [&](const Kind k) { return word == to_name(k); });
        if (kind == std::end(kinds)) throw ValueError(expected, "'" + word + "'");
        m_source.kind = *kind;
    }

    void read_type(const Json& value) {
        const std::string expected = "one of " + type_names(), word = read_word(value, expected);
        if (!ResourceProperty::find_type(CoreString(word), m_source.type)) throw ValueError(expected, "'" + word + "'");
    }

    void read_extent(const Json& value) {
        const bool is_held = value.is_number_unsigned() && value.get<std::uint64_t>() >= 1 &&
                             value.get<std::uint64_t>() <= max_property_extent;
        if (!is_held)
            throw ValueError("a whole number from 1 to " + std::to_string(max_property_extent), describe(value));
        m_source.extent = value.get<unsigned int>();
    }

    void read_times(const Json& value) {
        const NumberArray array = read_array(value);
        if (array.shape.size() != 1 || array.values.empty())
            throw ValueError("a list of one time or more", "shape " + to_text(array.shape));
        for (const Number& number : array.values)
            m_source.times.push_back(std::visit([](const auto time) { return static_cast<double>(time); }, number));
        PolyFindings found;
        poly_check_times(view_of(m_source.times), found);
        found.for_each([&](PolyFindingCode code) {
            const unsigned int time = found.first(code).item;
            throw std::runtime_error(std::string(poly_finding_text(code).message) + ": " + to_text(array.values[time]) +
                                     " as time " + std::to_string(time + 1));
        });
    }

    /// The items of a property without indices.
    std::string expected_items() const {
        switch (m_source.kind) {
            case Kind::per_vertex:
            case Kind::varying:
                return std::to_string(m_cage.get_vertex_count()) + " vertices";
            case Kind::per_polygon:
                return std::to_string(m_cage.get_polygon_count()) + " polygons";
            case Kind::constant:
                break;
        }
        return "1 item";
    }

    void read_values(const Json& value) {
        const NumberArray array = read_array(value);
        const std::size_t samples = std::max<std::size_t>(m_source.times.size(), 1), extent = m_source.extent;
        const std::size_t items = array.values.size() / (samples * extent);
        const Shape found = squeezed(array.shape), rows = squeezed({samples, items, extent}),
                    flat = squeezed({samples, items * extent});
        if (array.values.empty() || (found != rows && found != flat)) {
            const bool has_own_items = m_entry.contains("indices") && is_of_vertices(m_source.kind);
            std::string expected = has_own_items ? "items" : expected_items();
            if (samples > 1) expected = std::to_string(samples) + " times of " + expected;
            if (extent > 1) expected += " of " + std::to_string(extent) + " numbers";
            throw ValueError(expected, "shape " + to_text(array.shape));
        }
        if (items * extent > max_count)
            throw ValueError("at most " + std::to_string(max_count) + " numbers", std::to_string(items * extent));
        for (std::size_t s = 0; s < samples; ++s) m_source.samples.push_back(make_sample(array.values, s, items));
    }

    ResourceProperty make_sample(const std::vector<Number>& values, std::size_t sample, std::size_t items) const {
        ResourceProperty out{CoreString(m_source.name)};
        const std::size_t extent = m_source.extent;
        out.init(m_source.type, m_source.extent, static_cast<unsigned int>(items));
        sds::with_element(m_source.type, [&](auto element) {
            using T = decltype(element);
            std::vector<T> item(extent);
            for (std::size_t i = 0; i < items; ++i) {
                for (std::size_t c = 0; c < extent; ++c) {
                    const Number& number = values[(sample * items + i) * extent + c];
                    const std::optional<T> held = to_element<T>(number);
                    if (!held) fail_number(number, sample, i, c);
                    item[c] = *held;
                }
                out.set_item_values(static_cast<unsigned int>(i), item.data(), m_source.extent);
            }
        });
        return out;
    }

    [[noreturn]] void fail_number(const Number& number, std::size_t sample, std::size_t item,
                                  std::size_t component) const {
        std::string place = "item " + std::to_string(item);
        if (m_source.extent > 1) place += ", number " + std::to_string(component);
        if (m_source.times.size() > 1) place += ", time " + std::to_string(sample + 1);
        const std::string type = ResourceProperty::get_type_name(m_source.type);
        const bool is_double = type == "float64";
        throw ValueError("numbers that " + type + " holds" + (is_double ? ", at most 1e300 in size" : ""),
                         to_text(number) + " in " + place);
    }

    void read_indices(const Json& value) {
        if (!is_of_vertices(m_source.kind))
            throw ValueError("none for kind " + std::string(to_name(m_source.kind)), "indices of its own");
        const NumberArray array = read_array(value);
        if (array.shape.size() != 1) throw ValueError("a list of indices", "shape " + to_text(array.shape));
        m_source.indices.reserve(array.values.size());
        for (const Number& number : array.values) {
            const auto index = to_element<std::uint32_t>(number);
            if (!index)
                throw ValueError("whole numbers from 0",
                                 to_text(number) + " at face-corner " + std::to_string(m_source.indices.size()));
            m_source.indices.push_back(*index);
        }
    }

    void check_lengths_and_indices() const {
        PolyFindings found;
        poly_check_property(make_host_property(m_polygons, m_source),
                            static_cast<unsigned int>(m_cage.get_vertex_count()), found);
        found.for_each([&](PolyFindingCode code) {
            const PolyPlace& place = found.first(code);
            const bool is_of_indices = place.array == PolyArray::property_indices;
            std::string detail = std::to_string(place.item);
            if (code == PolyFindingCode::index_out_of_range)
                detail += " at face-corner " + std::to_string(place.corner) + ", items 0 to " +
                          std::to_string(m_source.get_item_count() - 1);
            else
                detail +=
                    ", expected " + (is_of_indices ? std::to_string(m_cage.get_corner_count()) + ", one per face-corner"
                                                   : expected_items());
            throw std::runtime_error(std::string(is_of_indices ? "indices: " : "values: ") +
                                     poly_finding_text(code).message + ": " + detail);
        });
    }

    const Json& m_entry;
    const std::string& m_folder;
    const ControlCage& m_cage;
    const PolyMesh& m_polygons;
    std::size_t m_held, m_limit;
    PropertySource m_source;
};

}  // namespace

std::vector<PropertySource> read_properties(const std::string& path, const ControlCage& cage, std::size_t limit) {
    std::string text;
    if (const std::string reason = read_file(path, text); !reason.empty()) throw InputError(path, reason);
    return read_properties_text(text, path, cage, limit);
}

std::vector<PropertySource> read_properties_text(std::string_view text, const std::string& path,
                                                 const ControlCage& cage, std::size_t limit) {
    const Json json = parse_json(text, path);
    if (!json.is_array())
        throw InputError(path, std::string("expected a list of properties, found ") + json.type_name());
    const std::string folder = std::filesystem::path(path).parent_path().string();
    PolyMesh polygons;
    polygons.set_polygons(view_of(cage.polygon_counts), view_of(cage.polygon_indices), {});
    std::vector<PropertySource> sources;
    std::size_t held = 0;
    for (const Json& entry : json) {
        EntryReader reader(entry, folder, cage, polygons, held, limit);
        const auto place = [&] {
            return "property " +
                   (reader.get_name().empty() ? std::to_string(sources.size() + 1) : "'" + reader.get_name() + "'");
        };
        try {
            sources.push_back(reader.read());
        } catch (const InputError& error) {
            throw InputError(path, place() + ": " + error.what());
        } catch (const std::runtime_error& error) {
            throw InputError(path, place() + ": " + error.what());
        }
        held += sources.back().get_memory_size();
        const std::string& name = sources.back().name;
        if (std::any_of(sources.begin(), sources.end() - 1, [&](const auto& other) { return other.name == name; }))
            throw InputError(path, "property '" + name + "': expected a name of its own, found it twice");
    }
    return sources;
}

}  // namespace sds_io

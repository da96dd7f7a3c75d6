#pragma once

#include "qn_poly/poly_mesh_property.h"

#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace sds_model {

inline constexpr unsigned int max_property_extent = 4096;

/// Evaluation is in double precision, in which sums and derivatives of doubles need room above them.
template <class T>
inline constexpr T greatest_property_value = std::is_same_v<T, double> ? T(1e300) : std::numeric_limits<T>::max();

/// Values carried by a cage, every count, index and number checked.
struct PropertySource {
    std::string name;  ///< no blanks, commas, dots or slashes: it names layers and files
    PolyMeshProperty::Type kind{};
    ResourceProperty::Type type{};
    unsigned int extent = 1;                ///< numbers of an item
    std::vector<std::uint32_t> indices;     ///< item of every face-corner; empty when the items are the cage's vertices
    std::vector<double> times;              ///< strictly increasing; empty: one set of values
    std::vector<ResourceProperty> samples;  ///< one per time, or one

    std::size_t get_memory_size() const;  ///< bytes of the arrays
    unsigned int get_item_count() const { return samples.front().get_item_count(); }
};

/// The kinds in the field's words: vertex, varying, uniform, constant.
const char* to_name(PolyMeshProperty::Type kind);

/// The property as the host holds it, on the polygons of its cage, which outlive it.
PolyMeshProperty make_host_property(const PolyMesh& polygons, const PropertySource& source);

}  // namespace sds_model

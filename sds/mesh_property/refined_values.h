// The values of one time sample of a property on a refined surface: sixteen controls per patch and component.
//
// They are kept relative to one of the values, which is added back when they are read, as everywhere in properties:
// equal values come out exactly. Differences are in single precision where the element has no more digits than that.
#pragma once

#include <cmath>
#include <memory>
#include <new>

#include "sds/common/array_bytes.h"
#include "sds/mesh_property/property_rules.h"
#include "sds/refinement/patch_values.h"

namespace sds {

class RefinedValues {
public:
    // `values` holds one item per vertex that the topology was refined from, which has its levels; `places` are its.
    // Throws std::bad_alloc.
    template <class T>
    void build(const RefinedTopology& topology, std::shared_ptr<const PatchPlaces> places,
               const ResourceProperty& values);

    const PatchPlaces& get_places() const { return *m_places; }
    unsigned int get_extent() const { return m_reference.get_count(); }
    // Components [first, first + 4) of a patch's controls; those beyond the extent are 0.
    void get_controls(unsigned int patch, unsigned int first, Components* controls) const {
        if (m_single.is_empty())
            read(m_double, patch, first, controls);
        else
            read(m_single, patch, first, controls);
    }
    // What is to be added to what the controls give.
    Components get_reference(unsigned int first) const {
        Components reference{};
        for (unsigned int i = 0; i < components_at_once && first + i < get_extent(); ++i)
            reference.c[i] = m_reference[first + i];
        return reference;
    }
    // Without the places, which samples share.
    size_t get_memory_size() const {
        return sizeof(*this) + bytes_of(m_reference) + bytes_of(m_single) + bytes_of(m_double);
    }

private:
    template <class Real>
    void read(const CoreArray<Real>& all, unsigned int patch, unsigned int first, Components* controls) const {
        const Real* at = all.get_data() + 16 * size_t{patch} * get_extent() + first;
        const unsigned int count = std::min(components_at_once, get_extent() - first);
        for (unsigned int k = 0; k < 16; ++k, at += get_extent()) {
            controls[k] = {};
            for (unsigned int i = 0; i < count; ++i) controls[k].c[i] = static_cast<double>(at[i]);
        }
    }
    template <class T, class Real>
    void fill(const RefinedTopology& topology, const ResourceProperty& values, CoreArray<Real>& all);

    std::shared_ptr<const PatchPlaces> m_places;
    CoreArray<double> m_reference;  // per component
    CoreArray<float> m_single;      // by patch, control and component; or
    CoreArray<double> m_double;
};

template <class T, class Real>
void RefinedValues::fill(const RefinedTopology& topology, const ResourceProperty& values, CoreArray<Real>& all) {
    const unsigned int extent = get_extent();
    const size_t count_of_all = 16 * size_t{topology.get_places().get_patch_count()} * extent;
    if (count_of_all > none) throw std::bad_alloc();
    all.resize(static_cast<unsigned int>(count_of_all));
    CoreArray<Components> items(topology.get_vertex_count());
    for (unsigned int first = 0; first < extent; first += components_at_once) {
        const ComponentAccess<T> access(values, first, extent);
        Components reference{};
        // The first number of each component that differences can be formed from.
        for (unsigned int i = 0; i < components_at_once && first + i < extent; ++i)
            for (unsigned int item = 0; item < values.get_item_count(); ++item)
                if (const double value = access.get(item).c[i]; std::isfinite(value)) {
                    reference.c[i] = m_reference[first + i] = value;
                    break;
                }
        for (unsigned int v = 0; v < items.get_count(); ++v)
            items[v] = v < values.get_item_count() ? access.get(v) - reference : Components{};
        const unsigned int count = std::min(components_at_once, extent - first);
        compute_patch_values(topology, items, [&](unsigned int patch, const Components* controls) {
            Real* out = all.get_data() + 16 * size_t{patch} * extent + first;
            for (unsigned int k = 0; k < 16; ++k, out += extent)
                for (unsigned int i = 0; i < count; ++i) out[i] = static_cast<Real>(controls[k].c[i]);
        });
    }
}

// Whether single precision holds the differences of values, as digits and in size.
template <class T>
bool has_single_differences(const ResourceProperty& values) {
    constexpr double largest = 1e37;
    if constexpr (sizeof(T) <= 2) return true;
    if constexpr (!std::is_same_v<T, float>) return false;
    const unsigned int extent = values.get_min_item_length();
    for (unsigned int first = 0; first < extent; first += components_at_once) {
        const ComponentAccess<T> access(values, first, extent);
        for (unsigned int item = 0; item < values.get_item_count(); ++item)
            for (const double value : access.get(item).c)
                if (std::isfinite(value) && std::fabs(value) > largest) return false;
    }
    return true;
}

template <class T>
void RefinedValues::build(const RefinedTopology& topology, std::shared_ptr<const PatchPlaces> places,
                          const ResourceProperty& values) {
    m_places = std::move(places);
    m_reference.assign(values.get_min_item_length(), 0.0);
    if (has_single_differences<T>(values))
        fill<T>(topology, values, m_single);
    else
        fill<T>(topology, values, m_double);
}

}  // namespace sds

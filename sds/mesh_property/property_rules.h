// The position rules on rows of numbers, a few components at a time in double precision.
//
// Every rule is applied to differences from one of the values it combines, and that value is added back: equal values
// then come out exactly, whatever the weights round to.
#pragma once

#include "sds/mesh_base/position_rules.h"
#include "sds/mesh_property/element_types.h"

namespace sds {

inline constexpr unsigned int components_at_once = 4;
using Components = ValueComponents<double, components_at_once>;

// Components [first, first + 4) of a property's items; those at `extent` (no longer than any item) or beyond read as 0
// and are not written.
template <class T>
class ComponentAccess {
public:
    ComponentAccess(const ResourceProperty& property, unsigned int first, unsigned int extent)
        : m_property(&property), m_first(first), m_count(extent - first) {}

    Components get(unsigned int item) const {
        const T* values = m_property->get_item_values<T>(item) + m_first;
        Components c;
        for (unsigned int i = 0; i < components_at_once; ++i) c.c[i] = i < m_count ? to_real(values[i]) : 0.0;
        return c;
    }

private:
    const ResourceProperty* m_property;
    unsigned int m_first;
    unsigned int m_count;
};

// Reads and writes a property whose items hold the step's values, relative to a reference.
template <class T>
class RelativeTarget {
public:
    RelativeTarget(ResourceProperty& property, unsigned int first)
        : m_property(&property), m_first(first), m_access(property, first, property.get_extent()) {}

    void set_reference(const Components& reference) { m_reference = reference; }
    Components get(unsigned int item) const { return m_access.get(item) - m_reference; }
    void set(unsigned int item, const Components& relative) {
        const Components value = relative + m_reference;
        T* values = const_cast<T*>(m_property->get_item_values<T>(item)) + m_first;
        const unsigned int count = m_property->get_extent() - m_first;
        for (unsigned int i = 0; i < components_at_once && i < count; ++i) values[i] = from_real<T>(value.c[i]);
    }

private:
    ResourceProperty* m_property;
    unsigned int m_first;
    ComponentAccess<T> m_access;
    Components m_reference{};
};

// The values after the subdivision step; `surface` has the extent of the shortest item.
template <class T>
void subdivide_property(const SdsMeshBase::TopologyContext& context, bool linear, const ResourceProperty& source,
                        ResourceProperty& surface) {
    const SdsMeshBase::SubdivisionTopology& subdivision = *context.subdivision;
    const unsigned int* quad_indices = context.quad_indices->get_data();
    const unsigned int extent = surface.get_extent();
    for (unsigned int first = 0; first < extent; first += components_at_once) {
        const ComponentAccess<T> access(source, first, extent);
        RelativeTarget<T> target(surface, first);
        Components reference{};
        const auto relative = [&](unsigned int w) { return access.get(w) - reference; };
        const auto refer_to = [&](unsigned int w) {
            reference = access.get(w);
            target.set_reference(reference);
        };
        for (unsigned int w = subdivision.first_face_point; w < subdivision.vertex_rings.get_count(); ++w) {
            const Ring ring(subdivision, w);
            if (ring.count == 0) continue;
            refer_to(quad_indices[ring.edges[0] - 2]);
            set_face_point<Components>(context, w, relative, target);
        }
        for (unsigned int w = subdivision.first_edge_point; w < subdivision.first_face_point; ++w) {
            const Ring ring(subdivision, w);
            if (ring.count == 0) continue;
            // Corner 0 of the child quad is one end of the parent edge.
            refer_to(quad_indices[ring.edges[0] & ~3u]);
            set_edge_point<Components>(context, w, linear, relative, target);
        }
        for (unsigned int w = 0; w < subdivision.first_edge_point; ++w) {
            refer_to(w);
            set_vertex_point<Components>(context, w, relative, target);
        }
    }
}

// The limit value of every surface vertex; vertices that no quad uses keep theirs.
template <class T>
void compute_property_corners(const SdsMeshBase::TopologyContext& context, const ResourceProperty& surface,
                              ResourceProperty& corners) {
    const CoreBasicArray<unsigned int>& quad_indices = *context.quad_indices;
    CoreArray<unsigned char> visited(surface.get_item_count());
    for (unsigned int first = 0; first < surface.get_extent(); first += components_at_once) {
        const ComponentAccess<T> access(surface, first, surface.get_extent());
        RelativeTarget<T> target(corners, first);
        visited.assign(surface.get_item_count(), 0);
        for (unsigned int e = 0; e < quad_indices.get_count(); ++e) {
            const unsigned int v = quad_indices[e];
            if (v == none || visited[v] != 0) continue;
            visited[v] = 1;
            const Components reference = access.get(v);
            target.set_reference(reference);
            target.set(v,
                       limit_point<Components>(context, e, [&](unsigned int w) { return access.get(w) - reference; }));
        }
    }
}

}  // namespace sds

// PolyMeshProperty: numbers carried by the vertices or polygons of a polygon mesh, or by the mesh as a whole.
#pragma once

#include "qn_core/core_array.h"
#include "qn_gmath/gmath_time_sampling.h"
#include "qn_poly/poly_mesh.h"
#include "qn_resource/resource_property.h"

// Values may differ per time sample; type, extent and indices do not. The mesh must outlive the property. Set up by one
// thread, then read by any number.
class QN_EXPORT PolyMeshProperty : public ResourceData {
public:
    enum class Type : unsigned int {
        per_vertex = 0,   // "vertex": smooth over the surface
        per_polygon = 1,  // "uniform"
        constant = 2,     // "constant": one item
        varying = 3,      // "varying": one per vertex, linear on the polygons
    };

    PolyMeshProperty(const PolyMesh& mesh, const CoreString& name, const Type& type,
                     const ResourceProperty::Type& value_type, const unsigned int& value_extent);

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    const PolyMesh& get_mesh() const { return *m_mesh; }
    const Type& get_type() const { return m_type; }
    virtual const CoreString& get_property_name() const { return get_name(); }
    virtual const GMathTimeSampling& get_time_sampling() const { return m_sampling; }
    virtual const ResourceProperty::Type& get_value_type() const { return m_value_type; }
    virtual const unsigned int& get_value_extent() const { return m_value_extent; }
    // Indices, and items of the first sample; 0 without.
    virtual const unsigned int& get_index_count() const { return m_indices.get_count(); }
    virtual const unsigned int& get_value_count() const { return m_value_count; }

    // Per face-corner item of a per-vertex or varying property whose items are not the mesh's vertices; empty for the
    // vertices themselves.
    bool has_indices() const { return !m_indices.is_empty(); }
    const CoreArray<unsigned int>& get_indices() const { return m_indices; }
    void set_indices(const CoreBasicArray<unsigned int>& indices) { m_indices = indices; }

    // Values at the sample times, one property per sample, copied; a sampling without samples holds one set of values.
    void set_values(const GMathTimeSampling& sampling, const CoreBasicArray<ResourceProperty>& samples);
    // At least 1 once values are set.
    unsigned int get_sample_count() const { return m_samples.get_count(); }
    const ResourceProperty& get_sample_values(const unsigned int& sample) const { return m_samples[sample]; }

private:
    const PolyMesh* m_mesh;
    Type m_type;
    ResourceProperty::Type m_value_type;
    unsigned int m_value_extent;
    unsigned int m_value_count = 0;
    GMathTimeSampling m_sampling;
    CoreArray<unsigned int> m_indices;
    CoreArray<ResourceProperty> m_samples;
};

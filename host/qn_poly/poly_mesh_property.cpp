#include "qn_poly/poly_mesh_property.h"

PolyMeshProperty::PolyMeshProperty(const PolyMesh& mesh, const CoreString& name, const Type& type,
                                   const ResourceProperty::Type& value_type, const unsigned int& value_extent)
    : m_mesh(&mesh), m_type(type), m_value_type(value_type), m_value_extent(value_extent) {
    set_name(name);
}

const CoreClassInfo& PolyMeshProperty::get_class_info() const { return class_info(); }
const CoreClassInfo& PolyMeshProperty::class_info() {
    static const CoreClassInfo& info = CoreClassInfo::new_class("PolyMeshProperty", &destroy_object<PolyMeshProperty>,
                                                                &ResourceData::class_info(), nullptr);
    return info;
}

size_t PolyMeshProperty::get_memory_size() const {
    size_t size = sizeof(*this) + sizeof(unsigned int) * m_indices.get_count();
    for (const ResourceProperty& sample : m_samples) size += sample.get_memory_size();
    return size;
}

void PolyMeshProperty::set_values(const GMathTimeSampling& sampling, const CoreBasicArray<ResourceProperty>& samples) {
    m_sampling = sampling;
    m_samples = samples;
    m_value_count = m_samples.is_empty() ? 0 : m_samples[0].get_item_count();
}

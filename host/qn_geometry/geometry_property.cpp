#include "qn_geometry/geometry_property.h"

GeometryProperty::GeometryProperty(const CoreString& name, const GMathTimeSampling& sampling,
                                   const ResourceProperty::Type& value_type, const unsigned int& value_extent,
                                   const unsigned int& index_count, const unsigned int& value_count)
    : m_sampling(sampling),
      m_value_type(value_type),
      m_value_extent(value_extent),
      m_index_count(index_count),
      m_value_count(value_count) {
    set_name(name);
}

const CoreClassInfo& GeometryProperty::get_class_info() const { return class_info(); }
const CoreClassInfo& GeometryProperty::class_info() {
    static const CoreClassInfo& info = CoreClassInfo::new_class("GeometryProperty", &destroy_object<GeometryProperty>,
                                                                &ResourceData::class_info(), nullptr);
    return info;
}

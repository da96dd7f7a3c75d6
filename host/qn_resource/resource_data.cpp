#include "qn_resource/resource_data.h"

const CoreClassInfo& EventObject::get_class_info() const { return class_info(); }
const CoreClassInfo& EventObject::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("EventObject", &destroy_object<EventObject>, &CoreCustomData::class_info(), nullptr);
    return info;
}

ResourceData::~ResourceData() = default;

ResourceData& ResourceData::operator=(const ResourceData& other) {
    EventObject::operator=(other);
    m_name = other.m_name;
    m_hash_key = other.m_hash_key;
    return *this;
}

const CoreClassInfo& ResourceData::get_class_info() const { return class_info(); }
const CoreClassInfo& ResourceData::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("ResourceData", &destroy_object<ResourceData>, &EventObject::class_info(), nullptr);
    return info;
}

bool ResourceData::serialize(std::string&) const { return false; }
bool ResourceData::deserialize(const std::string&) { return false; }

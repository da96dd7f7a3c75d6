#include "qn_resource/resource_property.h"

#include <algorithm>

namespace {

struct TypeFacts {
    const char* name;
    unsigned int size;
};

constexpr TypeFacts type_facts[ResourceProperty::type_count] = {
    {"int8", 1},   {"uint8", 1},   {"int16", 2},   {"uint16", 2},  {"int32", 4}, {"uint32", 4}, {"int64", 8},
    {"uint64", 8}, {"float16", 2}, {"float32", 4}, {"float64", 8}, {"char8", 1}, {"char16", 2}};

}  // namespace

unsigned int ResourceProperty::get_type_size(const Type& type) {
    const auto index = static_cast<unsigned int>(type);
    return index < type_count ? type_facts[index].size : 0;
}

const char* ResourceProperty::get_type_name(const Type& type) {
    const auto index = static_cast<unsigned int>(type);
    return index < type_count ? type_facts[index].name : "unknown";
}

bool ResourceProperty::find_type(const CoreString& name, Type& type) {
    for (unsigned int i = 0; i < type_count; ++i) {
        if (name.to_std() != type_facts[i].name) continue;
        type = static_cast<Type>(i);
        return true;
    }
    return false;
}

const CoreClassInfo& ResourceProperty::get_class_info() const { return class_info(); }
const CoreClassInfo& ResourceProperty::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("ResourceProperty", &destroy_object<ResourceProperty>, &ResourceData::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) ResourceProperty; });
    return info;
}

size_t ResourceProperty::get_memory_size() const {
    return sizeof(*this) + sizeof(unsigned int) * m_offsets.get_count() + sizeof(std::uint64_t) * m_bytes.get_count();
}

void ResourceProperty::init(const Type& type, const unsigned int& extent, const unsigned int& item_count) {
    m_type = type;
    m_extent = extent;
    m_item_count = item_count;
    m_offsets.clear();
    const size_t bytes = size_t{item_count} * extent * get_type_size(type);
    m_bytes.assign(static_cast<unsigned int>((bytes + 7) / 8), 0);
}

void ResourceProperty::init(const Type& type, const CoreBasicArray<unsigned int>& item_counts) {
    m_type = type;
    m_item_count = item_counts.get_count();
    m_extent = item_counts.is_empty() ? 0 : *std::max_element(item_counts.begin(), item_counts.end());
    m_offsets.resize(m_item_count + 1);
    m_offsets[0] = 0;
    for (unsigned int i = 0; i < m_item_count; ++i) m_offsets[i + 1] = m_offsets[i] + item_counts[i];
    const size_t bytes = size_t{m_offsets[m_item_count]} * get_type_size(type);
    m_bytes.assign(static_cast<unsigned int>((bytes + 7) / 8), 0);
}

unsigned int ResourceProperty::get_min_item_length() const {
    if (!has_item_offsets() || m_item_count == 0) return m_extent;
    unsigned int shortest = m_extent;
    for (unsigned int i = 0; i < m_item_count; ++i) shortest = std::min(shortest, get_item_length(i));
    return shortest;
}

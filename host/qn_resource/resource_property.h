// ResourceProperty: a list of items, each a row of numbers of one type.
#pragma once

#include <cstdint>
#include <cstring>

#include "qn_core/core_array.h"
#include "qn_core/core_string.h"
#include "qn_resource/resource_data.h"

// Item i has `extent` values, or a length of its own when the property was made with offsets. Values are stored one
// after the other in the element type's own layout. Set up by one thread, read by any number. Indices and types are not
// checked.
class QN_EXPORT ResourceProperty : public ResourceData {
public:
    enum class Type : unsigned int {
        int8 = 0,
        uint8 = 1,
        int16 = 2,
        uint16 = 3,
        int32 = 4,
        uint32 = 5,
        int64 = 6,
        uint64 = 7,
        float16 = 8,  // IEEE binary16 bit patterns
        float32 = 9,
        float64 = 10,
        char8 = 11,   // laid out as int8
        char16 = 12,  // laid out as uint16
    };
    static constexpr unsigned int type_count = 13;

    // Bytes of one value, 0 for an unknown type.
    static unsigned int get_type_size(const Type& type);
    static const char* get_type_name(const Type& type);
    // The type of that name; false when there is none.
    static bool find_type(const CoreString& name, Type& type);

    ResourceProperty() = default;
    explicit ResourceProperty(const CoreString& name) { set_name(name); }

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    // Makes room for `item_count` items of `extent` values, all zero.
    void init(const Type& type, const unsigned int& extent, const unsigned int& item_count);
    // Items of varying length: item i has item_counts[i] values. The extent becomes the longest.
    void init(const Type& type, const CoreBasicArray<unsigned int>& item_counts);

    const Type& get_type() const { return m_type; }
    const unsigned int& get_extent() const { return m_extent; }
    const unsigned int& get_item_count() const { return m_item_count; }
    bool has_item_offsets() const { return !m_offsets.is_empty(); }
    unsigned int get_item_length(const unsigned int& item) const {
        return has_item_offsets() ? m_offsets[item + 1] - m_offsets[item] : m_extent;
    }
    // The shortest item's length; the extent when there are no items.
    unsigned int get_min_item_length() const;
    unsigned int get_value_count() const {
        return has_item_offsets() ? m_offsets[m_item_count] : m_item_count * m_extent;
    }

    // The first value of an item. T has the size of the type.
    template <class T>
    const T* get_item_values(const unsigned int& item) const {
        return reinterpret_cast<const T*>(m_bytes.get_data()) + get_item_begin(item);
    }
    // Writes the item's whole length, or `count` values when that is less.
    template <class T>
    void set_item_values(const unsigned int& item, const T* values, const unsigned int& count) {
        const unsigned int length = get_item_length(item);
        std::memcpy(reinterpret_cast<T*>(m_bytes.get_data()) + get_item_begin(item), values,
                    sizeof(T) * (count < length ? count : length));
    }

private:
    size_t get_item_begin(unsigned int item) const {
        return has_item_offsets() ? m_offsets[item] : size_t{item} * m_extent;
    }

    Type m_type = Type::float32;
    unsigned int m_extent = 0;
    unsigned int m_item_count = 0;
    CoreArray<unsigned int> m_offsets;  // item_count + 1 entries, or none
    CoreArray<std::uint64_t> m_bytes;   // aligned for every type
};

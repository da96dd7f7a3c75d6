// Counted arrays with 32-bit counts.
//
//   CoreBasicArray<T>   a count and a pointer; owns nothing, copies are shallow views.
//   CoreArray<T>        owns its elements and grows; converts to CoreBasicArray<T>& for readers.
//
// Indices are not checked. Counts above 2^32 - 1 are a precondition violation. An empty array may hold a null pointer.
// Allocation failure throws std::bad_alloc and leaves the array as it was. Concurrent reads are safe, a write excludes
// everything else.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "qn_core/core_memory.h"

template <class T>
class CoreBasicArray {
public:
    CoreBasicArray() = default;

    // A view of `count` elements at `data`. The elements must outlive the view.
    CoreBasicArray(const unsigned int& count, T* data) : m_count(count), m_data(data) {}

    const unsigned int& get_count() const { return m_count; }
    const T* get_data() const { return m_data; }
    T* get_data() { return m_data; }
    bool is_empty() const { return m_count == 0; }

    const T& operator[](const size_t& i) const { return m_data[i]; }
    T& operator[](const size_t& i) { return m_data[i]; }

    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_count; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_count; }

protected:
    unsigned int m_count = 0;
    T* m_data = nullptr;
};

template <class T>
class CoreArray : public CoreBasicArray<T> {
    using Base = CoreBasicArray<T>;
    using Base::m_count;
    using Base::m_data;

public:
    CoreArray() = default;
    explicit CoreArray(const unsigned int& count) { resize(count); }
    CoreArray(const unsigned int& count, const T& value) { assign(count, value); }
    CoreArray(const CoreArray& other) : Base() { copy_from(other); }
    explicit CoreArray(const CoreBasicArray<T>& other) { copy_from(other); }
    CoreArray(CoreArray&& other) noexcept { swap(other); }
    ~CoreArray() { clear(); }

    CoreArray& operator=(const CoreArray& other) {
        copy_from(other);
        return *this;
    }
    CoreArray& operator=(const CoreBasicArray<T>& other) {
        copy_from(other);
        return *this;
    }
    CoreArray& operator=(CoreArray&& other) noexcept {
        if (this != &other) {
            clear();
            swap(other);
        }
        return *this;
    }

    // Replaces the content by a copy of `other`; nothing happens when both are the same storage.
    void copy_from(const CoreBasicArray<T>& other) {
        if (m_data == other.get_data() && m_count == other.get_count()) return;
        if constexpr (std::is_trivially_copyable_v<T>)
            if (other.get_count() != 0 && other.get_count() <= m_capacity && m_capacity / 2 <= other.get_count()) {
                std::memmove(m_data, other.get_data(), sizeof(T) * other.get_count());
                m_count = other.get_count();
                return;
            }
        CoreArray copy;
        copy.reserve(other.get_count());
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (other.get_count() != 0) std::memcpy(copy.m_data, other.get_data(), sizeof(T) * other.get_count());
            copy.m_count = other.get_count();
        } else {
            for (const T& item : other) copy.add(item);
        }
        swap(copy);
    }

    // Changes the count, keeping the elements below it. New elements of trivial types are left uninitialized.
    void resize(const unsigned int& count) {
        if (count < m_count) {
            if constexpr (!std::is_trivially_destructible_v<T>) std::destroy(m_data + count, m_data + m_count);
        } else if (count > m_count) {
            reserve(count);
            if constexpr (!std::is_trivially_default_constructible_v<T>)
                std::uninitialized_default_construct(m_data + m_count, m_data + count);
        }
        m_count = count;
    }

    // Sets the count and every element.
    void assign(const unsigned int& count, const T& value) {
        if (count > m_capacity || !std::is_trivially_copyable_v<T>) {
            CoreArray filled;  // `count` and `value` may be this array's own
            filled.reserve(count);
            if constexpr (is_byte)
                filled.fill_bytes(count, value);
            else
                std::uninitialized_fill(filled.m_data, filled.m_data + count, value);
            filled.m_count = count;
            swap(filled);
        } else {
            const T kept = value;
            const unsigned int kept_count = count;
            if constexpr (is_byte)
                fill_bytes(kept_count, kept);
            else
                for (unsigned int i = 0; i < kept_count; ++i) m_data[i] = kept;
            m_count = kept_count;
        }
    }

    void reserve(const unsigned int& capacity) {
        if (capacity <= m_capacity) return;
        T* data = static_cast<T*>(CoreMemory::allocate(sizeof(T) * size_t{capacity}, alignment));
        if constexpr (std::is_trivially_copyable_v<T>) {
            if (m_count != 0) std::memcpy(static_cast<void*>(data), m_data, sizeof(T) * m_count);
        } else {
            std::uninitialized_move(m_data, m_data + m_count, data);
            std::destroy(m_data, m_data + m_count);
        }
        release();
        m_data = data;
        m_capacity = capacity;
    }

    void add(const T& item) {
        if (m_count == m_capacity) {
            T kept = item;  // `item` may live in the storage that grows
            reserve(m_capacity < 8 ? 8 : m_capacity + m_capacity / 2);
            ::new (static_cast<void*>(m_data + m_count)) T(std::move(kept));
        } else {
            ::new (static_cast<void*>(m_data + m_count)) T(item);
        }
        ++m_count;
    }

    // Empties the array and frees its storage.
    void clear() {
        if constexpr (!std::is_trivially_destructible_v<T>) std::destroy(m_data, m_data + m_count);
        release();
        m_data = nullptr;
        m_count = 0;
        m_capacity = 0;
    }

    void swap(CoreArray& other) noexcept {
        std::swap(m_count, other.m_count);
        std::swap(m_data, other.m_data);
        std::swap(m_capacity, other.m_capacity);
    }

private:
    // A cache line, so that flat arrays of small records never straddle more lines than they must.
    static constexpr size_t alignment = alignof(T) > 64 ? alignof(T) : 64;

    // Compilers take structures of one byte for anything but bytes.
    static constexpr bool is_byte = sizeof(T) == 1 && std::is_trivially_copyable_v<T>;

    void fill_bytes(unsigned int count, const T& value) {
        unsigned char byte;
        std::memcpy(&byte, &value, 1);
        if (count != 0) std::memset(static_cast<void*>(m_data), byte, count);
    }

    void release() {
        if (m_data != nullptr) CoreMemory::free(m_data, sizeof(T) * size_t{m_capacity}, alignment);
    }

    unsigned int m_capacity = 0;
};

// Containers, text, shared pointers, class records and log: over the standard library's.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

// A view.
template <class T>
class CoreBasicArray {
public:
    CoreBasicArray() = default;
    CoreBasicArray(unsigned int count, T* data) : m_data(data), m_count(count) {}
    unsigned int get_count() const { return m_count; }
    bool is_empty() const { return m_count == 0; }
    const T* get_data() const { return m_data; }
    T* get_data() { return m_data; }
    const T& operator[](size_t i) const { return m_data[i]; }
    T& operator[](size_t i) { return m_data[i]; }
    const T* begin() const { return m_data; }
    const T* end() const { return m_data + m_count; }
    T* begin() { return m_data; }
    T* end() { return m_data + m_count; }

protected:
    T* m_data = nullptr;
    unsigned int m_count = 0;
};

// A std::vector that is a view of itself.
template <class T>
class CoreArray : public CoreBasicArray<T> {
public:
    CoreArray() = default;
    explicit CoreArray(unsigned int count) : m_items(count) { look(); }
    CoreArray(unsigned int count, const T& value) : m_items(count, value) { look(); }
    CoreArray(const CoreArray& other) : CoreBasicArray<T>(), m_items(other.m_items) { look(); }
    explicit CoreArray(const CoreBasicArray<T>& other) : m_items(other.begin(), other.end()) { look(); }
    CoreArray(CoreArray&& other) noexcept { swap(other); }
    CoreArray& operator=(CoreArray other) noexcept {
        swap(other);
        return *this;
    }
    CoreArray& operator=(const CoreBasicArray<T>& other) { return *this = CoreArray(other); }

    void resize(unsigned int count) { m_items.resize(count), look(); }
    void reserve(unsigned int count) { m_items.reserve(count), look(); }
    void assign(unsigned int count, const T& value) { m_items.assign(count, value), look(); }
    void add(const T& item) { m_items.push_back(item), look(); }
    void clear() { m_items.clear(), look(); }
    void swap(CoreArray& other) noexcept { m_items.swap(other.m_items), look(), other.look(); }

private:
    void look() {
        this->m_data = m_items.data();
        this->m_count = static_cast<unsigned int>(m_items.size());
    }
    std::vector<T> m_items;
};

class CoreString : public std::string {
public:
    CoreString() = default;
    CoreString(const char* text) : std::string(text) {}
    const char* get_data() const { return c_str(); }
    unsigned int get_count() const { return static_cast<unsigned int>(size()); }
};

struct CoreSharedCounter {};

template <class T, class>
class CoreSharedPointer : public std::shared_ptr<T> {
public:
    CoreSharedPointer() = default;
    explicit CoreSharedPointer(T* object) : std::shared_ptr<T>(object) {}
};

struct CoreClassInfo {
    using ClassDestructor = bool (*)(void* object, const bool& is_array);
    using ClassFactory = class CoreBaseType* (*)();

    static const CoreClassInfo& new_class(const CoreString& name, ClassDestructor destructor, const CoreClassInfo* base,
                                          ClassFactory factory);
    // Every class so far, in the order of registration.
    static const std::deque<CoreClassInfo>& get_all();

    CoreString name;
    ClassDestructor destructor;
    const CoreClassInfo* base;
    ClassFactory factory;
};

class CoreBaseType {
public:
    virtual ~CoreBaseType() = default;
    virtual size_t get_memory_size() const { return sizeof(*this); }
    virtual const CoreClassInfo& get_class_info() const { return class_info(); }
    static const CoreClassInfo& class_info();
    template <class T>
    static bool destroy_object(void* object, const bool& is_array) {
        is_array ? delete[] static_cast<T*>(object) : delete static_cast<T*>(object);
        return true;
    }
};

class CoreLogStream {
public:
    CoreLogStream(const CoreString& text) { m_text << text; }
    template <class T>
    CoreLogStream& operator<<(const T& value) {
        m_text << value;
        return *this;
    }
    std::string get_text() const { return m_text.str(); }

private:
    std::ostringstream m_text;
};

// Keeps the lines of its level.
class CoreLogHandler {
public:
    unsigned int get_level() const { return 1; }
    void log(const unsigned int& level, const CoreLogStream& stream);
    std::vector<std::string> lines;

    static CoreLogHandler* s_main_log_handler;
};

class ResourceData : public CoreBaseType {
public:
    const CoreClassInfo& get_class_info() const override { return class_info(); }
    static const CoreClassInfo& class_info();
    virtual ResourceData* get_copy() const { return nullptr; }
    const CoreString& get_name() const { return m_name; }
    void set_name(const CoreString& name) { m_name = name; }
    void advert_memory_changed() const {}

private:
    CoreString m_name;
};

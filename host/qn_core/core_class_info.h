// The process-wide registry of classes.
//
// A class registers itself once, on the first call of its static `class_info`, and is found by name afterwards.
// Registration and look-ups may run on any thread. Records live until the process ends.
#pragma once

#include "qn_core/core_export.h"
#include "qn_core/core_string.h"

class CoreBaseType;

class QN_EXPORT CoreClassInfo {
public:
    // Destroys an object of the class: `is_array` tells whether it was made by new[]. A null object is accepted.
    // Returns success.
    using ClassDestructor = bool (*)(void* object, const bool& is_array);
    // Makes a default object of the class, or null when the class is not made by name.
    using ClassFactory = CoreBaseType* (*)();

    // Registers a class and returns its record; a name that is already registered returns the first record.
    static const CoreClassInfo& new_class(const CoreString& name, ClassDestructor destructor, const CoreClassInfo* base,
                                          ClassFactory factory);
    // The record of a registered class, or null.
    static const CoreClassInfo* find(const CoreString& name);

    const CoreString& get_name() const { return m_name; }
    const CoreClassInfo* get_base() const { return m_base; }
    ClassDestructor get_destructor() const { return m_destructor; }
    // Null when the class has no factory or its factory has no memory.
    CoreBaseType* create() const { return m_factory != nullptr ? m_factory() : nullptr; }
    bool is_kind_of(const CoreClassInfo& other) const;

private:
    CoreClassInfo() = default;

    CoreString m_name;
    ClassDestructor m_destructor = nullptr;
    const CoreClassInfo* m_base = nullptr;
    ClassFactory m_factory = nullptr;
};

// Roots of the class chain: CoreBaseType <- CoreBaseObject <- CoreCustomData.
#pragma once

#include "qn_core/core_class_info.h"

class QN_EXPORT CoreBaseType {
public:
    CoreBaseType() = default;
    CoreBaseType(const CoreBaseType&) = default;
    CoreBaseType& operator=(const CoreBaseType&) = default;
    virtual ~CoreBaseType();

    // Bytes held by the object, itself included.
    virtual size_t get_memory_size() const;
    virtual const CoreClassInfo& get_class_info() const;
    static const CoreClassInfo& class_info();
    bool is_kind_of(const CoreClassInfo& info) const { return get_class_info().is_kind_of(info); }

    // The registered destructor of class T: null objects succeed at once.
    template <class T>
    static bool destroy_object(void* object, const bool& is_array) {
        if (is_array)
            delete[] static_cast<T*>(object);
        else
            delete static_cast<T*>(object);
        return true;
    }
};

class QN_EXPORT CoreBaseObject : public CoreBaseType {
public:
    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
};

class QN_EXPORT CoreCustomData : public CoreBaseObject {
public:
    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
};

#include "qn_core/core_base_type.h"

CoreBaseType::~CoreBaseType() = default;

size_t CoreBaseType::get_memory_size() const { return sizeof(*this); }

const CoreClassInfo& CoreBaseType::get_class_info() const { return class_info(); }
const CoreClassInfo& CoreBaseType::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("CoreBaseType", &destroy_object<CoreBaseType>, nullptr, nullptr);
    return info;
}

const CoreClassInfo& CoreBaseObject::get_class_info() const { return class_info(); }
const CoreClassInfo& CoreBaseObject::class_info() {
    static const CoreClassInfo& info = CoreClassInfo::new_class("CoreBaseObject", &destroy_object<CoreBaseObject>,
                                                                &CoreBaseType::class_info(), nullptr);
    return info;
}

const CoreClassInfo& CoreCustomData::get_class_info() const { return class_info(); }
const CoreClassInfo& CoreCustomData::class_info() {
    static const CoreClassInfo& info = CoreClassInfo::new_class("CoreCustomData", &destroy_object<CoreCustomData>,
                                                                &CoreBaseObject::class_info(), nullptr);
    return info;
}

#include "qn_core/core_class_info.h"

#include <map>
#include <memory>
#include <mutex>

namespace {

struct Registry {
    std::mutex mutex;
    std::map<CoreString, std::unique_ptr<CoreClassInfo>> classes;
};

Registry& registry() {
    static Registry* instance = new Registry;  // outlives every static object that may still look a class up
    return *instance;
}

}  // namespace

const CoreClassInfo& CoreClassInfo::new_class(const CoreString& name, ClassDestructor destructor,
                                              const CoreClassInfo* base, ClassFactory factory) {
    Registry& classes = registry();
    const std::lock_guard guard(classes.mutex);
    std::unique_ptr<CoreClassInfo>& slot = classes.classes[name];
    if (!slot) {
        slot.reset(new CoreClassInfo);
        slot->m_name = name;
        slot->m_destructor = destructor;
        slot->m_base = base;
        slot->m_factory = factory;
    }
    return *slot;
}

const CoreClassInfo* CoreClassInfo::find(const CoreString& name) {
    Registry& classes = registry();
    const std::lock_guard guard(classes.mutex);
    const auto found = classes.classes.find(name);
    return found == classes.classes.end() ? nullptr : found->second.get();
}

bool CoreClassInfo::is_kind_of(const CoreClassInfo& other) const {
    for (const CoreClassInfo* info = this; info != nullptr; info = info->m_base)
        if (info == &other) return true;
    return false;
}

#include "qn_module/module_loader.h"

#include <dlfcn.h>

bool ModuleLoader::load(const CoreString& path, CoreString& error) {
    void* library = dlopen(path.get_data(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        error = CoreString(dlerror());
        return false;
    }
    const auto entry = reinterpret_cast<ModuleEntry>(dlsym(library, QN_MODULE_ENTRY_NAME));
    if (entry == nullptr) {
        error = CoreString(path.to_std() + ": no entry point " QN_MODULE_ENTRY_NAME);
        dlclose(library);
        return false;
    }
    if (!entry()) {
        error = CoreString(path.to_std() + ": registration refused");
        return false;
    }
    return true;
}

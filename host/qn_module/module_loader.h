// Loads plug-in libraries, whose classes then stand in the class registry.
#pragma once

#include "qn_core/core_export.h"
#include "qn_core/core_string.h"

// Entry point of a module: registers the module's classes. Returns true on success. May be called more than once.
#define QN_MODULE_ENTRY_NAME "qn_module_register"
using ModuleEntry = bool (*)();

class QN_EXPORT ModuleLoader {
public:
    // Opens the library at `path`, calls its entry point and keeps it open for the rest of the process: objects and
    // class records may refer to its code. Returns false, with the reason in `error`, when the library or its entry
    // point is missing or refuses.
    static bool load(const CoreString& path, CoreString& error);
};

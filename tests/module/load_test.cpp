// The module as a host meets it: opened from its file, with nothing of it linked in.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "qn_core/core_base_type.h"
#include "qn_module/module_loader.h"

namespace {

std::vector<std::string> base_chain(const char* name) {
    std::vector<std::string> names;
    const CoreClassInfo* info = CoreClassInfo::find(name);
    while (info != nullptr && (info = info->get_base()) != nullptr) names.push_back(info->get_name().to_std());
    return names;
}

std::vector<std::string> exported_symbols() {
    const std::string command = "nm -D --defined-only -C '" QN_SDS_MODULE_PATH "'";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> names;
    char line[4096];
    while (pipe && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        std::string text(line);
        text = text.substr(0, text.find('\n'));
        const size_t type = text.find_first_not_of("0123456789abcdef");
        if (type != std::string::npos && type + 3 <= text.size()) names.push_back(text.substr(type + 3));
    }
    return names;
}

TEST(ModuleLoader, ClassesAppearWithTheModuleAndKnowTheirBases) {
    if (CoreClassInfo::find("SdsMesh") == nullptr) {
        CoreString error;
        ASSERT_TRUE(ModuleLoader::load(QN_SDS_MODULE_PATH, error)) << error.get_data();
    }
    const std::vector<std::string> resource{"ResourceData", "EventObject", "CoreCustomData", "CoreBaseObject",
                                            "CoreBaseType"};
    std::vector<std::string> object = resource;
    object.insert(object.begin(), "GeometryObject");
    EXPECT_EQ(base_chain("SdsMeshBase"), resource);
    EXPECT_EQ(base_chain("SdsMeshGeometry"), resource);
    EXPECT_EQ(base_chain("SdsMeshMaps"), resource);
    EXPECT_EQ(base_chain("SdsBezierMesh"), std::vector<std::string>{"CoreBaseType"});
    EXPECT_EQ(base_chain("SdsMesh"), object);
    // Loaded once more, it is the same module.
    const CoreClassInfo* info = CoreClassInfo::find("SdsMesh");
    CoreString error;
    EXPECT_TRUE(ModuleLoader::load(QN_SDS_MODULE_PATH, error)) << error.get_data();
    EXPECT_EQ(CoreClassInfo::find("SdsMesh"), info);
}

TEST(ModuleLoader, ObjectsAreMadeThroughTheRegistry) {
    CoreString error;
    ASSERT_TRUE(ModuleLoader::load(QN_SDS_MODULE_PATH, error)) << error.get_data();
    for (const char* name : {"SdsMeshBase", "SdsMeshGeometry", "SdsMeshMaps", "SdsBezierMesh"}) {
        const CoreClassInfo* info = CoreClassInfo::find(name);
        ASSERT_NE(info, nullptr) << name;
        const std::unique_ptr<CoreBaseType> object(info->create());
        ASSERT_NE(object, nullptr) << name;
        EXPECT_EQ(&object->get_class_info(), info) << name;
        EXPECT_GT(object->get_memory_size(), 0u) << name;
    }
    // The renderable object is made by its host's own means; its destructor takes null.
    const CoreClassInfo* mesh = CoreClassInfo::find("SdsMesh");
    ASSERT_NE(mesh, nullptr);
    EXPECT_EQ(mesh->create(), nullptr);
    EXPECT_TRUE(mesh->get_destructor()(nullptr, false));
    EXPECT_TRUE(mesh->get_destructor()(nullptr, true));
}

TEST(ModuleLoader, RefusalsSayWhy) {
    CoreString error;
    EXPECT_FALSE(ModuleLoader::load("/nowhere/libnothing.so", error));
    EXPECT_NE(error.to_std().find("libnothing.so"), std::string::npos);
    error = CoreString();
    EXPECT_FALSE(ModuleLoader::load("libm.so.6", error));
    EXPECT_NE(error.to_std().find(QN_MODULE_ENTRY_NAME), std::string::npos);
}

// Nothing but the classes, the three functions, the entry point and what a class brings along (tables, types, nested
// classes).
TEST(Module, ExportsItsInterfaceAndNothingElse) {
    const std::vector<std::string> symbols = exported_symbols();
    if (symbols.empty()) GTEST_SKIP() << "nm is not installed";
    const std::set<std::string> classes{"SdsMeshBase", "SdsMeshGeometry", "SdsBezierMesh",
                                        "SdsMeshMaps", "SdsMeshProperty", "SdsMesh"};
    std::set<std::string> functions;
    for (std::string name : symbols) {
        for (const char* prefix : {"vtable for ", "typeinfo for ", "typeinfo name for ", "guard variable for ",
                                   "non-virtual thunk to ", "construction vtable for "})
            if (name.starts_with(prefix)) name = name.substr(std::string(prefix).size());
        const size_t end = name.find_first_of(":(<[ ");
        const std::string head = name.substr(0, end);
        if (classes.contains(head)) continue;
        functions.insert(head);
    }
    EXPECT_EQ(functions,
              (std::set<std::string>{"frustum_bezier_intersection", "qn_module_register",
                                     "ray_bezier_intersection_adaptive", "ray_bezier_intersection_estimate"}));
}

}  // namespace

#include "qn_core/core_class_info.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "qn_geometry/geometry_object.h"
#include "qn_poly/poly_mesh.h"

namespace {

TEST(CoreClassInfo, FirstRegistrationOfANameStays) {
    const CoreClassInfo& first =
        CoreClassInfo::new_class("ClassInfoTestOnce", nullptr, &CoreBaseType::class_info(), nullptr);
    const CoreClassInfo& again =
        CoreClassInfo::new_class("ClassInfoTestOnce", nullptr, &ResourceData::class_info(), nullptr);
    EXPECT_EQ(&first, &again);
    EXPECT_EQ(again.get_base(), &CoreBaseType::class_info());
    EXPECT_EQ(CoreClassInfo::find("ClassInfoTestOnce"), &first);
    EXPECT_EQ(CoreClassInfo::find("ClassInfoTestNever"), nullptr);
    EXPECT_EQ(first.create(), nullptr);
}

TEST(CoreClassInfo, ChainLeadsToTheRoot) {
    std::vector<std::string> names;
    for (const CoreClassInfo* info = &GeometryObject::class_info(); info != nullptr; info = info->get_base())
        names.push_back(info->get_name().to_std());
    EXPECT_EQ(names, (std::vector<std::string>{"GeometryObject", "ResourceData", "EventObject", "CoreCustomData",
                                               "CoreBaseObject", "CoreBaseType"}));
    EXPECT_TRUE(GeometryObject::class_info().is_kind_of(EventObject::class_info()));
    EXPECT_FALSE(EventObject::class_info().is_kind_of(GeometryObject::class_info()));
}

TEST(CoreClassInfo, ObjectsAreMadeAndDestroyedByName) {
    const CoreClassInfo& info = PolyMesh::class_info();
    CoreBaseType* object = info.create();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(&object->get_class_info(), &info);
    EXPECT_TRUE(info.get_destructor()(static_cast<PolyMesh*>(object), false));
    EXPECT_TRUE(info.get_destructor()(nullptr, false));
    EXPECT_TRUE(info.get_destructor()(new PolyMesh[3], true));
}

TEST(CoreClassInfo, ConcurrentRegistrationGivesOneRecord) {
    std::vector<const CoreClassInfo*> found(8);
    {
        std::vector<std::jthread> threads;
        for (const CoreClassInfo*& slot : found)
            threads.emplace_back(
                [&slot] { slot = &CoreClassInfo::new_class("ClassInfoTestRace", nullptr, nullptr, nullptr); });
    }
    for (const CoreClassInfo* info : found) EXPECT_EQ(info, found[0]);
}

}  // namespace

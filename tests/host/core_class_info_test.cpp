#include "qn_core/core_class_info.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "qn_resource/resource_data.h"

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
    EXPECT_TRUE(first.is_kind_of(CoreBaseType::class_info()));
    EXPECT_FALSE(CoreBaseType::class_info().is_kind_of(first));
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

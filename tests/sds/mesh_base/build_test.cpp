// SdsMeshBase::set, copies and queries.
#include <gmock/gmock.h>

#include <memory>

#include "../surface_checks.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using testing::ElementsAre;

TEST(SdsMeshBaseSet, QuadsInheritFromTheirPolygons) {
    SdsMeshBase base;
    CoreArray<CoreString> names;
    for (const char* name : {"a", "b", "c"}) names.add(name);
    base.set(10, to_core_array(std::vector<unsigned int>{0, 1, 2, 2, 1, 3, 4, 5, 6, 7, 8, 9}),
             to_core_array(std::vector<unsigned int>{3, 4, 5}), to_core_array(std::vector<unsigned int>{2, 0, 1}),
             names, nullptr);
    for (unsigned int q = 0; q < 12; ++q) {
        const unsigned int polygon = q < 3 ? 0 : (q < 7 ? 1 : 2);
        EXPECT_EQ(base.get_primitive_polygon_id(q), polygon);
        EXPECT_EQ(base.get_primitive_shading_group_index(q), (polygon + 2) % 3);
    }
    EXPECT_EQ(base.get_shading_group_names()[2], CoreString("c"));
    // The step is one of the levels, and level 0 counts as 1.
    for (const auto& [level, samples] : {std::pair(0u, 2u), {1u, 2u}, {3u, 5u}})
        EXPECT_EQ(base.get_tessellation_sample_count(level), samples);
    set_base(base, zoo_mesh("lone_quad"));
    EXPECT_EQ(base.get_tessellation_sample_count(0), 3u);
    EXPECT_EQ(base.get_primitive_polygon_id(0), 0u);
}

}  // namespace

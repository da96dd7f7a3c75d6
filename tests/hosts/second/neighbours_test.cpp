// What the module makes of neighbors that only the second host finds.
#include <gtest/gtest.h>

#include "host_calls.h"

namespace {

// Two triangles whose shared edge has other vertices on either side: the host takes 3 and 4 for 2 and 1.
TEST(Neighbours, OfOtherVerticesAreToldAndLeftApart) {
    second_host_welds = {{3, 2}, {4, 1}};
    const unsigned int corners[] = {0, 1, 2, 3, 4, 5};
    CoreArray<unsigned int> indices;
    for (const unsigned int v : corners) indices.add(v);
    std::vector<std::string>& lines = CoreLogHandler::s_main_log_handler->lines;
    lines.clear();
    SdsMeshBase base;
    base.set(6, indices, CoreArray<unsigned int>(2, 3), CoreArray<unsigned int>(2, 0), CoreArray<CoreString>(1, "body"),
             nullptr);
    second_host_welds.clear();
    ASSERT_EQ(lines.size(), 2u);
    for (unsigned int i = 0; i < 2; ++i)
        EXPECT_EQ(lines[i], "SdsMesh.subdivide: topological error while computing neighbourhood of quad " +
                                std::to_string(i == 0 ? 1 : 3) + "!\n");
    for (const unsigned int half : {4u * 1, 4u * 2 + 3, 4u * 3, 4u * 4 + 3}) EXPECT_TRUE(base.is_edge_border(half));
    // One edge to the host all the same: both sides have its point.
    EXPECT_EQ(base.get_quad_indices(1)[1], base.get_quad_indices(3)[1]);
}

}  // namespace

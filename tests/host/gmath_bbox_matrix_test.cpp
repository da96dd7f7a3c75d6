#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qn_gmath/gmath_bbox.h"
#include "qn_gmath/gmath_matrix.h"

namespace {

TEST(GMathBbox3, EmptyGrowsToThePoint) {
    GMathBbox3<float> box = GMathBbox3<float>::empty();
    EXPECT_TRUE(box.is_empty());
    box.grow(GMathVec3<float>(1, -2, 3));
    EXPECT_FALSE(box.is_empty());
    EXPECT_EQ(box.get_min(), GMathVec3<float>(1, -2, 3));
    EXPECT_EQ(box.get_max(), GMathVec3<float>(1, -2, 3));
    box.grow(GMathBbox3<float>::empty());
    EXPECT_EQ(box.get_max(), GMathVec3<float>(1, -2, 3));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_TRUE(GMathBbox3<float>({nan, 0, 0}, {1, 1, 1}).is_empty());
}

TEST(GMathMatrix4x4, ScalesAreTheLengthsOfTheBasisVectors) {
    GMathMatrix4x4<double> m;
    const double rows[3][3] = {{3, 4, 0}, {0, 0, -2}, {1, -1, 0}};
    for (unsigned int r = 0; r < 3; ++r)
        for (unsigned int c = 0; c < 3; ++c) m[r][c] = rows[r][c];
    m[3][0] = 1e9;
    EXPECT_DOUBLE_EQ(m.get_scales()[0], 5.0);
    EXPECT_DOUBLE_EQ(m.get_scales()[1], 2.0);
    EXPECT_DOUBLE_EQ(m.get_scales()[2], std::sqrt(2.0));
    EXPECT_EQ(m.transform_vector({1, 1, 1}), GMathVec3<double>(4, 3, -2)) << "without the translation";
    // Entries whose squares leave the range of a double.
    const GMathMatrix4x4<double> huge = GMathMatrix4x4<double>::scale(1e200, 1e-200, 3e200);
    EXPECT_DOUBLE_EQ(huge.get_scales()[0], 1e200);
    EXPECT_DOUBLE_EQ(huge.get_scales()[2], 3e200);
    EXPECT_EQ(GMathMatrix4x4<double>::scale(0, 0, 0).get_scales(), GMathVec3<double>(0, 0, 0));
}

}  // namespace

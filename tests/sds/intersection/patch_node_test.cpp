#include "sds/intersection/patch_node.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

// Neighbors see their common edge from opposite ends.
TEST(CubicHalves, AReversedEdgeHalvesToTheSameBits) {
    std::mt19937 random(2);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    for (unsigned int i = 0; i < 10000; ++i) {
        const SimdFloat4 zero(0.0f);
        SimdFloat4 p[4] = {zero, zero, zero, zero};
        for (SimdFloat4& point : p) {
            const float lanes[4] = {unit(random), 1e3f * unit(random), 1e-3f * unit(random), 1.0f};
            point = SimdFloat4::load(lanes);
        }
        const sds::CubicHalves ahead(p[0], p[1], p[2], p[3]), back(p[3], p[2], p[1], p[0]);
        float bits[2][20];
        unsigned int k = 0;
        for (const SimdFloat4 point : {ahead.m01, ahead.a, ahead.mid, ahead.b, ahead.m23})
            point.store(bits[0] + 4 * k++);
        k = 0;
        for (const SimdFloat4 point : {back.m23, back.b, back.mid, back.a, back.m01}) point.store(bits[1] + 4 * k++);
        ASSERT_EQ(std::memcmp(bits[0], bits[1], sizeof bits[0]), 0) << i;
    }
}

}  // namespace

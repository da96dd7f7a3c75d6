#include "sds/intersection/hit_slots.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct Hit {
    unsigned int side;
    float t, u, v;
};

TEST(HitSlots, ReportTheNearestOfEachSideQuadrantByQuadrant) {
    const struct {
        std::vector<Hit> hits;
        std::vector<float> distances;
    } cases[] = {
        {{}, {}},
        {{{0, 3, 0.1f, 0.1f}, {0, 1, 0.2f, 0.1f}, {0, 2, 0.3f, 0.1f}}, {1}},
        {{{1, 5, 0.9f, 0.9f}}, {5}},
        {{{0, 2, 0.1f, 0.1f}, {1, 1, 0.1f, 0.1f}}, {1, 2}},
        {{{1, 2, 0.1f, 0.1f}, {0, 1, 0.1f, 0.1f}}, {1, 2}},
        {{{0, 1, 0.1f, 0.1f}, {1, 1.00005f, 0.1f, 0.1f}}, {1}},  // closer than the separation: one crossing
        {{{1, 1, 0.1f, 0.1f}, {0, 1, 0.1f, 0.1f}}, {1}},
        {{{0, 1, 0.6f, 0.6f}, {0, 2, 0.4f, 0.6f}, {0, 3, 0.6f, 0.4f}, {0, 4, 0.5f, 0.5f}}, {4, 3, 2, 1}},
    };
    for (const auto& each : cases) {
        sds::HitSlots slots;
        slots.clear();
        for (const Hit& hit : each.hits) slots.add(hit.side, hit.t, hit.u, hit.v, 9);
        std::vector<float> distances;
        slots.flush(0.0001f, [&](const sds::HitSlots::Entry& entry) { distances.push_back(entry.t); });
        EXPECT_EQ(distances, each.distances) << &each - cases;
    }
}

}  // namespace

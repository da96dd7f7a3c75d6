#include "sds/intersection/hit_slots.h"

#include <gtest/gtest.h>

#include <vector>

namespace sds {
namespace {

struct Hit {
    unsigned int side;
    float t, u, v;
};

// The distances that slots report after these hits.
std::vector<float> report(const std::vector<Hit>& hits) {
    HitSlots slots;
    slots.clear();
    for (const Hit& hit : hits) slots.add(hit.side, hit.t, hit.u, hit.v, 9);
    std::vector<float> distances;
    slots.flush(0.0001f, [&](const HitSlots::Entry& entry) {
        distances.push_back(entry.t);
        EXPECT_EQ(entry.node, 9);
    });
    return distances;
}

TEST(HitSlots, NearestOfEachSideNearerFirst) {
    using Distances = std::vector<float>;
    EXPECT_EQ(report({}), Distances{});
    EXPECT_EQ(report({{0, 3, 0.1f, 0.1f}, {0, 1, 0.2f, 0.1f}, {0, 2, 0.3f, 0.1f}}), Distances{1});
    EXPECT_EQ(report({{1, 5, 0.9f, 0.9f}}), Distances{5});
    for (const unsigned int side : {0u, 1u}) {
        EXPECT_EQ(report({{side, 2, 0.1f, 0.1f}, {1 - side, 1, 0.1f, 0.1f}}), (Distances{1, 2}));
        // Closer than the separation they are one crossing, in a tie too.
        EXPECT_EQ(report({{side, 1, 0.1f, 0.1f}, {1 - side, 1.00005f, 0.1f, 0.1f}}), Distances{1});
        EXPECT_EQ(report({{side, 1, 0.1f, 0.1f}, {1 - side, 1, 0.1f, 0.1f}}), Distances{1});
    }
}

TEST(HitSlots, QuadrantsAreApartAndReportInOrder) {
    EXPECT_EQ(report({{0, 1, 0.6f, 0.6f}, {0, 2, 0.4f, 0.6f}, {0, 3, 0.6f, 0.4f}, {0, 4, 0.5f, 0.5f}}),
              (std::vector<float>{4, 3, 2, 1}));
}

}  // namespace
}  // namespace sds

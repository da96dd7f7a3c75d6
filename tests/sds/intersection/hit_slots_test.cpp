#include "sds/intersection/hit_slots.h"

#include <gtest/gtest.h>

#include <vector>

namespace sds {
namespace {

std::vector<float> flush(const HitSlots& slots) {
    std::vector<float> distances;
    slots.flush(0.0001f, [&](const HitSlots::Entry& entry) { distances.push_back(entry.t); });
    return distances;
}

class HitSlotsTest : public ::testing::Test {
protected:
    HitSlotsTest() { m_slots.clear(); }
    HitSlots m_slots;
};

TEST_F(HitSlotsTest, EmptySlotsReportNothing) { EXPECT_TRUE(flush(m_slots).empty()); }

TEST_F(HitSlotsTest, NearestOfASideIsKept) {
    for (const float t : {3.0f, 1.0f, 2.0f}) m_slots.add(0, t, 0.25f * t / 3.0f, 0.1f, 9);
    EXPECT_EQ(flush(m_slots), std::vector<float>{1.0f});
    EXPECT_FLOAT_EQ(m_slots.entries[0][0].u, 0.25f / 3.0f);
    EXPECT_EQ(m_slots.entries[0][0].node, 9);
}

TEST_F(HitSlotsTest, BothSidesNearerFirstWhicheverItIs) {
    m_slots.add(0, 2.0f, 0.1f, 0.1f, 0);
    m_slots.add(1, 1.0f, 0.1f, 0.1f, 0);
    EXPECT_EQ(flush(m_slots), (std::vector<float>{1.0f, 2.0f}));
    m_slots.clear();
    m_slots.add(0, 1.0f, 0.1f, 0.1f, 0);
    m_slots.add(1, 2.0f, 0.1f, 0.1f, 0);
    EXPECT_EQ(flush(m_slots), (std::vector<float>{1.0f, 2.0f}));
}

TEST_F(HitSlotsTest, SidesCloserThanTheSeparationAreOneCrossing) {
    m_slots.add(0, 1.0f, 0.1f, 0.1f, 0);
    m_slots.add(1, 1.00005f, 0.1f, 0.1f, 0);
    EXPECT_EQ(flush(m_slots), std::vector<float>{1.0f});
    m_slots.clear();
    m_slots.add(1, 1.0f, 0.1f, 0.1f, 0);
    m_slots.add(0, 1.0f, 0.1f, 0.1f, 0);
    EXPECT_EQ(flush(m_slots).size(), 1u) << "a tie";
}

TEST_F(HitSlotsTest, OneSideAlone) {
    m_slots.add(1, 5.0f, 0.9f, 0.9f, 0);
    EXPECT_EQ(flush(m_slots), std::vector<float>{5.0f});
}

TEST_F(HitSlotsTest, QuadrantsAreApartAndReportInOrder) {
    m_slots.add(0, 1.0f, 0.6f, 0.6f, 0);
    m_slots.add(0, 2.0f, 0.4f, 0.6f, 0);
    m_slots.add(0, 3.0f, 0.6f, 0.4f, 0);
    m_slots.add(0, 4.0f, 0.5f, 0.5f, 0);
    EXPECT_EQ(flush(m_slots), (std::vector<float>{4.0f, 3.0f, 2.0f, 1.0f}));
}

}  // namespace
}  // namespace sds

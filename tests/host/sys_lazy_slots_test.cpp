#include "qn_sys/sys_lazy_slots.h"

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <thread>
#include <vector>

namespace {

TEST(SysLazySlots, MakeEachValueOnce) {
    SysLazySlots<const int> slots(2);
    SysThreadLock lock;
    unsigned int stored = 0;
    const auto get = [&](int value) {
        return slots.get(
            1, lock, [value] { return std::make_unique<const int>(value); },
            [&] {
                EXPECT_NE(slots.find(1), nullptr);
                ++stored;
            });
    };
    EXPECT_THROW(slots.get(
                     1, lock, []() -> std::unique_ptr<int> { throw std::bad_alloc(); }, [] {}),
                 std::bad_alloc);
    EXPECT_EQ(slots.find(1), nullptr);
    const int* const made = get(7);
    EXPECT_EQ(*made, 7);
    EXPECT_EQ(get(8), made);
    EXPECT_EQ(stored, 1u);
    EXPECT_EQ(slots.find(0), nullptr);
    slots.reset(3);
    EXPECT_EQ(slots.get_count(), 3u);
    EXPECT_EQ(slots.find(1), nullptr);
}

// The first thread stays in its making until the second one has begun too, or has had time enough to.
TEST(SysLazySlots, ThreadsThatMeetGetOneValue) {
    SysLazySlots<int[]> slots(1);
    SysThreadLock lock;
    std::atomic<unsigned int> asked{0}, making{0};
    int* found[2] = {};
    const auto make = [&] {
        ++making;
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        while ((asked < 2 || std::chrono::steady_clock::now() < end) && making < 2) std::this_thread::yield();
        return std::make_unique<int[]>(4);
    };
    {
        std::vector<std::jthread> threads;
        for (int*& each : found)
            threads.emplace_back([&] {
                ++asked;
                each = slots.get(0, lock, make, [] {});
            });
    }
    EXPECT_EQ(making, 1u);
    EXPECT_EQ(found[0], found[1]);
    EXPECT_EQ(found[0], slots.find(0));
}

}  // namespace

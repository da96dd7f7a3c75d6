// The SIMD types: every instruction set against the scalar twin, and the twin against what its header says.
#define QN_SIMD_SCALAR 1
#include "qn_simd/simd_float4.h"
#include "qn_simd/simd_float8.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "sds/common/instruction_set.h"
#include "simd_lanes.h"

namespace sds_test {
namespace {

using Limits = std::numeric_limits<float>;
using simd_scalar::SimdFloat8;
constexpr float nan_with_payload = std::bit_cast<float>(0xFFC12345u);

std::vector<float> make_inputs(unsigned int seed) {
    static constexpr float special[] = {0.0f,
                                        -0.0f,
                                        1.0f,
                                        -1.0f,
                                        Limits::infinity(),
                                        -Limits::infinity(),
                                        nan_with_payload,
                                        Limits::max(),
                                        Limits::denorm_min(),
                                        3.0f};
    std::mt19937 random(seed);
    std::vector<float> in(lane_input_count);
    for (float& x : in) {
        // Every other run without what is not finite, so that sums show their order.
        const bool is_special = seed % 2 == 0 && random() % 2 == 0;
        x = is_special ? special[random() % std::size(special)]
                       : std::ldexp(static_cast<float>(random() % 200001) - 1e5f, static_cast<int>(random() % 40) - 30);
    }
    return in;
}

TEST(Simd, EverySetGivesTheBitsOfTheTwin) {
    const std::pair<const char*, LaneOperations> sets[] = {
        {"baseline", baseline_lanes},
        {"AVX2", sds::processor_has_avx2() ? avx2_lanes : nullptr},
        {"AVX-512VL", sds::processor_has_avx512() ? avx512_lanes : nullptr}};
    constexpr unsigned int unset = 0xAAAAAAAAu;
    for (unsigned int seed = 0; seed < 2000; ++seed) {
        const std::vector<float> in = make_inputs(seed);
        std::vector<unsigned int> expected(lane_result_count + 1, unset);
        scalar_lanes(in.data(), expected.data());
        ASSERT_NE(expected[lane_result_count - 1], unset);
        for (const auto& [name, run] : sets) {
            if (run == nullptr) continue;
            std::vector<unsigned int> found(lane_result_count + 1, unset);
            run(in.data(), found.data());
            for (unsigned int i = 0; i <= lane_result_count; ++i)
                ASSERT_EQ(found[i], expected[i]) << name << ", result " << i << ", seed " << seed;
        }
    }
}

std::vector<float> lanes_of(SimdFloat8 v) {
    std::vector<float> lanes(8);
    v.store(lanes.data());
    return lanes;
}

TEST(Simd, EqualAndNanLanesGiveTheSecondOperand) {
    constexpr float a[] = {0.0f, -0.0f, nan_with_payload, 1.0f}, b[] = {-0.0f, 0.0f, 2.0f, nan_with_payload};
    const SimdFloat8 x(a, b), y(b, a);
    for (const SimdFloat8 v : {min(x, y), max(x, y)}) {
        const std::vector<float> found = lanes_of(v), expected = lanes_of(y);
        EXPECT_EQ(std::memcmp(found.data(), expected.data(), sizeof(float) * 8), 0);
    }
    EXPECT_EQ(less_equal_mask(x, y), 0x33);
    EXPECT_EQ(std::memcmp(lanes_of(select_positive(x, x, y)).data(), lanes_of(y).data(), sizeof(float) * 3), 0);
}

TEST(Simd, ShufflesMoveTheLanesTheyName) {
    constexpr float a[] = {0, 1, 2, 3}, b[] = {4, 5, 6, 7}, c[] = {8, 9, 10, 11}, d[] = {12, 13, 14, 15};
    using Lanes = std::vector<float>;
    const SimdFloat8 x(a, b), y(c, d);
    EXPECT_EQ(lanes_of(next_lanes(x)), (Lanes{1, 2, 3, 3, 5, 6, 7, 7}));
    EXPECT_EQ(lanes_of(first_lanes(x)), (Lanes{0, 1, 2, 2, 4, 5, 6, 6}));
    EXPECT_EQ(lanes_of(swap_pairs(x)), (Lanes{2, 3, 0, 1, 6, 7, 4, 5}));
    EXPECT_EQ(lanes_of(swap_neighbors(x)), (Lanes{1, 0, 3, 2, 5, 4, 7, 6}));
    EXPECT_EQ(lanes_of(swap_last(x)), (Lanes{0, 1, 3, 2, 4, 5, 7, 6}));
    EXPECT_EQ(lanes_of(rotate_axes(x)), (Lanes{1, 2, 0, 3, 5, 6, 4, 7}));
    EXPECT_EQ(lanes_of(broadcast_lane<3>(x)), (Lanes{3, 3, 3, 3, 7, 7, 7, 7}));
    EXPECT_EQ(lanes_of(swap_groups(x)), (Lanes{4, 5, 6, 7, 0, 1, 2, 3}));
    EXPECT_EQ(lanes_of(low_pairs(x, y)), (Lanes{0, 1, 8, 9, 4, 5, 12, 13}));
    EXPECT_EQ(lanes_of(high_pairs(x, y)), (Lanes{2, 3, 10, 11, 6, 7, 14, 15}));
    EXPECT_EQ(lanes_of(zip_low(x, y)), (Lanes{0, 8, 1, 9, 4, 12, 5, 13}));
    EXPECT_EQ(lanes_of(zip_high(x, y)), (Lanes{2, 10, 3, 11, 6, 14, 7, 15}));
    EXPECT_EQ(lanes_of(sum_of_four(x, y, x, y)), (Lanes{6, 38, 6, 38, 22, 54, 22, 54}));
    EXPECT_EQ(lanes_of(max_of_four(x, y, x, y)), (Lanes{3, 11, 3, 11, 7, 15, 7, 15}));
    SimdFloat8 rows[4] = {x, y, x + y, x - y};
    transpose(rows[0], rows[1], rows[2], rows[3]);
    EXPECT_EQ(lanes_of(rows[1]), (Lanes{1, 9, 10, -8, 5, 13, 18, -8}));
}

}  // namespace
}  // namespace sds_test

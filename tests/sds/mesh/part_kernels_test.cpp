#include "sds/mesh/part_kernels/part_kernels.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

#include "sds/common/cubic_basis.h"

using namespace sds;

namespace {

double evaluate(const float* coords, double u, double v) {
    const auto bu = CubicBasis<double>::make_symmetric(u), bv = CubicBasis<double>::make_symmetric(v);
    double sum = 0.0;
    for (unsigned int j = 0; j < 4; ++j)
        for (unsigned int i = 0; i < 4; ++i) sum += bv.b[j] * bu.b[i] * static_cast<double>(coords[4 * j + i]);
    return sum;
}

struct Boxed {
    PartBounds bounds;
    PartBoxes boxes{};

    Boxed(const PartKernels& kernels, const float* coords, float margin) {
        kernels.find_bounds(coords, bounds);
        for (unsigned int axis = 0; axis < 3; ++axis) kernels.set_boxes(bounds, margin, axis, boxes);
    }
};

}  // namespace

TEST(PartKernels, BoxesHoldTheirPartOfThePatch) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> coordinate(-3.0f, 5.0f);
    for (unsigned int round = 0; round < 200; ++round) {
        float coords[16];
        for (float& x : coords) x = coordinate(random);
        constexpr float margin = 1e-4f;
        const Boxed patch(get_part_kernels(), coords, margin);
        for (unsigned int part = 0; part < part_count; ++part) {
            const unsigned int u = get_part_u(part), v = get_part_v(part);
            const PartBoxes& boxes = patch.boxes;
            const double origin = boxes.origin[1], step = boxes.step[1];
            const double low = origin + step * boxes.sides[1][0][part], high = origin + step * boxes.sides[1][1][part];
            // Not much wider than the part's control points, and around all of its points.
            EXPECT_GE(low, static_cast<double>(patch.bounds.low[v][u]) - 2.0 * margin - 1.01 * step);
            EXPECT_LE(high, static_cast<double>(patch.bounds.high[v][u]) + 2.0 * margin + 1.01 * step);
            for (unsigned int i = 0; i < 25; ++i) {
                const double x = evaluate(coords, 0.25 * (u + 0.25 * (i % 5)), 0.25 * (v + 0.25 * (i / 5)));
                EXPECT_LE(low, x - 0.99 * margin) << "part " << part;
                EXPECT_GE(high, x + 0.99 * margin) << "part " << part;
            }
        }
    }
}

TEST(PartKernels, AllTablesGiveTheSameBits) {
    std::mt19937 random(2);
    std::uniform_real_distribution<float> coordinate(-1.0f, 1.0f);
    const float wild[] = {0.0f, -0.0f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()};
    for (unsigned int round = 0; round < 400; ++round) {
        float coords[16];
        for (float& x : coords) x = coordinate(random);
        if (round % 2 == 1)
            for (unsigned int i = 0; i < 1 + round % 5; ++i) coords[random() % 16] = wild[random() % 4];
        const Boxed expected(baseline::part_kernels, coords, 1e-5f);
        for (const PartKernels* const* kernels = get_all_part_kernels(); *kernels != nullptr; ++kernels) {
            const Boxed patch(**kernels, coords, 1e-5f);
            EXPECT_EQ(std::memcmp(patch.boxes.sides, expected.boxes.sides, sizeof patch.boxes.sides), 0) << round;
            for (const auto& [a, b] : {std::pair(patch.boxes.origin[2], expected.boxes.origin[2]),
                                       std::pair(patch.boxes.step[2], expected.boxes.step[2])})
                EXPECT_TRUE(a == b || (a != a && b != b)) << round;
        }
    }
}

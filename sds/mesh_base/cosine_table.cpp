#include "sds/mesh_base/cosine_table.h"

#include <atomic>
#include <cmath>

namespace sds {

namespace {

constexpr double angle_step = 0.006135923151542565;  // pi / 512
constexpr float pi = 3.1415927f;
constexpr float two_pi = 6.2831855f;
constexpr float entries_per_radian = 162.97466f;  // 512 / pi

// Taylor's series for |x| up to pi / 4, to less than a rounding of double precision. C libraries differ in the last
// bit of a cosine; arithmetic does not.
constexpr double series_cosine(double x) {
    double sum = 0.0;
    for (int k = 18; k > 0; k -= 2) sum = (1.0 + sum) * (-x * x / (k * (k - 1.0)));
    return 1.0 + sum;
}
constexpr double series_sine(double x) {
    double sum = 0.0;
    for (int k = 19; k > 1; k -= 2) sum = (1.0 + sum) * (-x * x / (k * (k - 1.0)));
    return x + x * sum;
}

// Of 0 to pi. What pi / 2 loses in double precision is added afterwards: near it the cosine is that small.
constexpr double exact_cosine(double x) {
    constexpr double half_pi = 1.5707963267948966, rest = 6.123233995736766e-17;
    if (x > 1.5 * half_pi) return -series_cosine((2.0 * half_pi - x) + 2.0 * rest);
    if (x > 0.5 * half_pi) return series_sine((half_pi - x) + rest);
    return series_cosine(x);
}

struct CosineTable {
    float entries[cosine_table_size];

    constexpr CosineTable() : entries{} {
        double angle = 0.0;
        for (unsigned int k = 0; k < cosine_table_size; ++k, angle += angle_step)
            entries[k] = static_cast<float>(exact_cosine(angle));
    }
};
constexpr CosineTable values;

std::atomic<const float*> table{nullptr};

}  // namespace

void build_cosine_table() { table.store(values.entries, std::memory_order_release); }

const float* cosine_table() { return table.load(std::memory_order_acquire); }

float lookup_cosine(float x) {
    constexpr const float* entries = values.entries;
    // Angles of fans are within the turn already, where the remainder is the angle itself.
    float r = x;
    if (!(x >= 0.0f && x < two_pi)) {
        r = std::fmod(x, two_pi);
        if (r < 0.0f) r += two_pi;
    }
    if (r >= pi) r = two_pi - r;
    const float t = r * entries_per_radian;
    const auto i0 = static_cast<unsigned int>(t);
    const float f = t - static_cast<float>(i0);
    const unsigned int i1 = f > 0.0f ? i0 + 1 : i0;
    return (1.0f - f) * entries[i0] + f * entries[i1];
}

}  // namespace sds

#include "sds/mesh_base/cosine_table.h"

#include <atomic>
#include <cmath>

namespace sds {

namespace {

// Lives until the process ends: threads may read it at any time.
std::atomic<const float*> table{nullptr};

constexpr double angle_step = 0.006135923151542565;  // pi / 512
constexpr float pi = 3.1415927f;
constexpr float two_pi = 6.2831855f;
constexpr float entries_per_radian = 162.97466f;  // 512 / pi

}  // namespace

void build_cosine_table() {
    if (table.load(std::memory_order_acquire) != nullptr) return;
    float* entries = new float[cosine_table_size];
    double angle = 0.0;
    for (unsigned int k = 0; k < cosine_table_size; ++k, angle += angle_step)
        entries[k] = static_cast<float>(std::cos(angle));
    const float* expected = nullptr;
    if (!table.compare_exchange_strong(expected, entries, std::memory_order_acq_rel)) delete[] entries;
}

const float* cosine_table() { return table.load(std::memory_order_acquire); }

float lookup_cosine(float x) {
    const float* entries = table.load(std::memory_order_relaxed);
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

// Scalar constants and predicates.
#pragma once

#include <cmath>

template <class T>
struct GMath;

// s_epsilon: the tolerance of barycentric tests, blend denominators and size differences.
// s_one_minus_epsilon: scales an entry distance back so that a hit on the bound itself is still inside.
template <>
struct GMath<float> {
    static constexpr float s_epsilon = 1e-6f;
    static constexpr float s_one_minus_epsilon = 1.0f - 1e-6f;
};

template <>
struct GMath<double> {
    static constexpr double s_epsilon = 1e-12;
    static constexpr double s_one_minus_epsilon = 1.0 - 1e-12;
};

inline bool gmath_isfinitef(const float& x) { return std::isfinite(x); }
inline bool gmath_isfinited(const double& x) { return std::isfinite(x); }

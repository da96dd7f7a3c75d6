// What the position rules need of a value besides + and * : a zero and a division. One template serves points, pairs of
// points, maps and the components of properties.
#pragma once

#include "qn_gmath/gmath_vec.h"

namespace sds {

template <class Value>
struct ValueOps;

template <class Real>
struct ValueOps<GMathVec3<Real>> {
    using Scalar = Real;
    static constexpr GMathVec3<Real> zero() { return {0, 0, 0}; }
    static constexpr GMathVec3<Real> divide(const GMathVec3<Real>& a, Real s) { return {a[0] / s, a[1] / s, a[2] / s}; }
};

// Two values under the same weights.
template <class Value>
struct ValuePair {
    Value first;
    Value second;

    friend constexpr ValuePair operator+(const ValuePair& a, const ValuePair& b) {
        return {a.first + b.first, a.second + b.second};
    }
    friend constexpr ValuePair operator*(const ValuePair& a, typename ValueOps<Value>::Scalar s) {
        return {a.first * s, a.second * s};
    }
};

template <class Value>
struct ValueOps<ValuePair<Value>> {
    using Scalar = typename ValueOps<Value>::Scalar;
    static constexpr ValuePair<Value> zero() { return {ValueOps<Value>::zero(), ValueOps<Value>::zero()}; }
    static constexpr ValuePair<Value> divide(const ValuePair<Value>& a, Scalar s) {
        return {ValueOps<Value>::divide(a.first, s), ValueOps<Value>::divide(a.second, s)};
    }
};

// A fixed number of components.
template <class Real, unsigned int Count>
struct ValueComponents {
    Real c[Count];

    friend constexpr ValueComponents operator+(ValueComponents a, const ValueComponents& b) {
        for (unsigned int i = 0; i < Count; ++i) a.c[i] += b.c[i];
        return a;
    }
    friend constexpr ValueComponents operator-(ValueComponents a, const ValueComponents& b) {
        for (unsigned int i = 0; i < Count; ++i) a.c[i] -= b.c[i];
        return a;
    }
    friend constexpr ValueComponents operator*(ValueComponents a, Real s) {
        for (unsigned int i = 0; i < Count; ++i) a.c[i] *= s;
        return a;
    }
};

template <class Real, unsigned int Count>
struct ValueOps<ValueComponents<Real, Count>> {
    using Scalar = Real;
    static constexpr ValueComponents<Real, Count> zero() { return {}; }
    static constexpr ValueComponents<Real, Count> divide(ValueComponents<Real, Count> a, Real s) {
        for (unsigned int i = 0; i < Count; ++i) a.c[i] /= s;
        return a;
    }
};

}  // namespace sds

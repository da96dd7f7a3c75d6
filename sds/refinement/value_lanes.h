// Values as they are computed with: the value itself, or lanes of it where that is faster. Both give the same bits. For
// files of the baseline instruction set only.
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "qn_simd/simd_double4.h"
#include "sds/common/value_ops.h"

namespace sds {

template <class Value>
struct ValueLanes {
    using Type = Value;
    static const Value& load(const Value& value) { return value; }
    static void store(const Type& lanes, Value& value) { value = lanes; }
};

struct DoublePointLanes {
    QN_SIMD_NAMESPACE::SimdDouble4 v;

    friend DoublePointLanes operator+(DoublePointLanes a, DoublePointLanes b) { return {a.v + b.v}; }
    friend DoublePointLanes operator-(DoublePointLanes a, DoublePointLanes b) { return {a.v - b.v}; }
    friend DoublePointLanes operator*(DoublePointLanes a, double s) {
        return {a.v * QN_SIMD_NAMESPACE::SimdDouble4(s)};
    }
    double length_squared() const { return (v * v).sum(); }
};

template <>
struct ValueLanes<GMathVec3<double>> {
    using Type = DoublePointLanes;
    static DoublePointLanes load(const GMathVec3<double>& point) {
        return {QN_SIMD_NAMESPACE::SimdDouble4::load3(point.get_data())};
    }
    static void store(const DoublePointLanes& lanes, GMathVec3<double>& point) { lanes.v.store3(point.get_data()); }
};

}  // namespace sds

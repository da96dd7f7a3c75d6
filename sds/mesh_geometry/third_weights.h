// Where areas look at a patch.
#pragma once

namespace sds {

// Cubic Bernstein weights at 0, 1/3, 2/3 and 1, near n/27. Areas depend on these very bits: they are neither rounded
// afresh nor mirrored.
inline constexpr float third_weights[4][4] = {{1.0f, 0.0f, 0.0f, 0.0f},
                                              {0.29629624f, 0.4444444f, 0.22222224f, 0.03703704f},
                                              {0.03703703f, 0.2222222f, 0.44444448f, 0.29629633f},
                                              {0.0f, 0.0f, 0.0f, 1.0f}};

// The curve of four control points at place i of those. Value and Weight are of the including source: kernel_set.h.
template <class Weight, class Value>
[[gnu::always_inline]] inline Value blend_third(unsigned int i, const Value& a, const Value& b, const Value& c,
                                                const Value& d) {
    const float* w = third_weights[i];
    return ((a * Weight(w[0]) + b * Weight(w[1])) + c * Weight(w[2])) + d * Weight(w[3]);
}

}  // namespace sds

// From linear light to display values.
#pragma once

#include <cmath>

namespace sds_render {

// A shoulder and a toe: rational fit of a film curve by K. Narkowicz (2015), scaled so that 1 comes out below white.
inline double apply_filmic_curve(double x) {
    if (!(x > 0.0)) return 0.0;
    x *= 0.62;
    const double inverse = 1.0 / x;  // infinite light is white, not NaN
    return (2.51 + 0.03 * inverse) / (2.43 + (0.59 + 0.14 * inverse) * inverse);
}

// IEC 61966-2-1.
inline double encode_srgb(double x) { return x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1.0 / 2.4) - 0.055; }

}  // namespace sds_render

// Where areas look at a patch.
#pragma once

namespace sds {

// Cubic Bernstein weights at 0, 1/3, 2/3 and 1, near n/27. Areas depend on these very bits: they are neither rounded
// afresh nor mirrored.
inline constexpr float third_weights[4][4] = {{1.0f, 0.0f, 0.0f, 0.0f},
                                              {0.29629624f, 0.4444444f, 0.22222224f, 0.03703704f},
                                              {0.03703703f, 0.2222222f, 0.44444448f, 0.29629633f},
                                              {0.0f, 0.0f, 0.0f, 1.0f}};

}  // namespace sds

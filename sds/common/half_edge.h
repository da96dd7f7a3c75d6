// Half-edge arithmetic of quad meshes.
//
//      corner 3 <--- edge 2 ---- corner 2        half-edge e = 4q + k of quad q runs from corner k to corner (k + 1)
//      mod 4;
//         |                         ^            per-edge and per-corner arrays are indexed by e.
//       edge 3        q           edge 1
//         v                         |
//      corner 0 ---- edge 0 ---> corner 1
#pragma once

#include "qn_core/core_array.h"

namespace sds {

inline constexpr unsigned int none = 0xFFFFFFFF;

constexpr unsigned int quad_of(unsigned int e) { return e >> 2; }
constexpr unsigned int corner_of(unsigned int e) { return e & 3u; }
// The half-edge `steps` corners on (or, negative, back) in the same quad.
constexpr unsigned int turn_in_quad(unsigned int e, int steps) {
    return (e & ~3u) | ((e + static_cast<unsigned int>(steps)) & 3u);
}
constexpr unsigned int next_in_quad(unsigned int e) { return turn_in_quad(e, 1); }
constexpr unsigned int previous_in_quad(unsigned int e) { return turn_in_quad(e, -1); }

}  // namespace sds

// The half-edges of quad meshes and their numbers. Quad q owns four, which turn around it in the order of its corners:
//
//      corner 3 <-- 4q + 2 --- corner 2
//         |                       ^
//       4q + 3        q         4q + 1
//         v                       |
//      corner 0 --- 4q + 0 --> corner 1
//
// The number of a half-edge is also that of the corner it leaves: arrays over either are read at it.
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

// Whether one of a quad's four vertices is none: there is no surface on it. Without such a vertex the first test nearly
// always decides.
constexpr bool is_void_quad(const unsigned int* quad) {
    return (quad[0] | quad[1] | quad[2] | quad[3]) == none &&
           (quad[0] == none || quad[1] == none || quad[2] == none || quad[3] == none);
}

}  // namespace sds

// Numbering of a patch's sixteen control points.
//
// Order by corner, 4k + j: corner k's point (j = 0), the edge point on edge k next to it (1), the interior point next
// to it (2), the edge point on edge k - 1 next to it (3). As a grid with u along the columns (corner 0 to 1) and v
// along the rows (corner 0 to 3):
//
//        v
//        ^    q3: 12 --- 15 ---  9 ---  8 :q2      row 3
//        |        13     14     10     11          row 2
//        |         3      2      6      5          row 1
//        |    q0:  0 ---  1 ---  7 ---  4 :q1      row 0
//        +------> u
#pragma once

namespace sds {

// grid_order[4 * row + column] is the control index of that grid place.
inline constexpr unsigned char grid_order[16] = {0, 1, 7, 4, 3, 2, 6, 5, 13, 14, 10, 11, 12, 15, 9, 8};

// The corner's own control, and its two edge and one interior neighbours.
constexpr unsigned int corner_control(unsigned int k) { return 4 * k; }
constexpr unsigned int leaving_edge_control(unsigned int k) { return 4 * k + 1; }
constexpr unsigned int interior_control(unsigned int k) { return 4 * k + 2; }
constexpr unsigned int arriving_edge_control(unsigned int k) { return 4 * k + 3; }

// Grid places of the corners 0, 1, 2, 3 of a patch or sub-patch.
inline constexpr unsigned char grid_corners[4] = {0, 3, 15, 12};

}  // namespace sds

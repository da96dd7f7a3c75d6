// Numbering of a patch's sixteen control points.
//
// Four in a row belong to each corner: its own point, then its neighbors in the net, turning from the edge that leaves
// it over the inside to the edge that arrives. Drawn as a net:
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

// The other way round: the grid place of a control.
inline constexpr unsigned char grid_places[16] = {0, 1, 5, 4, 3, 7, 6, 2, 15, 14, 10, 11, 12, 8, 9, 13};

// The corner's own control, and its two edge and one interior neighbors.
constexpr unsigned int corner_control(unsigned int k) { return 4 * k; }
constexpr unsigned int leaving_edge_control(unsigned int k) { return 4 * k + 1; }
constexpr unsigned int interior_control(unsigned int k) { return 4 * k + 2; }
constexpr unsigned int arriving_edge_control(unsigned int k) { return 4 * k + 3; }

// Grid places of the corners 0, 1, 2, 3 of a patch or sub-patch.
inline constexpr unsigned char grid_corners[4] = {0, 3, 15, 12};

}  // namespace sds

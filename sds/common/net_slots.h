// Where the derivative nets of a patch have the entries of its corners and edges.
//
// The nets are 24 vectors: differences of the control grid along u, three a row, U[r][i] at 3 r + i, then those along
// v, four a row, V[r][c] at 12 + 4 r + c.
#pragma once

namespace sds {

// The two entries of each corner (bits 0 to 3: first along u, then along v) and of each edge (bits 4 to 7), in the
// order in which they are stored.
inline constexpr unsigned char net_slots[8][2] = {{0, 12},  {2, 15}, {11, 23}, {9, 20},
                                                  {13, 14}, {5, 8},  {21, 22}, {3, 6}};

// Slot by slot of nets that have members u[4][3] and v[3][4].
template <class Nets>
[[gnu::always_inline]] inline auto& get_net_slot(Nets& nets, unsigned int slot) {
    return slot < 12 ? (&nets.u[0][0])[slot] : (&nets.v[0][0])[slot - 12];
}

}  // namespace sds

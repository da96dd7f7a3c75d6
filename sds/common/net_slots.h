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

// The derivatives along edge k, from corner k to the next one, in its direction, change those across it where they are
// not at a corner: bend(u0, u1, u2, first, second) says by how much, near the first end and near the second.
// turn(vector, sign) is the vector times 1 or -1. By numbers, since which edges are bent is hard to foretell.
template <class Nets, class Turn, class Bend>
[[gnu::always_inline]] inline void bend_across_edge(Nets& nets, unsigned int k, const Turn& turn, const Bend& bend) {
    struct Edge {
        unsigned char along[3], across[2];
        signed char along_sign, across_sign;
    };
    static constexpr Edge edges[4] = {{{0, 1, 2}, {1, 2}, 1, 1},
                                      {{3, 7, 11}, {5, 8}, 1, -1},
                                      {{11, 10, 9}, {10, 9}, -1, -1},
                                      {{8, 4, 0}, {6, 3}, -1, 1}};
    const Edge& edge = edges[k];
    decltype(&nets.u[0][0]) const halves[2] = {&nets.u[0][0], &nets.v[0][0]};
    auto *const along = halves[k & 1u], *const across = halves[~k & 1u];
    auto first = along[0], second = along[0];
    bend(turn(along[edge.along[0]], edge.along_sign), turn(along[edge.along[1]], edge.along_sign),
         turn(along[edge.along[2]], edge.along_sign), first, second);
    across[edge.across[0]] = across[edge.across[0]] + turn(first, edge.across_sign);
    across[edge.across[1]] = across[edge.across[1]] + turn(second, edge.across_sign);
}

}  // namespace sds

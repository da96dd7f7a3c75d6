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
template <class Nets, class Negate, class Bend>
[[gnu::always_inline]] inline void bend_across_edge(Nets& nets, unsigned int k, const Negate& negate,
                                                    const Bend& bend) {
    auto& u = nets.u;
    auto& v = nets.v;
    auto u0 = u[0][0], u1 = u[0][1], u2 = u[0][2];
    switch (k) {
        case 0:
            break;
        case 1:
            u0 = v[0][3], u1 = v[1][3], u2 = v[2][3];
            break;
        case 2:
            u0 = negate(u[3][2]), u1 = negate(u[3][1]), u2 = negate(u[3][0]);
            break;
        default:
            u0 = negate(v[2][0]), u1 = negate(v[1][0]), u2 = negate(v[0][0]);
            break;
    }
    decltype(u0) first, second;
    bend(u0, u1, u2, first, second);
    switch (k) {
        case 0:
            v[0][1] = v[0][1] + first, v[0][2] = v[0][2] + second;
            break;
        case 1:
            u[1][2] = u[1][2] - first, u[2][2] = u[2][2] - second;
            break;
        case 2:
            v[2][2] = v[2][2] - first, v[2][1] = v[2][1] - second;
            break;
        default:
            u[2][0] = u[2][0] + first, u[1][0] = u[1][0] + second;
            break;
    }
}

}  // namespace sds

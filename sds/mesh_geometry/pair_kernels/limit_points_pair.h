// Points of the limit surface, two at a time. For the kernels of one instruction set.
#pragma once

#include "sds/common/cubic_basis.h"
#include "sds/common/net_slots.h"
#include "sds/mesh_geometry/pair_kernels/pair_controls.h"

namespace sds {

namespace {

// Below these shares of the patch's size, and of the product of the derivatives, there is only single-precision
// rounding; squared.
constexpr float square_noise = 1e-12f;
// Lengths whose squares lie outside these bounds lose digits to underflow, or overflow.
constexpr float smallest_square = 1e-30f, largest_square = 1e30f;

// For every set of irregular corners and edges, where in the patch's stored tangents (in floats) each one's pair is:
// two vectors per set bit. Where a bit is not set, that of a bit before it.
struct TangentOffsets {
    unsigned char at[256][8];

    constexpr TangentOffsets() : at{} {
        for (unsigned int bits = 0; bits < 256; ++bits) {
            unsigned int found = 0;
            for (unsigned int bit = 0; bit < 8; ++bit) {
                found += (bits >> bit) & 1u;
                at[bits][bit] = static_cast<unsigned char>(found != 0 ? 6 * (found - 1) : 0);
            }
        }
    }
};
constexpr TangentOffsets tangent_offsets;

// Differences of the control points along u and along v.
struct NetPair {
    SimdFloat8 u[4][3], v[3][4];

    explicit NetPair(const ControlPair& c) {
        for (unsigned int r = 0; r < 4; ++r)
            for (unsigned int i = 0; i < 3; ++i) {
                u[r][i] = c[r][i + 1] - c[r][i];
                v[i][r] = c[i + 1][r] - c[i][r];
            }
    }

    // Puts the stored tangents of irregular corners and edges in their places, without a branch per place.
    void replace(const PatchArrays& surface, const unsigned int* primitives) {
        const SdsMeshBase::PatchTangentInfo& a = surface.infos[primitives[0]];
        const SdsMeshBase::PatchTangentInfo& b = surface.infos[primitives[1]];
        const unsigned int bits[2] = {a.irregular & 0xFFu, b.irregular & 0xFFu};
        if ((bits[0] | bits[1]) == 0) return;
        // A patch without tangents reads the first of all.
        const auto find = [&surface](const SdsMeshBase::PatchTangentInfo& info, unsigned int set) {
            return surface.tangents + (set != 0 ? 3 * static_cast<unsigned long>(info.tangent_offset) : 0);
        };
        const float* const stored[2] = {find(a, bits[0]), find(b, bits[1])};
        const unsigned char* const offsets[2] = {tangent_offsets.at[bits[0]], tangent_offsets.at[bits[1]]};
        SimdFloat8 chosen[8];
        spread(SimdFloat8(bit_lanes.lanes[bits[0] & 15u], bit_lanes.lanes[bits[1] & 15u]), chosen);
        spread(SimdFloat8(bit_lanes.lanes[bits[0] >> 4], bit_lanes.lanes[bits[1] >> 4]), chosen + 4);
        const auto put = [&](unsigned int bit) __attribute__((always_inline)) {
            const float* const low = stored[0] + offsets[0][bit];
            const float* const high = stored[1] + offsets[1][bit];
            SimdFloat8& first = get_net_slot(*this, net_slots[bit][0]);
            SimdFloat8& second = get_net_slot(*this, net_slots[bit][1]);
            first = select_positive(chosen[bit], SimdFloat8::load3(low, high), first);
            second = select_positive(chosen[bit], SimdFloat8::load3(low + 3, high + 3), second);
        };
        // Not a loop: the nets stay in registers.
        put(0), put(1), put(2), put(3), put(4), put(5), put(6), put(7);
    }

    // Puts stored nets in the place of the differences.
    void replace_all(const PatchArrays& surface, const unsigned int* primitives) {
        constexpr unsigned int none = 0xFFFFFFFF;
        const unsigned int a = surface.net_places.find(primitives[0]), b = surface.net_places.find(primitives[1]);
        if ((a & b) == none) return;
        const SimdFloat8 chosen(a != none ? 1.0f : 0.0f, b != none ? 1.0f : 0.0f);
        // A patch without nets reads the other's.
        const unsigned int low = a != none ? a : b, high = b != none ? b : a;
        const auto put = [&](unsigned int i, SimdFloat8& entry) {
            entry = select_positive(chosen, load_pair(surface.nets, low + i, high + i), entry);
        };
        for (unsigned int i = 0; i < 12; ++i) {
            put(i, (&u[0][0])[i]);
            put(12 + i, (&v[0][0])[i]);
        }
    }
};

struct Bases {
    QuadraticBasis<SimdFloat8> quadratic;
    CubicBasis<SimdFloat8> cubic;

    explicit Bases(SimdFloat8 t) : quadratic(t), cubic(t, quadratic) {}
    // Two halves each: their sums do not wait for one another.
    SimdFloat8 sum_cubic(SimdFloat8 p0, SimdFloat8 p1, SimdFloat8 p2, SimdFloat8 p3) const {
        return (p0 * cubic.b[0] + p1 * cubic.b[1]) + (p2 * cubic.b[2] + p3 * cubic.b[3]);
    }
    SimdFloat8 sum_quadratic(SimdFloat8 p0, SimdFloat8 p1, SimdFloat8 p2) const {
        return (p0 * quadratic.b[0] + p2 * quadratic.b[2]) + p1 * quadratic.b[1];
    }
};

unsigned int compute_limit_points(const PatchArrays& surface, const PlacePair& places, float* const* points) {
    ControlPair grid;
    const bool is_stored = surface.controls != nullptr;
    const SimdFloat8 origin = is_stored ? load_controls<true>(surface, places.primitives, grid)
                                        : compute_controls<true>(surface, places.primitives, grid);
    NetPair nets(grid);
    if (is_stored)
        nets.replace_all(surface, places.primitives);
    else
        nets.replace(surface, places.primitives);
    const Bases u(SimdFloat8(places.u[0], places.u[1])), v(SimdFloat8(places.v[0], places.v[1]));
    const SimdFloat8 three(3.0f);
    SimdFloat8 rows[4], slopes[4];
    for (unsigned int r = 0; r < 4; ++r) {
        rows[r] = u.sum_cubic(grid[r][0], grid[r][1], grid[r][2], grid[r][3]);
        slopes[r] = u.sum_quadratic(nets.u[r][0], nets.u[r][1], nets.u[r][2]);
    }
    const SimdFloat8 position = origin + v.sum_cubic(rows[0], rows[1], rows[2], rows[3]);
    const SimdFloat8 du = v.sum_cubic(slopes[0], slopes[1], slopes[2], slopes[3]) * three;
    for (unsigned int r = 0; r < 3; ++r) rows[r] = u.sum_cubic(nets.v[r][0], nets.v[r][1], nets.v[r][2], nets.v[r][3]);
    const SimdFloat8 dv = v.sum_quadratic(rows[0], rows[1], rows[2]) * three;

    const SimdFloat8 n = rotate_axes(du * rotate_axes(dv) - rotate_axes(du) * dv);
    const SimdFloat8 diagonal0 = grid[3][3] - grid[0][0], diagonal1 = grid[3][0] - grid[0][3];
    // Squared lengths, one a lane: normal, du, dv; and the longer diagonal.
    float squares[8], diagonals[8];
    sum_of_four(n * n, du * du, dv * dv, dv * dv).store(squares);
    max(diagonal0 * diagonal0, diagonal1 * diagonal1).store(diagonals);
    float scale[2];
    unsigned int degenerate = 0;
    for (unsigned int i = 0; i < 2; ++i) {
        const float square = squares[4 * i], du_square = squares[4 * i + 1], dv_square = squares[4 * i + 2];
        const float* d = diagonals + 4 * i;
        const float noise = square_noise * (d[0] + d[1] + d[2]);
        // Written so that NaN and infinity fail.
        const bool is_good = du_square > noise && dv_square > noise && square > square_noise * du_square * dv_square &&
                             square > smallest_square && square < largest_square;
        degenerate |= (is_good ? 0u : 1u) << i;
        scale[i] = 1.0f / __builtin_sqrtf(square);
    }
    position.store3(points[0], points[1]);
    du.store3(points[0] + 3, points[1] + 3);
    dv.store3(points[0] + 6, points[1] + 6);
    (n * SimdFloat8(scale[0], scale[1])).store3(points[0] + 9, points[1] + 9);
    return degenerate;
}

}  // namespace

}  // namespace sds

// Body of the limit kernels. Included once per instruction set, inside the namespace of that set: no templates or
// inline functions of other headers are used here, so that the linker cannot hand one set's copy to another's caller.

namespace {

using QN_SIMD_NAMESPACE::SimdFloat8;

// The control points of two patches relative to their quads' first vertices, by row and column of the control grid.
using ControlPair = SimdFloat8[4][4];

// Below these shares of the patch's size, and of the product of the derivatives, there is only single-precision
// rounding; squared.
constexpr float square_noise = 1e-12f;
// Squares beyond lose themselves.
constexpr float smallest_square = 1e-30f, largest_square = 1e30f;

constexpr unsigned int turn(unsigned int k, unsigned int by) { return (k + by) & 3u; }

// Lane k is 1 where bit k is set.
struct BitLanes {
    float lanes[16][4];

    constexpr BitLanes() : lanes{} {
        for (unsigned int bits = 0; bits < 16; ++bits)
            for (unsigned int k = 0; k < 4; ++k) lanes[bits][k] = ((bits >> k) & 1u) != 0 ? 1.0f : 0.0f;
    }
};
constexpr BitLanes bit_lanes;

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

inline void spread(SimdFloat8 a, SimdFloat8* lanes) {
    lanes[0] = broadcast_lane<0>(a);
    lanes[1] = broadcast_lane<1>(a);
    lanes[2] = broadcast_lane<2>(a);
    lanes[3] = broadcast_lane<3>(a);
}

// Shares of the points that an edge point is made of, one per corner in the lanes: the corner itself, the edge's other
// end, and the vertices beside them, of which those beside the corner count twice. Sharp edges take 2 : 1 of their
// ends.
struct EdgeShares {
    SimdFloat8 own[4], far[4], beside[4];

    // `sharp` is 1 in the lanes of the corners whose edge is sharp.
    EdgeShares(SimdFloat8 edge_weights, SimdFloat8 sharp) {
        const SimdFloat8 one(1.0f), smooth = one - sharp;
        const SimdFloat8 own_weight = edge_weights * smooth + (sharp + sharp);
        const SimdFloat8 far_weight = one + SimdFloat8(3.0f) * smooth;
        const SimdFloat8 reciprocal = one / (own_weight + (one + SimdFloat8(9.0f) * smooth));
        spread(own_weight * reciprocal, own);
        spread(far_weight * reciprocal, far);
        spread(smooth * reciprocal, beside);
    }
};

// The rules of the smooth patch (Loop and Schaefer 2008, section 3) on two patches at once. Returns the first vertices.
inline SimdFloat8 compute_controls(const LimitSurface& surface, const unsigned int* primitives, ControlPair& grid) {
    // Grid places of each corner's point, of the edge points that leave it and arrive at it, and of its interior point.
    constexpr unsigned char corner_places[4] = {0, 3, 15, 12}, leaving_places[4] = {1, 7, 14, 8};
    constexpr unsigned char arriving_places[4] = {4, 2, 11, 13}, interior_places[4] = {5, 6, 10, 9};
    SimdFloat8* const controls = &grid[0][0];
    const unsigned int* const quads[2] = {surface.quads + 4 * static_cast<unsigned long>(primitives[0]),
                                          surface.quads + 4 * static_cast<unsigned long>(primitives[1])};
    const SdsMeshBase::BezierPatch& a = surface.patches[primitives[0]];
    const SdsMeshBase::BezierPatch& b = surface.patches[primitives[1]];
    const auto load = [](const float* points, unsigned int first, unsigned int second) {
        return SimdFloat8::load3(points + 3 * static_cast<unsigned long>(first),
                                 points + 3 * static_cast<unsigned long>(second));
    };
    const SimdFloat8 origin = load(surface.vertices, quads[0][0], quads[1][0]);
    SimdFloat8 q[4];
    for (unsigned int k = 0; k < 4; ++k) {
        q[k] = load(surface.vertices, quads[0][k], quads[1][k]) - origin;
        controls[corner_places[k]] = load(surface.corners, quads[0][k], quads[1][k]) - origin;
    }

    const SimdFloat8 edge_weights(a.edge_weights, b.edge_weights);
    const unsigned int sharp_a = a.sharp_edges & 15u, sharp_b = b.sharp_edges & 15u;
    const EdgeShares leaving(edge_weights, SimdFloat8(bit_lanes.lanes[sharp_a], bit_lanes.lanes[sharp_b]));
    const EdgeShares arriving(edge_weights, SimdFloat8(bit_lanes.lanes[((sharp_a << 1) | (sharp_a >> 3)) & 15u],
                                                       bit_lanes.lanes[((sharp_b << 1) | (sharp_b >> 3)) & 15u]));
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int next = turn(k, 1);
        // Sharp edges have no use for a neighbour and may have none.
        const bool is_sharp_a = ((sharp_a >> k) & 1u) != 0, is_sharp_b = ((sharp_b >> k) & 1u) != 0;
        const auto neighbour = [&](unsigned int i) {
            return load(surface.vertices, is_sharp_a ? quads[0][0] : a.neighbour_vertices[2 * k + i],
                        is_sharp_b ? quads[1][0] : b.neighbour_vertices[2 * k + i]) -
                   origin;
        };
        const SimdFloat8 beside = neighbour(0) + q[turn(k, 3)], beside_next = neighbour(1) + q[turn(k, 2)];
        const SimdFloat8 both = beside + beside_next;
        controls[leaving_places[k]] =
            (q[k] * leaving.own[k] + q[next] * leaving.far[k]) + (both + beside) * leaving.beside[k];
        controls[arriving_places[next]] =
            (q[next] * arriving.own[next] + q[k] * arriving.far[next]) + (both + beside_next) * arriving.beside[next];
    }

    const SimdFloat8 corner_weights(a.corner_weights, b.corner_weights);
    const SimdFloat8 reciprocal = SimdFloat8(1.0f) / (corner_weights + SimdFloat8(5.0f));
    SimdFloat8 own[4], opposite[4];
    spread(corner_weights * reciprocal, own);
    spread(reciprocal, opposite);
    const SimdFloat8 across[2] = {(q[1] + q[3]) * SimdFloat8(2.0f), (q[0] + q[2]) * SimdFloat8(2.0f)};
    for (unsigned int k = 0; k < 4; ++k)
        controls[interior_places[k]] = q[k] * own[k] + (across[k & 1u] + q[turn(k, 2)]) * opposite[k];
    return origin;
}

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
    void replace(const LimitSurface& surface, const unsigned int* primitives) {
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
        const auto put = [&](unsigned int bit, SimdFloat8& first, SimdFloat8& second) {
            const float* const low = stored[0] + offsets[0][bit];
            const float* const high = stored[1] + offsets[1][bit];
            first = select_positive(chosen[bit], SimdFloat8::load3(low, high), first);
            second = select_positive(chosen[bit], SimdFloat8::load3(low + 3, high + 3), second);
        };
        put(0, u[0][0], v[0][0]);
        put(1, u[0][2], v[0][3]);
        put(2, u[3][2], v[2][3]);
        put(3, u[3][0], v[2][0]);
        put(4, v[0][1], v[0][2]);
        put(5, u[1][2], u[2][2]);
        put(6, v[2][1], v[2][2]);
        put(7, u[1][0], u[2][0]);
    }
};

struct Bases {
    SimdFloat8 cubic[4], quadratic[3];

    explicit Bases(SimdFloat8 t) {
        const SimdFloat8 s = SimdFloat8(1.0f) - t, three(3.0f);
        quadratic[0] = s * s;
        quadratic[1] = SimdFloat8(2.0f) * t * s;
        quadratic[2] = t * t;
        cubic[0] = quadratic[0] * s;
        cubic[1] = three * t * quadratic[0];
        cubic[2] = three * quadratic[2] * s;
        cubic[3] = quadratic[2] * t;
    }
    SimdFloat8 sum_cubic(SimdFloat8 a, SimdFloat8 b, SimdFloat8 c, SimdFloat8 d) const {
        return (a * cubic[0] + b * cubic[1]) + (c * cubic[2] + d * cubic[3]);
    }
    SimdFloat8 sum_quadratic(SimdFloat8 a, SimdFloat8 b, SimdFloat8 c) const {
        return (a * quadratic[0] + c * quadratic[2]) + b * quadratic[1];
    }
};

unsigned int compute_pair(const LimitSurface& surface, const LimitPlaces& places, float* const* points) {
    ControlPair grid;
    const SimdFloat8 origin = compute_controls(surface, places.primitives, grid);
    NetPair nets(grid);
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
        // NaN and what overflows fail.
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

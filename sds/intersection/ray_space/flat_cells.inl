// Flat cells of a patch in the plane across a ray. Included by ray_kernels_body.inl only, once per instruction set: no
// templates or inline functions of other headers are used here.

constexpr double barycentric_epsilon = 1e-6;

// The two triangles (c0, c1, c2) and (c0, c2, c3) of a flat cell against the origin of the plane. Products of two
// floats are exact in double and their difference is rounded once, so the sign of every edge function is exact, and
// equal for the two triangles that share the edge: a ray is inside one of them or on both. The slack widens each
// triangle, as in the reference family.
struct FlatCell {
    double p[4], q[4];  // corners in cyclic order

    template <class Report>
    void intersect(Report&& report) const {
        // Edge function of corners i, j: twice the area of the triangle that they span with the origin.
        const double e01 = p[0] * q[1] - p[1] * q[0];
        const double e12 = p[1] * q[2] - p[2] * q[1];
        const double e20 = p[2] * q[0] - p[0] * q[2];
        const double e23 = p[2] * q[3] - p[3] * q[2];
        const double e30 = p[3] * q[0] - p[0] * q[3];
        test(e12, e20, e01, false, report);
        test(e23, e30, -e20, true, report);
    }

private:
    // Weights of c0, the second and the third corner, before the division by their sum.
    template <class Report>
    static void test(double w0, double w1, double w2, bool upper, Report&& report) {
        const double det = w0 + w1 + w2;
        if (det == 0.0) return;
        const double slack = barycentric_epsilon * (det < 0.0 ? -det : det);
        const bool inside =
            det > 0.0 ? w0 >= -slack && w1 >= -slack && w2 >= -slack : w0 <= slack && w1 <= slack && w2 <= slack;
        if (inside) report(w1 / det, w2 / det, upper, det);
    }
};

// Cell coordinates from the barycentric ones of the second and third corner.
inline void cell_place(double b1, double b2, bool upper, double& a, double& b) {
    a = upper ? b1 : b1 + b2;
    b = upper ? b1 + b2 : b2;
}

inline float blend_range(double w, float low, float high) {
    const double x = (1.0 - w) * static_cast<double>(low) + w * static_cast<double>(high);
    return static_cast<float>(x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x));
}

// Bernstein weights at i / 2^level, in order 0 1 3 2. Reversing the direction exchanges 0 with 3 and 1 with 2, to the
// same bits.
struct CellWeights {
    float w[4];

    constexpr CellWeights() : w{} {}
    constexpr CellWeights(unsigned int i, unsigned int level) : w{} {
        const float t = static_cast<float>(i) / static_cast<float>(1u << level);
        const float s = 1.0f - t;
        w[0] = s * s * s;
        w[1] = 3.0f * (t * (s * s));
        w[2] = t * t * t;
        w[3] = 3.0f * ((t * t) * s);
    }
};

constexpr unsigned int table_level = 6;

struct WeightTable {
    CellWeights at[(1u << table_level) + 1];

    constexpr WeightTable() {
        for (unsigned int i = 0; i <= 1u << table_level; ++i) at[i] = CellWeights(i, table_level);
    }
};

constexpr WeightTable weight_table;

inline CellWeights get_cell_weights(unsigned int i, unsigned int level) {
    return level <= table_level ? weight_table.at[i << (table_level - level)] : CellWeights(i, level);
}

// One of the 2^level x 2^level flat cells of a patch.
struct Cell {
    unsigned int i, j, level;

    // Its corners in the plane. Weights and sums are symmetric, and at the patch's edges all but the edge's own points
    // have weight 0: patches that share an edge get its corners to the same bits.
    FlatCell get_corners(const SimdFloat8* rows) const {
        const CellWeights u0 = get_cell_weights(i, level), u1 = get_cell_weights(i + 1, level);
        const SimdFloat8 curve0 = get_curve(rows, get_cell_weights(j, level));
        const SimdFloat8 curve1 = get_curve(rows, get_cell_weights(j + 1, level));
        const SimdFloat8 weights0(u0.w, u0.w), weights1(u1.w, u1.w);
        float c[8];
        sum_of_four(curve0 * weights0, curve0 * weights1, curve1 * weights1, curve1 * weights0).store(c);
        const auto corner = [&c](unsigned int k) { return static_cast<double>(c[k]); };
        return {{corner(0), corner(1), corner(2), corner(3)}, {corner(4), corner(5), corner(6), corner(7)}};
    }

private:
    static SimdFloat8 get_curve(const SimdFloat8* rows, const CellWeights& v) {
        return swap_last((rows[0] * SimdFloat8(v.w[0]) + rows[3] * SimdFloat8(v.w[2])) +
                         (rows[1] * SimdFloat8(v.w[1]) + rows[2] * SimdFloat8(v.w[3])));
    }
};

// Reports the hits of one ray with a flat cell; distances come from the patch.
inline void intersect_cell(const Cell& cell, const SimdFloat8* rows, const float (*controls)[16], const RaySpace& ray,
                           RayHits& hits) {
    cell.get_corners(rows).intersect([&](double b1, double b2, bool upper, double det) {
        const DepthPatch depths(controls, ray);
        const float size = 1.0f / static_cast<float>(1u << cell.level);
        const float u[2] = {static_cast<float>(cell.i) * size, static_cast<float>(cell.i + 1) * size};
        const float v[2] = {static_cast<float>(cell.j) * size, static_cast<float>(cell.j + 1) * size};
        double a = 0.0, b = 0.0;
        cell_place(b1, b2, upper, a, b);
        // Distances of the triangle's corners: c0, then second and third.
        const double t0 = static_cast<double>(depths.evaluate(u[0], v[0]));
        const double t1 = static_cast<double>(depths.evaluate(u[1], v[upper ? 1 : 0]));
        const double t2 = static_cast<double>(depths.evaluate(u[upper ? 0 : 1], v[1]));
        const double t = (1.0 - b1 - b2) * t0 + b1 * t1 + b2 * t2;
        add_hit(hits, static_cast<float>(t), blend_range(a, u[0], u[1]), blend_range(b, v[0], v[1]), size, det <= 0.0);
    });
}

// The patch in a frame of the plane in which its own directions stand across each other, up to scale: the boxes of its
// sub-patches then hold little but the sub-patches. `slack` is what a coordinate of theirs may be off: products of
// the frame and the points, and four dozen roundings of halves, each below 2^-24 of the largest product. Seen nearly
// edge-on, or not finite, the patch stays as it is.
struct SkewedPatch {
    SimdFloat8 rows[4];
    SimdFloat8 slack;

    explicit SkewedPatch(const SimdFloat8* r) {
        float first[8], last[8];
        r[0].store(first);
        r[3].store(last);
        const float ep = (first[3] - first[0]) + (last[3] - last[0]), eq = (first[7] - first[4]) + (last[7] - last[4]);
        const float dp = (last[0] - first[0]) + (last[3] - first[3]), dq = (last[4] - first[4]) + (last[7] - first[7]);
        const float det = ep * dq - dp * eq;
        constexpr float edge_on = 0.01f;  // squared sine of the angle
        const bool usable = det * det > edge_on * ((ep * ep + eq * eq) * (dp * dp + dq * dq));
        const SimdFloat8 own = usable ? SimdFloat8(dq, ep) : SimdFloat8(1.0f);
        const SimdFloat8 other = usable ? SimdFloat8(-dp, -eq) : SimdFloat8(0.0f);
        const SimdFloat8 zero(0.0f);
        SimdFloat8 largest(0.0f);
        for (unsigned int i = 0; i < 4; ++i) {
            rows[i] = r[i] * own + swap_groups(r[i]) * other;
            largest = max(largest, max(r[i], zero - r[i]));
        }
        largest = group_max(largest);
        const SimdFloat8 products = largest * max(own, zero - own) + swap_groups(largest) * max(other, zero - other);
        slack = products * SimdFloat8(0x1p-18f);
    }
};

// The weights of limit tangents in fans of quads, apart from where vertices stand. Trig gives cosines: TableTrig the
// process-wide single-precision table, ExactTrig the library's, for double-precision checks.
#pragma once

#include <cmath>

#include "sds/mesh_base/cosine_table.h"

namespace sds {

struct TableTrig {
    using Real = float;
    static constexpr float pi = 3.1415927f;
    static constexpr float third = 0.33333334f;
    static float cosine(float x) { return lookup_cosine(x); }
    static float sine(float x) { return lookup_sine(x); }
};

struct ExactTrig {
    using Real = double;
    static constexpr double pi = 3.14159265358979323846;
    static constexpr double third = 1.0 / 3.0;
    static double cosine(double x) { return std::cos(x); }
    static double sine(double x) { return std::sin(x); }
};

// Fans of more quads have one frame for all their corners: a sum per corner would cost the square of the valence.
inline constexpr unsigned int max_summed_valence = 32;

// Tangents of the limit surface in a closed fan of n quads (Halstead, Kass, DeRose 1993, appendix A): the eigenvectors
// of the subdivision matrix to the subdominant eigenvalue, scaled so that valence 4 gives the derivatives of the
// B-spline. At angle x an edge neighbor weighs edge * cos(x) and a diagonal neighbor diagonal * cos(x).
template <class Trig>
struct ClosedFanScale {
    using Real = typename Trig::Real;
    Real half_step, edge, diagonal;

    explicit ClosedFanScale(unsigned int n) {
        const Real inverse = Real(1) / static_cast<Real>(n);
        half_step = inverse * Trig::pi;
        const Real c = Trig::cosine(half_step);
        diagonal = Real(1) / (std::sqrt(c * c + Real(4)) * static_cast<Real>(n));
        edge = diagonal * c + inverse;
    }
};

// The weights of neighbor i of a closed fan in its first tangent.
template <class Trig>
struct ClosedFanWeights {
    using Real = typename Trig::Real;
    Real edge[max_summed_valence]{}, diagonal[max_summed_valence]{};

    ClosedFanWeights() = default;
    explicit ClosedFanWeights(unsigned int valence) {
        const ClosedFanScale<Trig> scale(valence);
        Real angle = 0;
        for (unsigned int i = 0; i < valence; ++i, angle += Real(2) * scale.half_step) {
            edge[i] = Trig::cosine(angle) * scale.edge;
            diagonal[i] = Trig::cosine(angle + scale.half_step) * scale.diagonal;
        }
    }
};

// Of all summed valences, made once: cosines took half of the time of a tangent.
template <class Trig>
const ClosedFanWeights<Trig>& closed_fan_weights(unsigned int valence) {
    struct Table {
        ClosedFanWeights<Trig> at[max_summed_valence + 1];
        Table() {
            for (unsigned int n = 1; n <= max_summed_valence; ++n) at[n] = ClosedFanWeights<Trig>(n);
        }
    };
    static const Table table;
    return table.at[valence];
}

// Cosine of the angle of one of `turns` quads around a vertex.
template <class Trig>
[[gnu::always_inline]] inline typename Trig::Real turn_cosine(unsigned int turns) {
    using Real = typename Trig::Real;
    constexpr unsigned int table_size = 2 * max_summed_valence + 1;
    struct Table {
        Real at[table_size];
        Table() {
            at[0] = Real(1);  // no fan has none
            for (unsigned int n = 1; n < table_size; ++n) at[n] = compute(n);
        }
        static Real compute(unsigned int n) { return Trig::cosine(Real(2) * Trig::pi / static_cast<Real>(n)); }
    };
    static const Table table;
    return turns < table_size ? table.at[turns] : Table::compute(turns);
}

// The weights in the cross tangent of an open fan of m > 1 quads. Edge k is k steps from the leaving sharp edge.
template <class Trig>
struct OpenFanScale {
    using Real = typename Trig::Real;
    Real step, r, end;  // `end` weighs the far ends of both sharp edges

    explicit OpenFanScale(unsigned int m) {
        step = Real(1) / static_cast<Real>(m) * Trig::pi;
        const Real c = Trig::cosine(step);
        r = Real(3) * static_cast<Real>(m) + c;
        end = -((Real(2) * c + Real(1)) * std::sqrt(c + Real(1))) / (std::sqrt(Real(1) - c) * r);
    }
    Real sine(int k) const { return Trig::sine(static_cast<Real>(k) * step); }
    // Of the far end of edge k, and of the diagonal between the edges k - 1 and k.
    Real edge(unsigned int k) const { return Real(4) * sine(static_cast<int>(k)) / r; }
    Real diagonal(unsigned int k) const { return (sine(static_cast<int>(k) - 1) + sine(static_cast<int>(k))) / r; }
};

// The same, and the cosines and sines of the edges' angles, ready.
template <class Trig>
struct OpenFanWeights {
    using Real = typename Trig::Real;
    Real step{}, end{};
    Real edges[max_summed_valence + 1]{}, diagonals[max_summed_valence + 1]{};
    Real cosines[max_summed_valence + 1]{}, sines[max_summed_valence + 1]{};

    OpenFanWeights() = default;
    explicit OpenFanWeights(unsigned int m) {
        const OpenFanScale<Trig> scale(m);
        step = scale.step;
        end = scale.end;
        for (unsigned int k = 0; k <= m; ++k) {
            edges[k] = scale.edge(k);
            diagonals[k] = scale.diagonal(k);
            cosines[k] = Trig::cosine(static_cast<Real>(k) * step);
            sines[k] = scale.sine(static_cast<int>(k));
        }
    }
    Real edge(unsigned int k) const { return edges[k]; }
    Real diagonal(unsigned int k) const { return diagonals[k]; }
    template <class Vec>
    Vec tangent(const Vec& x, const Vec& y, unsigned int i) const {
        return x * cosines[i] + y * sines[i];
    }
};

// Of all summed valences, made once.
template <class Trig>
const OpenFanWeights<Trig>& open_fan_weights(unsigned int valence) {
    struct Table {
        OpenFanWeights<Trig> at[max_summed_valence + 1];
        Table() {
            for (unsigned int m = 2; m <= max_summed_valence; ++m) at[m] = OpenFanWeights<Trig>(m);
        }
    };
    static const Table table;
    return table.at[valence];
}

}  // namespace sds

#include "sds/refinement/dart_masks.h"

#include <cmath>
#include <mutex>

namespace sds {

namespace {

// out = weights * matrix: what weights of the next level's ring mean on this one.
void pull_back(unsigned int n, const CoreArray<double>& weights, CoreArray<double>& out) {
    out.assign(2 * n + 1, 0.0);
    const auto edge = [n](unsigned int i) { return 1 + i % n; };
    const auto diagonal = [n](unsigned int i) { return 1 + n + i % n; };
    const auto add_face_point = [&](unsigned int i, double w) {
        out[0] += 0.25 * w;
        out[edge(i)] += 0.25 * w;
        out[edge(i + 1)] += 0.25 * w;
        out[diagonal(i)] += 0.25 * w;
    };
    const double count = n;
    out[0] += weights[0] * (count - 2.0) / count;
    for (unsigned int i = 0; i < n; ++i) {
        out[edge(i)] += weights[0] / (count * count);
        add_face_point(i, weights[0] / (count * count));
        add_face_point(i, weights[diagonal(i)]);
        const double share = i == 0 ? 0.5 : 0.25;
        out[0] += share * weights[edge(i)];
        out[edge(i)] += share * weights[edge(i)];
        if (i == 0) continue;
        add_face_point(i, 0.25 * weights[edge(i)]);
        add_face_point(i + n - 1, 0.25 * weights[edge(i)]);
    }
}

double norm(const CoreArray<double>& weights) {
    double sum = 0.0;
    for (const double w : weights) sum += w * w;
    return std::sqrt(sum);
}

double sum_of(const CoreArray<double>& weights) {
    double sum = 0.0;
    for (const double w : weights) sum += w;
    return sum;
}

// The leading left eigenvector of the invariant subspace that `weights` lies in, which `restrict` brings it back to
// when rounding has led it astray.
template <class Restrict>
void iterate(unsigned int n, CoreArray<double>& weights, const Restrict& restrict_to_subspace) {
    constexpr unsigned int max_steps = 4000;
    CoreArray<double> next;
    for (unsigned int step = 0; step < max_steps; ++step) {
        pull_back(n, weights, next);
        restrict_to_subspace(next);
        const double scale = 1.0 / norm(next);
        double change = 0.0;
        for (unsigned int i = 0; i < next.get_count(); ++i) {
            next[i] *= scale;
            change += std::fabs(next[i] - weights[i]);
        }
        weights.swap(next);
        if (change < 1e-15) break;
    }
}

// The part of `weights` that a mirror in the sharp edge keeps (sign 1) or turns round (sign -1).
void mirror(unsigned int n, double sign, CoreArray<double>& weights) {
    const auto pair = [&](unsigned int i, unsigned int j) {
        const double half = 0.5 * (weights[i] + sign * weights[j]);
        weights[i] = half;
        weights[j] = sign * half;
    };
    pair(0, 0);
    for (unsigned int i = 0; i <= n / 2; ++i) pair(1 + i, 1 + (i == 0 ? 0 : n - i));
    for (unsigned int i = 0; i < (n + 1) / 2; ++i) pair(1 + n + i, 1 + n + (n - 1 - i));
}

void make_mask(unsigned int n, DartMask& mask) {
    const double turn = 2.0 * 3.14159265358979323846 / n;
    mask.limit.assign(2 * n + 1, 0.0);
    mask.along.assign(2 * n + 1, 0.0);
    mask.across.assign(2 * n + 1, 0.0);
    mask.limit[0] = 1.0;
    for (unsigned int i = 0; i < n; ++i) {
        mask.along[1 + i] = std::cos(i * turn);
        mask.along[1 + n + i] = std::cos((i + 0.5) * turn);
        mask.across[1 + i] = std::sin(i * turn);
        mask.across[1 + n + i] = std::sin((i + 0.5) * turn);
    }
    iterate(n, mask.limit, [](CoreArray<double>&) {});
    const double total = sum_of(mask.limit);
    for (double& w : mask.limit) w /= total;
    iterate(n, mask.along, [n](CoreArray<double>& w) {
        mirror(n, 1.0, w);
        const double mean = sum_of(w) / static_cast<double>(w.get_count());
        for (double& x : w) x -= mean;
    });
    iterate(n, mask.across, [n](CoreArray<double>& w) { mirror(n, -1.0, w); });
}

}  // namespace

const DartMask& dart_mask(unsigned int valence) {
    static DartMask masks[max_dart_valence + 1];
    static std::once_flag is_made[max_dart_valence + 1];
    std::call_once(is_made[valence], [valence] { make_mask(valence, masks[valence]); });
    return masks[valence];
}

}  // namespace sds

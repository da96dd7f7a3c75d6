// Many points of the limit surface at once.
#include <algorithm>

#include "sds/mesh_geometry/patch_arrays.h"

using LimitPlace = SdsMeshGeometry::LimitPlace;
using LimitPoint = SdsMeshGeometry::LimitPoint;

namespace {

using sds::PatchArrays;

static_assert(sizeof(LimitPoint) == 12 * sizeof(float));

// How many places ahead a patch's record, and how many its points, are asked for. Places come in no order, and every
// one reads a dozen lines of memory.
constexpr unsigned int records_ahead = 12;
constexpr unsigned int points_ahead = 6;

// Inlined, since compilers leave out calls of functions that do nothing else.
[[gnu::always_inline]] inline void prefetch_controls(const PatchArrays& surface, unsigned int primitive) {
    const auto* controls = reinterpret_cast<const char*>(surface.controls + 48 * size_t{primitive});
    for (unsigned int i = 0; i < 192; i += 64) __builtin_prefetch(controls + i);
    const unsigned int offset = surface.net_places.find(primitive);
    if (offset == sds::none) return;
    const auto* nets = reinterpret_cast<const char*>(surface.nets + 3 * size_t{offset});
    for (unsigned int i = 0; i < 288; i += 64) __builtin_prefetch(nets + i);
}

[[gnu::always_inline]] inline void prefetch_record(const PatchArrays& surface, unsigned int primitive) {
    if (surface.controls != nullptr) return __builtin_prefetch(surface.net_places.words + primitive / 32);
    __builtin_prefetch(surface.quads + 4 * size_t{primitive});
    __builtin_prefetch(surface.infos + primitive);
    const auto* patch = reinterpret_cast<const char*>(surface.patches + primitive);
    __builtin_prefetch(patch);
    __builtin_prefetch(patch + sizeof(SdsMeshBase::BezierPatch) - 1);
}

[[gnu::always_inline]] inline void prefetch_points(const PatchArrays& surface, unsigned int primitive) {
    if (surface.controls != nullptr) return prefetch_controls(surface, primitive);
    const unsigned int* quad = surface.quads + 4 * size_t{primitive};
    for (unsigned int k = 0; k < 4; ++k) {
        __builtin_prefetch(surface.vertices + 3 * size_t{quad[k]});
        __builtin_prefetch(surface.corners + 3 * size_t{quad[k]});
    }
    __builtin_prefetch(surface.tangents + 3 * size_t{surface.infos[primitive].tangent_offset});
}

// The controls of a small surface's patches, of the one that a thread read last: making them takes as long as a third
// of a point does otherwise. 560 KB, which the second-level cache of a core holds.
class ReadyControls {
public:
    static constexpr unsigned int max_patch_count = 2048;

    // Begins with none for a surface that is not the last one; `stamp` is that of its positions, not 0.
    void begin(std::uint64_t stamp) {
        if (stamp == m_stamp) return;
        std::fill_n(m_is_ready, max_patch_count, false);
        m_stamp = stamp;
    }
    void require(const PatchArrays& surface, unsigned int a, unsigned int b) {
        if (m_is_ready[a] && m_is_ready[b]) return;
        const unsigned int primitives[2] = {a, b};
        sds::LocalControls* const out[2] = {m_controls + a, m_controls + b};
        sds::get_pair_kernels().compute_local_controls(surface, primitives, out);
        m_is_ready[a] = m_is_ready[b] = true;
    }
    const sds::LocalControls* get_data() const { return m_controls; }

private:
    std::uint64_t m_stamp = 0;
    bool m_is_ready[max_patch_count] = {};
    sds::LocalControls m_controls[max_patch_count];
};

// What is read of a patch whose controls are ready.
[[gnu::always_inline]] inline void prefetch_ready(const PatchArrays& surface, unsigned int primitive) {
    const auto* controls = reinterpret_cast<const char*>(surface.local + primitive);
    for (unsigned int i = 0; i < sizeof(sds::LocalControls); i += 64) __builtin_prefetch(controls + i);
    __builtin_prefetch(surface.tangents + 3 * size_t{surface.infos[primitive].tangent_offset});
}

}  // namespace

void SdsMeshGeometry::compute_limit_points(const LimitPlace* places, const unsigned int& count, LimitPoint* out) const {
    if (arrays.bezier_patches.is_empty() && refinement == nullptr) {
        for (unsigned int i = 0; i < count; ++i) out[i] = compute_limit_point(places[i]);
        return;
    }
    PatchArrays surface = sds::get_patch_arrays(*this);
    static thread_local ReadyControls ready;
    const bool is_small = refinement == nullptr && arrays.positions_stamp != 0 && count > 1 &&
                          arrays.bezier_patches.get_count() <= ReadyControls::max_patch_count;
    if (is_small) ready.begin(arrays.positions_stamp);
    const sds::PairKernels& kernels = sds::get_pair_kernels();
    for (unsigned int i = 0; i < count; i += 2) {
        // The last of an odd number takes both groups of lanes.
        const unsigned int second = i + 1 < count ? i + 1 : i;
        for (unsigned int ahead = 0; ahead < 2; ++ahead) {
            if (is_small) {
                if (i + points_ahead + ahead < count && surface.local != nullptr)
                    prefetch_ready(surface, places[i + points_ahead + ahead].primitive);
                continue;
            }
            if (i + records_ahead + ahead < count)
                prefetch_record(surface, places[i + records_ahead + ahead].primitive);
            if (i + points_ahead + ahead < count) prefetch_points(surface, places[i + points_ahead + ahead].primitive);
        }
        const LimitPlace& a = places[i];
        const LimitPlace& b = places[second];
        if (is_patch_void(a.primitive) || is_patch_void(b.primitive)) {
            out[i] = compute_limit_point(a);
            out[second] = compute_limit_point(b);
            continue;
        }
        if (is_small) {
            surface.local = nullptr;
            ready.require(surface, a.primitive, b.primitive);
            surface.local = ready.get_data();
        }
        float* const points[2] = {reinterpret_cast<float*>(out + i), reinterpret_cast<float*>(out + second)};
        const unsigned int degenerate =
            kernels.compute_limit_points(surface, {{a.primitive, b.primitive}, {a.u, b.u}, {a.v, b.v}}, points);
        if ((degenerate & 1u) != 0) out[i] = compute_limit_point(a);
        if ((degenerate & 2u) != 0) out[second] = compute_limit_point(b);
    }
}

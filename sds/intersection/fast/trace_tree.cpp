#include "sds/intersection/fast/trace_tree.h"

#include <bit>
#include <cstdint>

#include "qn_ctx/ctx_eval.h"
#include "sds/intersection/fast/ray_hand_over.h"

namespace sds {

namespace {

constexpr unsigned int packet_size = 8;
// Fewer rays are as fast one by one.
constexpr unsigned int min_packet_size = 3;
constexpr unsigned int no_patch = 0xFFFFFFFF;

// The next double above a finite one.
double next_above(double x) {
    if (x == 0.0) return std::numeric_limits<double>::denorm_min();
    const auto bits = std::bit_cast<std::uint64_t>(x);
    return std::bit_cast<double>(x > 0.0 ? bits + 1 : bits - 1);
}

// Up to eight rays on their way through the hierarchy, and what each has met.
class TreeTrace {
public:
    TreeTrace(const CtxEval& ctx, const RayTree& tree, const TreeSurface& surface, bool is_limit,
              GeometryRaytraceCtx& rays)
        : m_ctx(ctx),
          m_tree(tree),
          m_surface(surface),
          m_rays(rays),
          m_hits(ctx.get_thread()->get_scratch().acquire<RayHits>()),
          m_is_limit(is_limit) {
        m_hits.step_count = m_hits.dropped_count = m_hits.unsettled_count = 0;
    }

    void add(unsigned int i, const GeometryRaySpace& space, float shared_extent) {
        Slot& slot = m_slots[m_count];
        slot.ray = i;
        slot.is_any = m_rays.get_ray(i).mode == GeometryRayMode::any;
        slot.patch = no_patch;
        slot.t = m_rays.get_tfar(i);
        m_spaces[m_count++] = {space.origin,
                               space.across,
                               space.along,
                               space.shift,
                               m_rays.get_tnear(i),
                               m_rays.get_tfar(i),
                               find_edge_slack(space, shared_extent)};
    }
    bool is_full() const { return m_count == packet_size; }

    // Traces what was added and hands on the hits.
    void finish() {
        const TreeSink sink = get_sink();
        if (m_count < min_packet_size || !m_kernels.trace_tree_packet(m_tree, m_spaces, m_count, sink, m_hits))
            for (unsigned int k = 0; k < m_count; ++k) m_kernels.trace_tree(m_tree, m_spaces[k], sink, k, m_hits);
        for (unsigned int k = 0; k < m_count; ++k) hand_on(m_slots[k]);
        m_count = 0;
    }
    // The same for the first.
    void finish_single() {
        m_kernels.trace_tree(m_tree, m_spaces[0], get_sink(), 0, m_hits);
        hand_on(m_slots[0]);
    }
    void log() const { log_limits(m_is_limit ? "adaptive" : "estimate", m_hits); }

private:
    struct Slot {
        unsigned int ray, patch;
        double t;
        float u, v, cell;
        unsigned int node;
        bool is_any;
    };

    void hand_on(const Slot& s) {
        if (s.patch == no_patch) return;
        const bool accepted = push_hit(m_ctx, s.patch, m_rays, s.ray, s.t, s.u, s.v, s.cell);
        if (m_is_limit && accepted && m_rays.is_ray_finished(s.ray))
            m_rays.set_occluder(s.ray, {s.patch, s.node, &m_hits});
    }

    TreeSink get_sink() {
        if (m_tree.groups != nullptr) return {this, &trace_patch, &take_from_group};
        return {this, &trace_patch, &take};
    }

    static void trace_patch(void* self, unsigned int patch, unsigned int parts, const RaySpace& ray, RayHits& hits) {
        const auto& trace = *static_cast<const TreeTrace*>(self);
        const float(*controls)[16] = trace.m_surface.get_controls(trace.m_ctx, patch).coords;
        if (trace.m_is_limit)
            trace.m_kernels.adaptive_parts(controls, ray, parts, hits);
        else
            trace.m_kernels.estimate_parts(controls, ray, trace.m_surface.get_level(patch), parts, hits);
    }

    static double take(void* self, unsigned int k, unsigned int patch, const RayHits& hits) {
        return take_all(
            self, k, hits, [patch](const RayHit&) { return patch; }, [](const RayHit&, Slot&) {});
    }
    // Cells are kept by the group's coordinates.
    static double take_from_group(void* self, unsigned int k, unsigned int group, const RayHits& hits) {
        const PatchGroup& patches = static_cast<TreeTrace*>(self)->m_tree.groups[group];
        return take_all(
            self, k, hits, [&](const RayHit& hit) { return patches.get_patch(hit.part); },
            [&](const RayHit& hit, Slot& slot) {
                const unsigned int level = patches.get_level(hit.part);
                const auto scale = static_cast<float>(1u << level);
                slot.u = hit.u * scale - static_cast<float>(get_part_u(hit.part) >> (2 - level));
                slot.v = hit.v * scale - static_cast<float>(get_part_v(hit.part) >> (2 - level));
                slot.cell = hit.cell * scale;
            });
    }

    // The nearest stays; at the same distance that of the patch that comes first.
    template <class FindPatch, class SetPlace>
    static double take_all(void* self, unsigned int k, const RayHits& hits, const FindPatch& find_patch,
                           const SetPlace& set_place) {
        Slot& slot = static_cast<TreeTrace*>(self)->m_slots[k];
        const double shift = static_cast<TreeTrace*>(self)->m_spaces[k].shift;
        for (unsigned int h = 0; h < hits.count; ++h) {
            const RayHit& hit = hits.hits[h];
            const double t = shift + static_cast<double>(hit.t);
            if (!(t <= slot.t)) continue;
            const unsigned int patch = find_patch(hit);
            if (t == slot.t && patch >= slot.patch) continue;
            slot.patch = patch;
            slot.t = t;
            slot.u = hit.u;
            slot.v = hit.v;
            slot.cell = hit.cell;
            slot.node = h;
            set_place(hit, slot);
        }
        // One that has what it wanted ends nowhere.
        return slot.is_any ? -std::numeric_limits<double>::infinity() : next_above(slot.t);
    }

    const CtxEval& m_ctx;
    const RayTree& m_tree;
    const TreeSurface& m_surface;
    GeometryRaytraceCtx& m_rays;
    RayHits& m_hits;
    const RayKernels& m_kernels = get_ray_kernels();
    bool m_is_limit;
    unsigned int m_count = 0;
    Slot m_slots[packet_size];
    RaySpace m_spaces[packet_size];
};

}  // namespace

void trace_tree(const CtxEval& ctx, const RayTree& tree, const TreeSurface& surface, bool is_limit, float shared_extent,
                GeometryRaytraceCtx& rays) {
    if (ctx.get_thread() == nullptr) return;
    TreeTrace trace(ctx, tree, surface, is_limit, rays);
    if (rays.get_first_ray() == rays.get_last_ray()) {
        const unsigned int i = rays.get_first_ray();
        if (rays.is_ray_finished(i)) return;
        const GeometryRaySpace& space = rays.get_ray_space(i);
        if (!can_meet(space)) return;
        trace.add(i, space, shared_extent);
        trace.finish_single();
        return trace.log();
    }
    for (unsigned int i = rays.get_first_ray(); i <= rays.get_last_ray(); ++i) {
        if (rays.is_ray_finished(i)) continue;
        const GeometryRaySpace& space = rays.get_ray_space(i);
        if (!can_meet(space)) continue;
        trace.add(i, space, shared_extent);
        if (trace.is_full()) trace.finish();
    }
    trace.finish();
    trace.log();
}

}  // namespace sds

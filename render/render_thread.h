// What one render thread carries: evaluation context, packet buffers, counters.
#pragma once

#include <cstdint>

#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"

namespace sds_render {

// A hit that a ray had before it was offered a primitive, and how far it went then.
struct KeptHit {
    GeometryHit hit;
    double tfar = 0.0;
};

// Used by one thread at a time. Nothing is allocated after construction but the traversal scratch, which grows once.
class alignas(64) RenderThread {
public:
    static constexpr unsigned int packet_size = 16;

    // `shader` outlives the thread's state.
    explicit RenderThread(const CtxShader& shader) : m_eval(shader, &m_thread) {}
    RenderThread(const RenderThread&) = delete;
    RenderThread& operator=(const RenderThread&) = delete;

    const CtxEval& get_eval() const { return m_eval; }
    // Room for the hits of a packet's rays while they are offered a primitive.
    KeptHit* get_kept_hits() { return m_kept_hits; }

    // Rays traced, and those that hit something.
    std::uint64_t ray_count = 0;
    std::uint64_t hit_count = 0;

private:
    CtxThread m_thread;
    CtxEval m_eval;
    KeptHit m_kept_hits[packet_size];
};

}  // namespace sds_render

// The evaluation context: what a render thread carries through every call.
#pragma once

#include "qn_core/core_export.h"
#include "qn_gas_base/gas_scratch.h"
#include "qn_gmath/gmath_time_sampling.h"

// Shutter of the frame.
class CtxMotionBlur {
public:
    // The times at which the renderer samples motion; none when the frame has no motion blur.
    const GMathTimeSampling& get_time_sampling() const { return m_sampling; }
    void set_time_sampling(const GMathTimeSampling& sampling) { m_sampling = sampling; }

private:
    GMathTimeSampling m_sampling;
};

class CtxShader {
public:
    const CtxMotionBlur& get_motion_blur() const { return m_motion_blur; }
    CtxMotionBlur& get_motion_blur() { return m_motion_blur; }

private:
    CtxMotionBlur m_motion_blur;
};

// One per render thread.
class CtxThread {
public:
    GasScratch& get_scratch() { return m_scratch; }
    // For what is worth keeping from one call to the next.
    GasScratch& get_kept_scratch() { return m_kept_scratch; }

private:
    GasScratch m_scratch;
    GasScratch m_kept_scratch;
};

// A light view of the thread's entry and the frame's shader context; both outlive it. Used by one thread.
class CtxEval {
public:
    explicit CtxEval(const CtxShader& shader, CtxThread* thread = nullptr) : m_shader(&shader), m_thread(thread) {}

    const CtxShader* get_shader_ctx() const { return m_shader; }
    // Null on a thread without scratch: intersection calls then do nothing.
    CtxThread* get_thread() const { return m_thread; }

private:
    const CtxShader* m_shader;
    CtxThread* m_thread;
};

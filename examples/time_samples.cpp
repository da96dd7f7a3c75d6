// Motion from time samples that are loaded when a ray first needs them: a cube that rises and falls back.
#include <cmath>
#include <cstdio>

#include "cube_surface.h"

namespace {

// Called at most once per sample, one call at a time, from whichever thread asks first.
class RisingCube : public SdsMeshGeometry::SampleLoader {
public:
    explicit RisingCube(const CoreArray<GMathVec3<float>>& rest) : m_rest(&rest) {}

    void get_positions(const GMathTimeSampling& sampling, const unsigned int& sample, GMathVec3<float>* out) override {
        std::printf("sample %u is loaded\n", sample);
        const auto time = static_cast<float>(sampling.get_sample_time(sample));
        const GMathVec3<float> rise(0.0f, 0.0f, time * (1.0f - time));
        for (unsigned int i = 0; i < m_rest->get_count(); ++i) out[i] = (*m_rest)[i] + rise;
    }

private:
    const CoreArray<GMathVec3<float>>* m_rest;
};

double trace_down(const SdsMesh& mesh, const CtxEval& ctx, double time) {
    GeometryRay ray;
    ray.origin = {0.1, 0.2, 5.0};
    ray.direction = {0.0, 0.0, -1.0};
    ray.time = time;
    GeometryRaytraceData data;
    data.has_motion_blur = true;
    GeometryRaytraceCtx rays(&ray, 1, data);
    for (unsigned int quad = 0; quad < mesh.get_primitive_count(); ++quad) mesh.intersect_primitive(ctx, quad, rays);
    return ray.hit.t;
}

}  // namespace

int main() {
    CubeSurface cube;
    double times[] = {0.0, 0.5, 1.0};
    const GMathTimeSampling sampling({3, times});
    cube.geometry.set_positions_sampling(
        sampling, CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>(new RisingCube(cube.positions)));

    // The shutter's own samples tell between which times the renderer's boxes are blended.
    CtxShader shader;
    shader.get_motion_blur().set_time_sampling(sampling);
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    const double still = trace_down(cube.mesh, ctx, 0.0);
    for (const double time : {0.25, 0.5, 0.75})
        std::printf("time %.2f: t = %.4f\n", time, trace_down(cube.mesh, ctx, time));

    // Between samples the surface is linear: half of the way up at a quarter of the time.
    return std::fabs(still - trace_down(cube.mesh, ctx, 0.25) - 0.125) < 1e-5 ? 0 : 1;
}

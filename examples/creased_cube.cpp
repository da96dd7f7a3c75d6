// A cube whose top keeps a crease of sharpness 2.5, whose bottom is infinitely sharp and whose front is a hole:
// sharpness per face-corner, refinement to three levels.
#include <cmath>
#include <cstdio>

#include "qn_ctx/ctx_eval.h"
#include "sds/mesh/sds_mesh.h"

int main() {
    CoreArray<GMathVec3<float>> positions(8);  // vertex i at x, y, z = +-1 by the bits 0, 1, 2 of i
    for (unsigned int i = 0; i < 8; ++i)
        positions[i] = {i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f};
    unsigned int indices[] = {0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5};
    const CoreArray<unsigned int> counts(6, 4), groups(6, 0);

    SdsRefinement refinement;
    refinement.depth = 3;
    // Face-corner c stands for the edge from it to the next corner of its polygon. One side of an edge is enough.
    refinement.edge_sharpness.assign(24, 0.0f);
    for (unsigned int c = 0; c < 4; ++c) refinement.edge_sharpness[c] = 10.0f;  // the bottom, z = -1: infinitely sharp
    for (unsigned int c = 4; c < 8; ++c) refinement.edge_sharpness[c] = 2.5f;   // the top, z = 1
    refinement.holes.assign(6, static_cast<unsigned char>(0));
    refinement.holes[2] = 1;  // the polygon at y = -1 shapes its neighbours and has no surface

    SdsMeshBase base;
    base.set_refinement(refinement);
    base.set(8, {24, indices}, counts, groups, CoreArray<CoreString>(1, "cube"), nullptr);
    SdsMeshGeometry geometry;
    geometry.set(base, positions, {}, SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
    SdsMeshMaps maps;
    maps.set(base, counts, {}, {}, SdsMeshMaps::InterpolationMode::corners_fixed, nullptr);
    SdsMesh surface;
    surface.set(geometry, maps, 0, nullptr);

    // Primitives are patches now; a place on a quad of the cage, here the middle of the bottom's first edge, is found.
    const SdsMesh::PrimitivePlace place = surface.find_primitive(0, 0.5, 0.0);
    const CtxShader shader;
    GeometrySample sample;
    surface.compute_fragment_sample(CtxEval(shader), {place.primitive, place.u, place.v, 0.0, 0.0}, sample);
    const GMathVec3<double>& p = sample.get_geometric_position();
    std::printf("%u patches; the bottom's edge passes (%.3f, %.3f, %.3f)\n", surface.get_primitive_count(), p[0], p[1],
                p[2]);
    // An infinitely sharp loop in one plane stays in it.
    return std::fabs(p[2] + 1.0) < 1e-6 && surface.get_primitive_count() > 5 ? 0 : 1;
}

// Limit corners of vertices without sharp edges. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_double4.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;

// The operations of limit_point (position_rules.h) in their order, on the coordinates in the lanes.
unsigned int compute_smooth_corners(const CornerArrays& mesh, unsigned int begin, unsigned int end, float* corners) {
    constexpr unsigned int none = 0xFFFFFFFF;
    for (unsigned int v = begin; v < end; ++v) {
        const unsigned int e = mesh.first_edges[v];
        if (e == none || (mesh.infos[v].bits & SdsMeshBase::VertexInfo::keep_bits) != 0) {
            for (unsigned long i = 3 * static_cast<unsigned long>(v), axis = 0; axis < 3; ++axis)
                corners[i + axis] = mesh.points[i + axis];
            continue;
        }
        // The records of fans are large: a corner that is not irregular lies inside a smooth fan of four.
        unsigned int first = e, valence = 4;
        if ((mesh.tangent_infos[e >> 2].irregular >> (e & 3u) & 1u) != 0) {
            const SdsMeshBase::VertexLocalTopology& fan = mesh.fans[e];
            if (!fan.closed) return v;
            first = fan.first_edge;
            valence = fan.valence;
        }
        if ((mesh.infos[v].bits & 3u) == 3) return v;
        const double n = static_cast<double>(valence);
        SimdDouble4 sum = SimdDouble4::widen3(mesh.points + 3 * static_cast<unsigned long>(v)) * SimdDouble4(n * n);
        unsigned int h = first;
        do {
            const unsigned int* const quad = mesh.quads + (h & ~3u);
            const unsigned int edge = quad[(h + 1) & 3u], diagonal = quad[(h + 2) & 3u];
            if (edge == none || diagonal == none) return v;
            sum = (sum + SimdDouble4::widen3(mesh.points + 3 * static_cast<unsigned long>(edge)) * SimdDouble4(4.0)) +
                  SimdDouble4::widen3(mesh.points + 3 * static_cast<unsigned long>(diagonal));
            const unsigned int across = mesh.opposite_edges[h];
            h = (across & ~3u) | ((across + 1) & 3u);
        } while (h != first);
        (sum / SimdDouble4(5.0 * n + n * n)).store_rounded3(corners + 3 * static_cast<unsigned long>(v));
    }
    return end;
}

}  // namespace

}  // namespace sds

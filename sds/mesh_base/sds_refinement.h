// SdsRefinement: what a subdivision surface is refined by, beyond one patch per quad of its cage.
//
// Given to SdsMeshBase before it is built. At depth 0 the other settings have no effect, and the surface is one patch
// per quad: exact where the quad and its neighborhood are regular, close elsewhere. At other depths quads that are not
// regular are split, level by level, until they are or the depth is reached; regular quads of any level are the limit
// surface itself. The primitives of such a surface are its patches, of several sizes; users go on seeing the quads of
// depth 0 and (u, v) on them (SdsMesh::get_primitive_place, SdsMesh::find_primitive).
#pragma once

#include "qn_core/core_array.h"

struct SdsRefinement {
    static constexpr unsigned int max_depth = 10;

    // Levels after the quads of depth 0; more than max_depth counts as max_depth.
    unsigned int depth = 0;
    // Above 0, quads around an irregular vertex stop being refined when its control point is this close to its limit,
    // as a share of the diagonal of the control positions' box; the surface is then off by about a tenth of it there.
    // `depth` is the cap. Every build then looks at its positions anew.
    float error = 0.0f;
    // How fractional sharpness decays: by 1 a level, or drawn to that of the neighbors along the crease.
    bool chaikin = false;
    // Triangles weigh more in the edge points of the first step.
    bool smooth_triangles = false;
    // No surface on polygons that touch a border, but for borders tagged infinitely sharp; overrides the border rule of
    // the interpolation mode.
    bool open_borders = false;
    // UV maps and per-vertex properties are refined too, with irregular vertices of their own.
    bool refine_maps = false;
    // Per face-corner, of the edge that leaves it, or empty. 0 is smooth, 10 and above infinitely sharp, and so are the
    // edges of the thread's PolyCreaseScope. An edge is as sharp as the sharper of its two sides; negative numbers and
    // NaN count as 0, more than 7 as infinite.
    CoreArray<float> edge_sharpness;
    // Per control vertex, or empty.
    CoreArray<float> vertex_sharpness;
    // Per polygon, non-zero where it is a hole, or empty. Holes have no patches; neighbors are shaped as beside any
    // other polygon.
    CoreArray<unsigned char> holes;
};

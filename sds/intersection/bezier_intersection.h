// Rays and frusta against one bicubic Bezier patch, given by its sixteen control points in corner order
// (sds/common/control_grid.h).
//
// All three subdivide the patch by de Casteljau halving with a pool of 128 nodes in the calling thread's scratch, which
// they reach through the evaluation context: without scratch they do nothing. Any number of threads may test patches at
// once, each with its own context. No allocation per node or hit. When the pool runs out a node is taken as a leaf at a
// coarser level; how often that happened is logged once per call at level 2. Control points are trusted to be finite; a
// NaN never gives a hit.
//
// Patch coordinates (u, v): corner 0 at (0, 0), corner 1 at (1, 0), corner 2 at (1, 1), corner 3 at (0, 1).
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "sds/common/sds_export.h"

class CtxEval;
class GeometryFrustumCtx;
class GeometryRaytraceCtx;

// Rays against the limit patch: sub-patches are halved along their longer side until a halving no longer shrinks the
// box by more than max(3, |cx| + |cy| + |cz|) * epsilon, c the centre of the patch's box; each remaining one is reduced
// to its centre. Per ray and quadrant of the patch at most one hit per facing side is reported, those nearer than
// 0.0001 to each other once.
SDS_EXPORT void ray_bezier_intersection_adaptive(const CtxEval& ctx, const unsigned int& primitive,
                                                 const GMathVec3<float>* controls, GeometryRaytraceCtx& rays);

// Rays against the uniform tessellation of 2^count x 2^count cells, each the two triangles (c0, c1, c2) and (c0, c2,
// c3) of its corners.
SDS_EXPORT void ray_bezier_intersection_estimate(const CtxEval& ctx, const unsigned int& primitive,
                                                 const GMathVec3<float>* controls, GeometryRaytraceCtx& rays,
                                                 const unsigned int& count);

// Selection by a frustum at `count` levels. Mode 0: some cell touches the frustum. Mode 1: the corners of all 4^count
// cells lie inside. Adds 1 to the context's selected_count when the patch is selected; mode 1 also raises the partial
// flag when a part lies outside.
SDS_EXPORT void frustum_bezier_intersection(const CtxEval& ctx, const unsigned int& primitive,
                                            const GMathVec3<float>* controls, GeometryFrustumCtx& frustum,
                                            const unsigned int& count);

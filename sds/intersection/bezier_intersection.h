// One patch against rays and frusta, for hosts that have sixteen control points and no mesh. The points come in corner
// order (sds/common/control_grid.h); corner 0 is at (u, v) = (0, 0), the next ones at (1, 0), (1, 1) and (0, 1).
//
// Working memory is the calling thread's scratch, reached through the evaluation context; a context without a thread
// makes every call a no-op, as does a frustum context without a frustum. Threads with contexts of their own may test
// any patches at once. Only a scratch that is still too small allocates. Points are expected to be finite; NaN among
// them gives no hit.
//
// Rays have two families of kernels, chosen by GeometryRaytraceData::kernel_family. The default one works in the plane
// across the ray: Newton's method to single precision on the limit patch, exact signs on flat cells. It keeps the 32
// nearest hits of a ray in its range and looks at cells of up to 24 levels. The reference family halves the patch in
// space, and frusta do too, in a pool of 128 sub-patches; one that finds no room for its halves is tested as it is.
// What a call had to leave out or take coarser it tells in one log line of level 2.
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "sds/common/sds_export.h"

class CtxEval;
class GeometryFrustumCtx;
class GeometryRaytraceCtx;

// The limit patch. Of the crossings in each quarter of the parameter square the nearest towards either side of the
// surface is offered, and of two that are not 0.0001 apart the nearer only. The reference kernels end where halving no
// longer shrinks a sub-patch's box by more than s_epsilon * max(3, |cx| + |cy| + |cz|), (cx, cy, cz) the middle of the
// patch's box, and report a sub-patch's middle.
SDS_EXPORT void ray_bezier_intersection_adaptive(const CtxEval& ctx, const unsigned int& primitive,
                                                 const GMathVec3<float>* controls, GeometryRaytraceCtx& rays);

// The patch as 2^count cells along either side, each of them flat: two triangles that share the diagonal from the
// cell's lowest corner (u, v) to its highest.
SDS_EXPORT void ray_bezier_intersection_estimate(const CtxEval& ctx, const unsigned int& primitive,
                                                 const GMathVec3<float>* controls, GeometryRaytraceCtx& rays,
                                                 const unsigned int& count);

// Whether a frustum takes the patch, by the corners of its 4^count cells: in mode 0 when a cell reaches into it, in
// mode 1 when no corner is outside. A patch that is taken counts once in the context's selected_count. In mode 1
// anything found outside is left in the partial flag.
SDS_EXPORT void frustum_bezier_intersection(const CtxEval& ctx, const unsigned int& primitive,
                                            const GMathVec3<float>* controls, GeometryFrustumCtx& frustum,
                                            const unsigned int& count);

#pragma once

#include "model/mesh_properties.h"
#include "model/surface.h"
#include "render/batch.h"

#include <vector>

// The border between users, who know quads and (u, v) on them, and meshes, whose primitives are patches where the
// surface is refined. Without refinement both are the same. All is safe from any number of threads.
namespace sds_model {

/// Values per sample of `sample_row`.
inline constexpr unsigned int sample_row_size = 15;

/// Writes position, dP/du, dP/dv, normal and smoothing normal, three values each.
void sample_row(const GeometrySample& sample, double* out);

/// A place on a quad, as the place on a primitive that a mesh is asked by.
struct PatchFragment {
    bool has_surface = false;  ///< false on holes; then nothing else counts
    GeometryFragment fragment;
    GeometryPlace turned;  ///< for its turn_to_face: derivatives by the primitive's (u, v) into those by the quad's
};
PatchFragment find_patch(const SdsMesh& mesh, const GeometryFragment& on_quad);

/// A hit as its quad, with (u, v) there; misses stay what they are.
void move_to_quad(const SdsMesh& mesh, GeometryHit& hit);

/// sample_row of the surface where a ray hit, with the derivatives by the quad's u and v.
void sample_hit(const SdsMesh& mesh, const CtxEval& ctx, const GeometryHit& hit, double time, double* out);

/// sample_row of the surface at a place on a quad, with the derivatives by the quad's u and v; NaN on holes.
void sample_on_quad(const SdsMesh& mesh, const CtxEval& ctx, const GeometryFragment& on_quad, double* out);

/// Value, d/du and d/dv of a property at a place on a quad, get_extent() numbers each; NaN on holes. `mesh` is the
/// property's.
void evaluate_on_quad(const SurfaceProperty& property, const SdsMesh& mesh, const CtxEval& ctx,
                      const GeometryFragment& on_quad, double* out);

/// The quads that a frustum selects, in increasing order: some patch of theirs is selected, or all of them are. Of a
/// patch that covers four quads each is looked at by its part of the control net, so that touching may find one too
/// many near the frustum's border, and holding one too few.
std::vector<unsigned int> select_quads(const SdsMesh& mesh, const GeometryFrustum& frustum,
                                       sds_render::SelectMode mode);

/// Whether some patch covers the quad; not so for holes.
bool has_surface(const SdsMesh& mesh, unsigned int quad);

}  // namespace sds_model

// A cage with tags, refined by the rules under test, beside what OpenSubdiv makes of it.
#pragma once

#include "oracles/mesh_zoo.h"
#include "oracles/opensubdiv_oracle.h"
#include "oracles/surface_errors.h"
#include "sds/mesh_base/sds_refinement.h"
#include "sds/refinement/refined_patches.h"

namespace sds_test {

// The crease flags of a cage, all infinitely sharp, and nothing else.
TaggedCage tag_cage(const ZooMesh& mesh);
// Sets the sharpness of the edges along a path of vertices.
void sharpen(TaggedCage& cage, const std::vector<unsigned int>& path, float sharpness);

// What a base is told to refine the cage so. The cage's border rule is the geometry's mode, but for `none`.
SdsRefinement refinement_of(const TaggedCage& cage, unsigned int depth);
// A torus of quads but for one, which is two triangles: its regular quads stay whole. With its positions as UVs.
ZooMesh make_cut_torus();

void build_topology(const TaggedCage& cage, unsigned int depth, sds::RefinedTopology& topology, double error = 0.0,
                    bool may_have_siblings = false);

struct RefinedSurface {
    RefinedSurface(const TaggedCage& cage, unsigned int depth, double error = 0.0);

    sds::RefinedTopology topology;
    sds::RefinedPatches patches;  // with all nets
    std::vector<Vec3d> controls;  // exact, 16 per patch
    std::vector<NetsD> nets;      // exact
    double diagonal;

    unsigned int get_patch_count() const { return topology.get_places().get_patch_count(); }
    unsigned int get_support_count() const;
    // Exact position and derivatives by the user quad's (u, v), at (s, t) of a patch.
    SurfacePoint evaluate(unsigned int patch, double s, double t) const;
};

// Errors as shares of the diagonal and degrees, over a grid of steps + 1 points a side on every
// patch; steps is a power of two, so that places are exact.
struct RefinedErrors {
    double regular = 0.0;         // position on regular patches
    double regular_normal = 0.0;  // where there is a normal
    double regular_single = 0.0;  // of the rounded controls
    double leaf_position = 0.0;
    double leaf_distance = 0.0;  // along the normal
    ErrorSummary normals;        // of all patches, area-weighted by patch side
    double mean_position = 0.0;
};
RefinedErrors measure_refined(const RefinedSurface& surface, const OpenSubdivOracle& oracle, unsigned int steps = 8);

}  // namespace sds_test

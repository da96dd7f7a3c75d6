// The control points and derivative nets of a refined surface's patches, from the positions of its cage.
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "sds/refinement/refined_topology.h"

namespace sds {

// Which patches get their derivative nets stored. The nets of the others are to be formed from their controls.
enum class NetStorage : unsigned char {
    never,
    // Leaves, and patches so small beside their distance from the origin that differences of rounded controls would
    // bend their normals.
    where_needed,
    all,
};

// Arrays in the order of the topology's flat list. Built by one thread, then read by any number.
struct RefinedPatches {
    using Vec3f = GMathVec3<float>;
    using Vec3d = GMathVec3<double>;

    // Sixteen controls per patch, by corner (see control_grid.h). Shared edges have the same bits on both sides; where
    // a coarse patch meets finer ones, theirs are its edge's halves.
    CoreArray<Vec3f> controls;
    // Per patch: where its 24 vectors begin in `nets`, or none; U[r][i] at 3r + i, V[r][c] at 12 + 4r + c, to be
    // multiplied by 3 for derivatives by the patch's (u, v).
    CoreArray<unsigned int> net_offsets;
    CoreArray<Vec3f> nets;

    // `positions` holds one per vertex of the cage, or any other vectors that follow the same weights, as motion
    // vectors do. Reuses the arrays.
    void build(const RefinedTopology& topology, const CoreBasicArray<Vec3f>& positions, NetStorage storage);
    // The same with nets for the patches that have them in `other`, which is of the same topology.
    void build_like(const RefinedPatches& other, const RefinedTopology& topology,
                    const CoreBasicArray<Vec3f>& positions);

    size_t get_memory_size() const;

private:
    void make_room(unsigned int patch_count);
};

// The unrounded controls of every patch, `out` of sixteen per patch, and `nets` of 24 per patch when not null: what the
// above are rounded from, but for edges that were handed down. For measuring.
void compute_exact_patches(const RefinedTopology& topology, const CoreBasicArray<GMathVec3<float>>& positions,
                           GMathVec3<double>* out, GMathVec3<double>* nets);

}  // namespace sds

// UV indices that say what is joined, from those of a file.
#pragma once

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"
#include "qn_gmath/gmath_vec.h"

// A UV map whose polygons share a UV point only where they hang together on the mesh.
struct PolyUvJoin {
    CoreArray<unsigned int> indices;  // UV point per face-corner, 0xFFFFFFFF where it has none
    CoreArray<unsigned int> sources;  // per point of the new map: the given point that it is a copy of
    unsigned int split_points = 0;    // points that came: copies for other places of the mesh
    unsigned int welded_points = 0;   // points that went: others at their place were equal

    bool is_changed() const { return split_points + welded_points != 0; }
};

// A subdivided map pairs its polygons by UV index alone. Charts that lie on top of each other on the same points would
// therefore be sewn together, and a file with a point of its own for every face-corner would come apart at every edge.
//
// Two face-corners of a mesh vertex are joined when an edge of exactly two polygons lies between them, in either
// direction, and both have the same UV point; a chain of such pairs around the vertex is joined too. So
//   - a point that is used at several vertices, or by several sectors of a fan, is split: one place keeps it, each
//     further place gets a copy;
//   - where the polygons of a vertex form several fans, at bow-ties and edges of three polygons and more, they share
//   one
//     place on the mesh, and so does a point that they share; no chart is sewn to another by that;
//   - a seam that ends at a vertex, or only touches itself there, keeps its point: one end of an edge is enough.
//
// A map in which no point has a second use counts as written without indices: where two polygons have equal points (u,
// v and w, exactly) at both ends of their edge, the edge is no seam, and all but the first of the points go. In other
// maps nothing is welded, so that seams between equal values stay seams.
//
// The given points keep their order and come first, copies follow; points that nothing used stay. A map with indices
// that say what is joined comes back as it was. Polygons with a vertex index 0xFFFFFFFF are joined to nobody.
//
// Trusts its input: counts add up to the number of indices, vertex indices are below vertex_count, UV indices below the
// number of points or 0xFFFFFFFF, one per face-corner. Linear in face-corners, vertices and points for any input,
// but for a sort of the corners at vertices of several fans. May be called by any number of threads at once.
QN_EXPORT PolyUvJoin poly_join_uvs(unsigned int vertex_count, const CoreBasicArray<unsigned int>& polygon_counts,
                                   const CoreBasicArray<unsigned int>& polygon_indices,
                                   const CoreBasicArray<GMathVec3<float>>& uv_points,
                                   const CoreBasicArray<unsigned int>& uv_indices);

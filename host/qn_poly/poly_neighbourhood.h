// Edge adjacency of polygon meshes.
#pragma once

#include "qn_app_base/app_progress_bar.h"
#include "qn_core/core_array.h"
#include "qn_core/core_export.h"

// Three answers for every face-corner, about the edge that leaves it along its polygon's border:
//   neighbour_polygons  which polygon lies across, 0xFFFFFFFF for none
//   neighbour_edges     which of that polygon's edges it is, counted from its first; 0xFFFFFFFF likewise
//   edge_smooth_flags   1 for smooth edges, 0 for creases
//
// Two face-corners that share an edge are paired whatever their direction. An edge with three or more is paired with
// nobody: each of them is a border. So is an edge from a vertex to itself, and every edge of a polygon that holds an
// index 0xFFFFFFFF. Creases come from the thread's PolyCreaseScope when its count equals that of polygon_indices, else
// there are none; an edge is a crease for both of its polygons when either flags it.
//
// polygon_offsets[i] is the sum of the counts before polygon i. Other indices must be below vertex_count. The outputs
// are resized. Linear in corners + vertices for any input; independent of the order of the polygons but for the
// numbering.
QN_EXPORT void compute_polygons_neighbourhood(CoreArray<unsigned int>& neighbour_polygons,
                                              CoreArray<unsigned int>& neighbour_edges,
                                              CoreArray<unsigned char>& edge_smooth_flags,
                                              const CoreBasicArray<unsigned int>& polygon_indices,
                                              const CoreBasicArray<unsigned int>& polygon_counts,
                                              const CoreBasicArray<unsigned int>& polygon_offsets,
                                              const unsigned int& vertex_count, AppProgressBar* progress);

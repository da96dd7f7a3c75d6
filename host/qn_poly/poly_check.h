// Checks of everything a host hands to the subdivision module, which trusts its callers.
//
// Every check takes arrays of any content and length, records what it finds and changes nothing. Time is linear in the
// arrays. Build when the findings have no errors; warnings and notes say what the module makes of the rest.
//
// 0xFFFFFFFF as a UV index makes its corner unmapped. As a vertex index it makes the polygon void: topology and maps
// know such polygons, positions do not, so a mesh with one is refused.
#pragma once

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"
#include "qn_gmath/gmath_vec.h"
#include "qn_poly/poly_findings.h"

class GMathTimeSampling;
class PolyMeshProperty;

// Most vertices, polygons, face-corners and UV points. A face-corner becomes a quad with up to sixteen tangents, which
// are numbered in 32 bits.
inline constexpr unsigned int poly_max_elements = (1u << 28) - 1u;

// Largest size of a coordinate or motion component: areas, which are products of two, stay in single precision.
inline constexpr float poly_max_coordinate = 1e18f;

// A polygon mesh to check; owns nothing.
struct PolyMeshView {
    CoreBasicArray<GMathVec3<float>> positions;
    CoreBasicArray<unsigned int> polygon_counts;   // corners per polygon
    CoreBasicArray<unsigned int> polygon_indices;  // vertex per face-corner
    CoreBasicArray<unsigned char> corner_creases;  // one per face-corner, or empty
    CoreBasicArray<unsigned int> polygon_groups;   // shading group per polygon
    unsigned int group_count = 0;                  // names of shading groups; 0 is one unnamed group
};

// Everything below in this order; later ones are left out once the layout of the polygons is in error.
QN_EXPORT void poly_check_mesh(const PolyMeshView& mesh, PolyFindings& findings);

// Counts that add up within the limits, indices, repeated vertices, void polygons and, without errors, unused
// vertices. False when a polygon or an index is in error.
QN_EXPORT bool poly_check_polygons(unsigned int vertex_count, const CoreBasicArray<unsigned int>& polygon_counts,
                                   const CoreBasicArray<unsigned int>& polygon_indices, PolyFindings& findings);

// Edges of three polygons and more and neighbors of opposite winding; the place is the last face-corner of the edge.
// Vertices whose polygons form several fans, which share nothing but the vertex; the place is the first corner of the
// second fan. The ends of an edge of three and more, which parts fans too, are not counted again.
// Only for polygons that poly_check_polygons found no error in.
QN_EXPORT void poly_check_edges(unsigned int vertex_count, const CoreBasicArray<unsigned int>& polygon_counts,
                                const CoreBasicArray<unsigned int>& polygon_indices, PolyFindings& findings);

// Vectors of `array`, one per vertex, each number finite and at most poly_max_coordinate in size.
QN_EXPORT void poly_check_vectors(const CoreBasicArray<GMathVec3<float>>& vectors, unsigned int vertex_count,
                                  PolyArray array, PolyFindings& findings);

// A UV map on walkable polygons.
QN_EXPORT void poly_check_uvs(const CoreBasicArray<GMathVec3<float>>& points,
                              const CoreBasicArray<unsigned int>& indices,
                              const CoreBasicArray<unsigned int>& polygon_counts, PolyFindings& findings);

// A color map: `color_count` colors, one index per face-corner, or no indices and one color per vertex.
QN_EXPORT void poly_check_colors(unsigned int color_count, const CoreBasicArray<unsigned int>& indices,
                                 unsigned int vertex_count, unsigned int corner_count, PolyFindings& findings);

// Finite times, each later than the one before it.
QN_EXPORT void poly_check_times(const CoreBasicArray<double>& times, PolyFindings& findings);

// A property of a mesh that has been checked: as many items per sample as its kind and indices ask for, all samples of
// one type, indices in range.
QN_EXPORT void poly_check_property(const PolyMeshProperty& property, unsigned int vertex_count, PolyFindings& findings);

// One topological subdivision step. Child quads of a polygon with corners c, c+1, ... (quad index = face-corner index):
//
//        c_prev .         corner 0  control vertex of c
//           ^   |         corner 1  edge point of the edge from c to c_next
//      3 ---|-- 2 (face)  corner 2  face point
//      |  quad c |        corner 3  edge point of the edge from c_prev to c
//      0 ------- 1 ----> c_next
//
// Inside a polygon edge 1 of quad c meets edge 2 of quad c_next. Across the parent edge, edge 0 of quad c meets edge 3
// of the quad at the other end of the neighbor's edge, and edge 3 of quad c_next meets edge 0 of the neighbor's quad.
#include "qn_poly/poly_neighbourhood.h"
#include "sds/common/log_line.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/polygon_neighbors.h"
#include "sds/mesh_base/sds_mesh_base.h"

using sds::none;

namespace {

using EdgesTopology = SdsMeshBase::EdgesTopology;
using SubdivisionTopology = SdsMeshBase::SubdivisionTopology;
using VertexInfo = SdsMeshBase::VertexInfo;
using sds::PolygonNeighbors;

// One number per edge in the order in which edges are first met, starting at first_edge_point. Returns the number after
// the last.
unsigned int number_edge_points(const PolygonNeighbors& polygons, unsigned int first_edge_point,
                                CoreArray<unsigned int>& edge_points, AppProgressBar* progress) {
    edge_points.assign(polygons.indices.get_count(),
                       0u);  // 0 = not numbered yet: a control vertex always has that number
    unsigned int next = first_edge_point;
    for (unsigned int i = 0; i < polygons.counts.get_count(); ++i) {
        for (unsigned int j = 0; j < polygons.counts[i]; ++j) {
            const unsigned int c = polygons.offsets[i] + j;
            if (edge_points[c] != 0) continue;
            for (unsigned int current = c; current != none;) {
                edge_points[current] = next;
                current = polygons.opposite_corner(current);
                if (current == c) break;
            }
            ++next;
        }
        sds::progress_step(progress, i + 1);
    }
    return next;
}

// Links the two halves of the parent edge of c to the neighbor's quads.
void link_parent_edge(const PolygonNeighbors& polygons, unsigned int c, unsigned int c_next,
                      unsigned int* opposite_edges) {
    unsigned int& ahead = opposite_edges[4 * size_t{c}];
    unsigned int& behind = opposite_edges[4 * size_t{c_next} + 3];
    ahead = behind = none;
    const unsigned int neighbour = polygons.neighbour_polygons[c];
    if (neighbour == none) return;
    const unsigned int slot = polygons.neighbour_edges[c];
    const unsigned int d = polygons.offsets[neighbour] + slot;
    const unsigned int d_next = polygons.offsets[neighbour] + (slot + 1 == polygons.counts[neighbour] ? 0 : slot + 1);
    const auto& indices = polygons.indices;
    if (indices[d] == indices[c_next] && indices[d_next] == indices[c]) {
        ahead = 4 * d_next + 3;
        behind = 4 * d;
    } else if (indices[d] == indices[c] && indices[d_next] == indices[c_next]) {
        ahead = 4 * d;
        behind = 4 * d_next + 3;
    } else {
        sds::log_line(sds::log_level_warning,
                      "SdsMesh.subdivide: topological error while computing neighbourhood of quad ", c, "!\n");
    }
}

void create_quads(const PolygonNeighbors& polygons, const CoreArray<unsigned int>& edge_points,
                  CoreArray<unsigned int>& quad_indices, EdgesTopology& edges, SubdivisionTopology& subdivision,
                  AppProgressBar* progress) {
    // In local variables: stores of bytes may change whatever is read through a reference.
    unsigned int* const opposite = edges.opposite_edges.get_data();
    unsigned int* const quads = quad_indices.get_data();
    unsigned int* const parents = subdivision.quad_parents.get_data();
    unsigned char* const quad_flags = edges.quad_edge_flags.get_data();
    const unsigned char* const smooth_flags = polygons.edge_smooth_flags.get_data();
    const unsigned int* const points = edge_points.get_data();
    for (unsigned int i = 0; i < polygons.counts.get_count(); ++i) {
        const unsigned int n = polygons.counts[i];
        const unsigned int o = polygons.offsets[i];
        const unsigned int face_point = subdivision.first_face_point + i;
        const bool is_void = polygons.is_void(i);
        unsigned int c_prev = o + n - 1;
        bool is_behind_crease = n != 0 && smooth_flags[c_prev] == 0;
        for (unsigned int c = o; c < o + n; c_prev = c++) {
            const unsigned int c_next = c + 1 == o + n ? o : c + 1;
            parents[c] = i;
            unsigned int* quad = quads + 4 * size_t{c};
            if (is_void) {
                quad[0] = quad[1] = quad[2] = quad[3] = none;
                opposite[4 * size_t{c}] = opposite[4 * size_t{c} + 1] = opposite[4 * size_t{c} + 2] = none;
                opposite[4 * size_t{c_next} + 3] = none;
            } else {
                quad[0] = polygons.indices[c];
                quad[1] = points[c];
                quad[2] = face_point;
                quad[3] = points[c_prev];
                opposite[4 * size_t{c} + 1] = 4 * c_next + 2;
                opposite[4 * size_t{c} + 2] = 4 * c_prev + 1;
                link_parent_edge(polygons, c, c_next, opposite);
            }
            // Halves of parent edges are visible and keep their crease; the edges inside the polygon are neither.
            const bool is_crease = smooth_flags[c] == 0;
            quad_flags[c] = static_cast<unsigned char>(0x90u | (is_crease ? 1u : 0u) | (is_behind_crease ? 8u : 0u));
            is_behind_crease = is_crease;
        }
        sds::progress_step(progress, i + 1);
    }
}

// Sharp-edge counts, and how many half-edges leave each vertex. Only the halves of parent edges, 0 and 3, can be
// borders or creases; quads of void polygons have no vertices.
void count_vertex_edges(const CoreArray<unsigned int>& quad_indices, const EdgesTopology& edges,
                        CoreArray<VertexInfo>& vertex_infos, CoreArray<SdsMeshBase::RingSpan>& rings) {
    const auto count_sharp = [&](unsigned int h, unsigned int start, unsigned int end) {
        if (!edges.is_sharp(h)) return;
        vertex_infos[start].raise_sharp_edge_count(true);
        if (edges.is_border(h)) vertex_infos[end].raise_sharp_edge_count(true);
    };
    const unsigned int* const opposite = edges.opposite_edges.get_data();
    const unsigned char* const flags = edges.quad_edge_flags.get_data();
    SdsMeshBase::RingSpan* const spans = rings.get_data();
    const unsigned int edge_count = quad_indices.get_count();
    for (unsigned int h = 0; h < edge_count; h += 4) {
        const unsigned int* quad = quad_indices.get_data() + h;
        if (quad[0] == none) continue;
        if ((flags[h / 4] & 9u) != 0 || opposite[h] == none || opposite[h + 3] == none) {
            count_sharp(h, quad[0], quad[1]);
            count_sharp(h + 3, quad[3], quad[0]);
        }
        for (unsigned int k = 0; k < 4; ++k) ++spans[quad[k]].count;
    }
}

void fill_rings(const CoreArray<unsigned int>& quad_indices, SubdivisionTopology& subdivision) {
    unsigned int total = 0;
    for (SdsMeshBase::RingSpan& ring : subdivision.vertex_rings) {
        ring.offset = total;
        total += ring.count;
        ring.count = 0;
    }
    subdivision.ring_edges.resize(total);
    unsigned int* const ring_edges = subdivision.ring_edges.get_data();
    SdsMeshBase::RingSpan* const rings = subdivision.vertex_rings.get_data();
    const unsigned int* const quads = quad_indices.get_data();
    const unsigned int edge_count = quad_indices.get_count();
    for (unsigned int first = 0; first < edge_count; first += 4) {
        if (quads[first] == none) continue;
        for (unsigned int k = 0; k < 4; ++k) {
            SdsMeshBase::RingSpan& ring = rings[quads[first + k]];
            ring_edges[ring.offset + ring.count++] = first + k;
        }
    }
}

}  // namespace

void SdsMeshBase::subdivide(const CoreBasicArray<unsigned int>& polygon_indices,
                            const CoreBasicArray<unsigned int>& polygon_counts,
                            const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int& vertex_count,
                            CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                            EdgesTopology& edges, SubdivisionTopology& subdivision, AppProgressBar* progress) {
    PolygonNeighbors polygons{polygon_indices, polygon_counts, polygon_offsets, {}, {}, {}};
    {
        const sds::ProgressTask task(progress, "compute polygons neighbourhood", 0.2f);
        compute_polygons_neighbourhood(polygons.neighbour_polygons, polygons.neighbour_edges,
                                       polygons.edge_smooth_flags, polygon_indices, polygon_counts, polygon_offsets,
                                       vertex_count, progress);
    }
    subdivide(polygons, vertex_count, quad_indices, vertex_infos, edges, subdivision, progress);
}

void SdsMeshBase::subdivide(const PolygonNeighbors& polygons, const unsigned int& vertex_count,
                            CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                            EdgesTopology& edges, SubdivisionTopology& subdivision, AppProgressBar* progress) {
    const unsigned int polygon_count = polygons.counts.get_count();
    const unsigned int corner_count = polygons.indices.get_count();
    subdivision.first_edge_point = vertex_count;
    quad_indices.resize(4 * corner_count);
    edges.opposite_edges.resize(4 * corner_count);
    edges.quad_edge_flags.resize(corner_count);

    CoreArray<unsigned int> edge_points;
    {
        const sds::ProgressTask task(progress, "prepare subdivision", 0.2f);
        sds::progress_steps(progress, polygon_count);
        subdivision.first_face_point =
            number_edge_points(polygons, subdivision.first_edge_point, edge_points, progress);
    }
    const unsigned int new_vertex_count = subdivision.first_face_point + polygon_count;
    subdivision.vertex_rings.assign(new_vertex_count, RingSpan{});
    subdivision.quad_parents.resize(corner_count);
    vertex_infos.assign(new_vertex_count, VertexInfo{});
    {
        const sds::ProgressTask task(progress, "create subdivision topology", 0.4f);
        sds::progress_steps(progress, polygon_count);
        create_quads(polygons, edge_points, quad_indices, edges, subdivision, progress);
    }
    count_vertex_edges(quad_indices, edges, vertex_infos, subdivision.vertex_rings);
    sds::progress_increment(progress, 0.1f);
    fill_rings(quad_indices, subdivision);
    sds::progress_increment(progress, 0.1f);
}

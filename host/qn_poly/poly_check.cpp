#include "qn_poly/poly_check.h"

#include <algorithm>
#include <cmath>

#include "qn_gmath/gmath_time_sampling.h"
#include "qn_poly/poly_edge_buckets.h"
#include "qn_poly/poly_mesh_property.h"

namespace {

using enum PolyFindingCode;

constexpr unsigned int none = 0xFFFFFFFF;

void expect_count(std::uint64_t found, std::uint64_t expected, PolyArray array, PolyFindings& findings) {
    if (found == expected) return;
    findings.record(wrong_count, {array, none, none, static_cast<unsigned int>(std::min<std::uint64_t>(found, none))});
}

// Calls visit(polygon, first face-corner, corners) for every polygon; the counts must be right.
template <class Visit>
void for_each_polygon(const CoreBasicArray<unsigned int>& counts, Visit&& visit) {
    unsigned int offset = 0;
    for (unsigned int p = 0; p < counts.get_count(); offset += counts[p++]) visit(p, offset, counts[p]);
}

// False when the polygons cannot be walked.
bool check_layout(unsigned int vertex_count, const CoreBasicArray<unsigned int>& counts,
                  const CoreBasicArray<unsigned int>& indices, PolyFindings& findings) {
    if (counts.is_empty()) findings.record(no_polygons, {});
    const auto limit = [&findings](unsigned int count, PolyArray array) {
        if (count > poly_max_elements) findings.record(too_many_elements, {array, none, none, count});
        return count <= poly_max_elements;
    };
    bool is_walkable = limit(vertex_count, PolyArray::positions);
    is_walkable &= limit(counts.get_count(), PolyArray::polygons) && limit(indices.get_count(), PolyArray::polygons);
    if (!is_walkable) return false;
    std::uint64_t corners = 0;
    for (unsigned int p = 0; p < counts.get_count(); ++p) {
        if (counts[p] < 3) findings.record(small_polygon, {PolyArray::polygons, p, none, none});
        corners += counts[p];
    }
    expect_count(indices.get_count(), corners, PolyArray::polygons, findings);
    return corners == indices.get_count();
}

void check_numbers(const CoreBasicArray<GMathVec3<float>>& vectors, float largest, PolyArray array,
                   PolyFindings& findings) {
    for (unsigned int i = 0; i < vectors.get_count(); ++i) {
        const GMathVec3<float>& v = vectors[i];
        const float size = std::max({std::fabs(v[0]), std::fabs(v[1]), std::fabs(v[2])});
        if (v.is_finite() && size <= largest) continue;
        findings.record(v.is_finite() ? value_too_large : non_finite_value, {array, none, none, i});
    }
}

// Steps between the face-corners of one vertex, across the edges of two polygons.
class CornerWalk {
public:
    CornerWalk(const CoreBasicArray<unsigned int>& counts, const CoreBasicArray<unsigned int>& indices)
        : m_indices(indices),
          m_polygons(indices.get_count()),
          m_offsets(counts.get_count() + 1),
          m_others(indices.get_count(), none) {
        m_offsets[0] = 0;
        for_each_polygon(counts, [this](unsigned int p, unsigned int first, unsigned int count) {
            std::fill_n(m_polygons.get_data() + first, count, p);
            m_offsets[p + 1] = first + count;
        });
    }

    unsigned int polygon(unsigned int corner) const { return m_polygons[corner]; }
    // The edges that leave both corners are one.
    void pair(unsigned int corner, unsigned int other) {
        m_others[corner] = other;
        m_others[other] = corner;
    }

    // Calls visit(corner) for the corners of the fan after `corner`, on one side (through the edge that leaves it) or
    // the other. Returns true when the fan closes.
    template <class Visit>
    bool walk(unsigned int corner, bool by_leaving, Visit&& visit) const {
        const unsigned int vertex = m_indices[corner];
        for (unsigned int c = corner;;) {
            const unsigned int edge = by_leaving ? c : previous(c);
            const unsigned int other = m_others[edge];
            if (m_indices[edge] == m_indices[next(edge)]) {
                c = by_leaving ? next(c) : edge;  // a polygon with the vertex twice in a row
            } else if (other == none) {
                return false;
            } else {
                by_leaving = m_indices[other] != vertex;
                c = by_leaving ? next(other) : other;
            }
            if (c == corner) return true;
            visit(c);
        }
    }

private:
    unsigned int next(unsigned int c) const {
        const unsigned int p = m_polygons[c];
        return c + 1 == m_offsets[p + 1] ? m_offsets[p] : c + 1;
    }
    unsigned int previous(unsigned int c) const {
        const unsigned int p = m_polygons[c];
        return (c == m_offsets[p] ? m_offsets[p + 1] : c) - 1;
    }

    const CoreBasicArray<unsigned int>& m_indices;
    CoreArray<unsigned int> m_polygons;  // of each face-corner
    CoreArray<unsigned int> m_offsets;   // first face-corner of each polygon, and their number
    CoreArray<unsigned int> m_others;    // the other face-corner of the edge that leaves it, none without
};

// Vertices of several fans, but for those in `is_reported`, which is overwritten.
void check_fans(unsigned int vertex_count, const CoreBasicArray<unsigned int>& indices, const CornerWalk& walk,
                CoreArray<unsigned char>& is_reported, PolyFindings& findings) {
    CoreArray<unsigned char> has_fan(vertex_count, 0), is_visited(indices.get_count(), 0);
    const auto visit = [&is_visited](unsigned int c) { is_visited[c] = 1; };
    for (unsigned int c = 0; c < indices.get_count(); ++c) {
        const unsigned int v = indices[c];
        if (is_visited[c] != 0 || is_reported[v] != 0) continue;
        if (has_fan[v] != 0) {
            findings.record(nonmanifold_vertex, {PolyArray::polygons, walk.polygon(c), c, v});
            is_reported[v] = 1;
            continue;
        }
        has_fan[v] = 1;
        if (!walk.walk(c, true, visit)) walk.walk(c, false, visit);
    }
}

}  // namespace

bool poly_check_polygons(unsigned int vertex_count, const CoreBasicArray<unsigned int>& polygon_counts,
                         const CoreBasicArray<unsigned int>& polygon_indices, PolyFindings& findings) {
    if (!check_layout(vertex_count, polygon_counts, polygon_indices, findings)) return false;
    bool is_right = true;
    CoreArray<unsigned int> last_polygon(vertex_count, 0u);  // 1 + the polygon that met the vertex last
    for_each_polygon(polygon_counts, [&](unsigned int p, unsigned int first, unsigned int count) {
        is_right &= count >= 3;
        for (unsigned int c = first; c < first + count; ++c) {
            if (polygon_indices[c] != none) continue;
            findings.record(void_polygon, {PolyArray::polygons, p, c, none});
            is_right = false;
            return;
        }
        bool has_repeat = false;
        PolyPlace repeat;
        for (unsigned int c = first; c < first + count; ++c) {
            const unsigned int vertex = polygon_indices[c];
            if (vertex >= vertex_count) {
                findings.record(index_out_of_range, {PolyArray::polygons, p, c, vertex});
                is_right = false;
                continue;
            }
            if (last_polygon[vertex] == p + 1 && !has_repeat) {
                has_repeat = true;
                repeat = {PolyArray::polygons, p, c, vertex};
            }
            last_polygon[vertex] = p + 1;
        }
        if (has_repeat) findings.record(repeated_vertex, repeat);
    });
    for (unsigned int v = 0; v < vertex_count && is_right; ++v)
        if (last_polygon[v] == 0) findings.record(unused_vertex, {PolyArray::positions, none, none, v});
    return is_right;
}

void poly_check_edges(unsigned int vertex_count, const CoreBasicArray<unsigned int>& polygon_counts,
                      const CoreBasicArray<unsigned int>& polygon_indices, PolyFindings& findings) {
    CornerWalk walk(polygon_counts, polygon_indices);
    const PolyEdgeBuckets buckets(polygon_indices.get_data(), polygon_counts, vertex_count);
    // The edge from the bucket's vertex to each higher one.
    struct Edge {
        unsigned int low = none;  // the bucket that wrote the entry
        unsigned int sides = 0;
        unsigned int first = 0, last = 0;  // face-corners
    };
    CoreArray<Edge> edges(vertex_count, Edge{});
    CoreArray<unsigned char> is_reported(vertex_count, 0);
    buckets.for_each_bucket([&](unsigned int low, const PolyHalfEdge* begin, const PolyHalfEdge* end) {
        for (const PolyHalfEdge* half = begin; half != end; ++half) {
            Edge& edge = edges[half->high];
            if (edge.low != low) edge = {low, 0, half->corner, half->corner};
            ++edge.sides;
            edge.last = half->corner;
        }
        for (const PolyHalfEdge* half = begin; half != end; ++half) {
            const Edge& edge = edges[half->high];
            if (edge.first != half->corner || edge.sides < 2) continue;
            const PolyPlace place{PolyArray::polygons, walk.polygon(edge.last), edge.last, none};
            if (edge.sides > 2) {
                findings.record(nonmanifold_edge, place);
                is_reported[low] = is_reported[half->high] = 1;
                continue;
            }
            walk.pair(edge.first, edge.last);
            if (polygon_indices[edge.first] == polygon_indices[edge.last]) findings.record(opposite_winding, place);
        }
    });
    check_fans(vertex_count, polygon_indices, walk, is_reported, findings);
}

void poly_check_vectors(const CoreBasicArray<GMathVec3<float>>& vectors, unsigned int vertex_count, PolyArray array,
                        PolyFindings& findings) {
    expect_count(vectors.get_count(), vertex_count, array, findings);
    check_numbers(vectors, poly_max_coordinate, array, findings);
}

void poly_check_uvs(const CoreBasicArray<GMathVec3<float>>& points, const CoreBasicArray<unsigned int>& indices,
                    const CoreBasicArray<unsigned int>& polygon_counts, PolyFindings& findings) {
    if (points.get_count() > poly_max_elements)
        findings.record(too_many_elements, {PolyArray::uvs, none, none, points.get_count()});
    check_numbers(points, poly_max_coordinate, PolyArray::uvs, findings);
    std::uint64_t corner_count = 0;
    for (const unsigned int count : polygon_counts) corner_count += count;
    expect_count(indices.get_count(), corner_count, PolyArray::uvs, findings);
    if (indices.get_count() != corner_count) return;
    for_each_polygon(polygon_counts, [&](unsigned int p, unsigned int first, unsigned int count) {
        unsigned int unmapped = 0;
        for (unsigned int c = first; c < first + count; ++c) {
            if (indices[c] == none)
                ++unmapped;
            else if (indices[c] >= points.get_count())
                findings.record(index_out_of_range, {PolyArray::uvs, p, c, indices[c]});
        }
        if (unmapped != 0 && unmapped != count) findings.record(half_mapped_polygon, {PolyArray::uvs, p, none, none});
    });
}

void poly_check_colors(unsigned int color_count, const CoreBasicArray<unsigned int>& indices, unsigned int vertex_count,
                       unsigned int corner_count, PolyFindings& findings) {
    if (indices.is_empty()) {
        expect_count(color_count, vertex_count, PolyArray::colors, findings);
        return;
    }
    expect_count(indices.get_count(), corner_count, PolyArray::colors, findings);
    for (unsigned int c = 0; c < indices.get_count(); ++c)
        if (indices[c] >= color_count) findings.record(index_out_of_range, {PolyArray::colors, none, c, indices[c]});
}

void poly_check_times(const CoreBasicArray<double>& times, PolyFindings& findings) {
    for (unsigned int i = 0; i < times.get_count(); ++i) {
        if (!std::isfinite(times[i]) || !std::isfinite(times[i] - times[0]))
            findings.record(non_finite_value, {PolyArray::sample_times, none, none, i});
        else if (i > 0 && !(times[i] > times[i - 1]))
            findings.record(times_not_increasing, {PolyArray::sample_times, none, none, i});
    }
}

void poly_check_mesh(const PolyMeshView& mesh, PolyFindings& findings) {
    const unsigned int vertex_count = mesh.positions.get_count();
    poly_check_vectors(mesh.positions, vertex_count, PolyArray::positions, findings);
    if (!mesh.corner_creases.is_empty())
        expect_count(mesh.corner_creases.get_count(), mesh.polygon_indices.get_count(), PolyArray::creases, findings);
    expect_count(mesh.polygon_groups.get_count(), mesh.polygon_counts.get_count(), PolyArray::groups, findings);
    for (unsigned int p = 0; p < mesh.polygon_groups.get_count(); ++p)
        if (mesh.polygon_groups[p] >= std::max(1u, mesh.group_count))
            findings.record(index_out_of_range, {PolyArray::groups, p, none, mesh.polygon_groups[p]});
    if (poly_check_polygons(vertex_count, mesh.polygon_counts, mesh.polygon_indices, findings))
        poly_check_edges(vertex_count, mesh.polygon_counts, mesh.polygon_indices, findings);
}

void poly_check_property(const PolyMeshProperty& property, unsigned int vertex_count, PolyFindings& findings) {
    const PolyMesh& mesh = property.get_mesh();
    const bool is_indexed = property.has_indices();
    unsigned int items = 1;
    if (property.get_type() == PolyMeshProperty::Type::per_vertex ||
        property.get_type() == PolyMeshProperty::Type::varying)
        items = is_indexed ? property.get_value_count() : vertex_count;
    else if (property.get_type() == PolyMeshProperty::Type::per_polygon)
        items = mesh.get_polygon_count();

    const unsigned int samples = std::max(1u, property.get_time_sampling().get_sample_count());
    expect_count(property.get_sample_count(), samples, PolyArray::property, findings);
    for (unsigned int s = 0; s < property.get_sample_count(); ++s) {
        const ResourceProperty& values = property.get_sample_values(s);
        expect_count(values.get_item_count(), items, PolyArray::property, findings);
        if (values.get_type() != property.get_value_type() || values.get_extent() != property.get_value_extent())
            findings.record(wrong_count, {PolyArray::property, none, none, values.get_extent()});
    }
    if (!is_indexed) return;
    expect_count(property.get_indices().get_count(), mesh.get_polygon_indices().get_count(),
                 PolyArray::property_indices, findings);
    for (unsigned int c = 0; c < property.get_indices().get_count(); ++c)
        if (property.get_indices()[c] >= property.get_value_count())
            findings.record(index_out_of_range, {PolyArray::property_indices, none, c, property.get_indices()[c]});
}

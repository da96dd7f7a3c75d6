#include "qn_poly/poly_uv_join.h"

#include <algorithm>
#include <tuple>

#include "qn_poly/poly_neighbourhood.h"

namespace {

constexpr unsigned int none = 0xFFFFFFFF;

// Steps between the face-corners of one vertex. A face-corner has an edge that leaves it and one that arrives, hence at
// most two neighbors at its vertex: joined corners form chains and rings.
class VertexSteps {
public:
    struct Corner {
        unsigned int corner, polygon;
        bool by_leaving;  // the edge to cross next
    };

    VertexSteps(unsigned int vertex_count, const CoreBasicArray<unsigned int>& counts,
                const CoreBasicArray<unsigned int>& indices)
        : m_counts(counts), m_indices(indices), m_offsets(counts.get_count()) {
        for (unsigned int p = 0, offset = 0; p < counts.get_count(); offset += counts[p++]) m_offsets[p] = offset;
        CoreArray<unsigned char> unused_smooth_flags;
        compute_polygons_neighbourhood(m_polygons, m_edges, unused_smooth_flags, indices, counts, m_offsets,
                                       vertex_count, nullptr);
    }

    unsigned int first_corner(unsigned int polygon) const { return m_offsets[polygon]; }

    // The same vertex on both sides of an edge, and the face-corners at the edge's other end.
    struct Crossing {
        Corner from, to;
        unsigned int far_from, far_to;
    };

    // False when nothing lies behind the edge.
    bool cross(const Corner& from, Crossing& crossing) const {
        const unsigned int vertex = m_indices[from.corner];
        const unsigned int edge = from.by_leaving ? from.corner : previous(from.corner, from.polygon);
        const unsigned int far_from = from.by_leaving ? next(from.corner, from.polygon) : edge;
        if (m_indices[far_from] == vertex) {  // a polygon with the vertex twice in a row
            crossing = {from, {far_from, from.polygon, from.by_leaving}, from.corner, far_from};
            return true;
        }
        const unsigned int polygon = m_polygons[edge];
        if (polygon == none) return false;
        const unsigned int other = m_offsets[polygon] + m_edges[edge], after_other = next(other, polygon);
        // Neighbors of opposite winding leave the vertex by the same edge.
        if (m_indices[other] == vertex)
            crossing = {from, {other, polygon, false}, far_from, after_other};
        else
            crossing = {from, {after_other, polygon, true}, far_from, other};
        return true;
    }

private:
    unsigned int next(unsigned int c, unsigned int p) const {
        return c + 1 == m_offsets[p] + m_counts[p] ? m_offsets[p] : c + 1;
    }
    unsigned int previous(unsigned int c, unsigned int p) const {
        return (c == m_offsets[p] ? m_offsets[p] + m_counts[p] : c) - 1;
    }

    const CoreBasicArray<unsigned int>& m_counts;
    const CoreBasicArray<unsigned int>& m_indices;
    CoreArray<unsigned int> m_offsets;
    CoreArray<unsigned int> m_polygons, m_edges;  // neighbors per face-corner
};

// Which face-corners on both sides of an edge have the same UV point: by index, or the whole edge by value.
class UvAgreement {
public:
    UvAgreement(const CoreBasicArray<GMathVec3<float>>& points, const CoreBasicArray<unsigned int>& indices)
        : m_points(points), m_indices(indices) {
        CoreArray<unsigned char> is_used(points.get_count(), 0);
        for (const unsigned int point : indices) {
            if (point == none) continue;
            if (is_used[point] != 0) m_is_unindexed = false;
            is_used[point] = 1;
        }
    }

    bool operator()(const VertexSteps::Crossing& edge) const {
        const unsigned int i = m_indices[edge.from.corner], j = m_indices[edge.to.corner];
        if (i == none || j == none) return false;
        if (i == j) return true;
        return m_is_unindexed && are_equal(i, j) && are_equal(m_indices[edge.far_from], m_indices[edge.far_to]);
    }

private:
    bool are_equal(unsigned int i, unsigned int j) const {
        if (i == none || j == none) return false;
        const GMathVec3<float>&p = m_points[i], &q = m_points[j];
        return p[0] == q[0] && p[1] == q[1] && p[2] == q[2];
    }

    const CoreBasicArray<GMathVec3<float>>& m_points;
    const CoreBasicArray<unsigned int>& m_indices;
    bool m_is_unindexed = true;  // no point has a second use
};

// A face-corner at a vertex whose polygons form several fans.
struct FanCorner {
    unsigned int vertex, point, corner;
};

// The mapped face-corners at vertices of several fans, by vertex, given point and number.
CoreArray<FanCorner> find_fan_corners(const VertexSteps& steps, unsigned int vertex_count,
                                      const CoreBasicArray<unsigned int>& counts,
                                      const CoreBasicArray<unsigned int>& indices,
                                      const CoreBasicArray<unsigned int>& uv_indices) {
    CoreArray<unsigned char> fans(vertex_count, 0), is_visited(indices.get_count(), 0);
    const auto visit_side = [&](VertexSteps::Corner at) {
        VertexSteps::Crossing edge;
        for (; steps.cross(at, edge) && is_visited[edge.to.corner] == 0; at = edge.to) is_visited[edge.to.corner] = 1;
    };
    for (unsigned int p = 0; p < counts.get_count(); ++p) {
        const unsigned int first = steps.first_corner(p);
        for (unsigned int c = first; c < first + counts[p]; ++c) {
            if (is_visited[c] != 0 || indices[c] == none) continue;
            is_visited[c] = 1;
            if (fans[indices[c]] < 2) ++fans[indices[c]];
            visit_side({c, p, true});
            visit_side({c, p, false});
        }
    }
    CoreArray<FanCorner> corners;
    for (unsigned int c = 0; c < indices.get_count(); ++c)
        if (indices[c] != none && uv_indices[c] != none && fans[indices[c]] > 1)
            corners.add({indices[c], uv_indices[c], c});
    std::sort(corners.begin(), corners.end(), [](const FanCorner& a, const FanCorner& b) {
        return std::tie(a.vertex, a.point, a.corner) < std::tie(b.vertex, b.point, b.corner);
    });
    return corners;
}

// Takes out the points that lost every use, and numbers the others anew.
void drop_welded_points(const CoreBasicArray<unsigned int>& given_indices, const CoreBasicArray<unsigned char>& is_kept,
                        PolyUvJoin& join) {
    CoreArray<unsigned int> numbers(join.sources.get_count(), 0);
    for (const unsigned int point : given_indices)
        if (point != none && is_kept[point] == 0) numbers[point] = none;
    unsigned int count = 0;
    for (unsigned int i = 0; i < numbers.get_count(); ++i) {
        if (numbers[i] == none) continue;
        join.sources[count] = join.sources[i];
        numbers[i] = count++;
    }
    join.welded_points = join.sources.get_count() - count;
    join.sources.resize(count);
    if (join.welded_points == 0) return;
    for (unsigned int& point : join.indices)
        if (point != none) point = numbers[point];
}

}  // namespace

PolyUvJoin poly_join_uvs(unsigned int vertex_count, const CoreBasicArray<unsigned int>& polygon_counts,
                         const CoreBasicArray<unsigned int>& polygon_indices,
                         const CoreBasicArray<GMathVec3<float>>& uv_points,
                         const CoreBasicArray<unsigned int>& uv_indices) {
    const VertexSteps steps(vertex_count, polygon_counts, polygon_indices);
    const UvAgreement agree(uv_points, uv_indices);
    PolyUvJoin join;
    join.indices.assign(uv_indices.get_count(), none);
    join.sources.resize(uv_points.get_count());
    for (unsigned int i = 0; i < uv_points.get_count(); ++i) join.sources[i] = i;

    CoreArray<unsigned char> is_kept(uv_points.get_count(), 0);  // some place has the point
    // The point of a further place that has `given`.
    const auto take_point = [&](unsigned int given) {
        const unsigned int point = is_kept[given] == 0 ? given : join.sources.get_count();
        is_kept[given] = 1;
        if (point != given) join.sources.add(given);
        return point;
    };
    const CoreArray<FanCorner> fan_corners =
        find_fan_corners(steps, vertex_count, polygon_counts, polygon_indices, uv_indices);
    const FanCorner* const end = fan_corners.end();
    for (const FanCorner* run = fan_corners.begin(); run != end;) {
        const FanCorner* const run_end = std::find_if(run, end, [run](const FanCorner& other) {
            return other.vertex != run->vertex || other.point != run->point;
        });
        // A lone corner may still be joined by value.
        if (run_end - run > 1) {
            const unsigned int point = take_point(run->point);
            for (const FanCorner* corner = run; corner != run_end; ++corner) join.indices[corner->corner] = point;
        }
        run = run_end;
    }
    // The corners joined to a first one, on one side of it.
    const auto give_to_side = [&](VertexSteps::Corner at, unsigned int point) {
        VertexSteps::Crossing edge;
        for (; steps.cross(at, edge) && join.indices[edge.to.corner] == none && agree(edge); at = edge.to)
            join.indices[edge.to.corner] = point;
    };
    for (unsigned int p = 0; p < polygon_counts.get_count(); ++p) {
        const unsigned int first = steps.first_corner(p);
        for (unsigned int c = first; c < first + polygon_counts[p]; ++c) {
            const unsigned int given = uv_indices[c];
            if (given == none || join.indices[c] != none) continue;
            const unsigned int point = take_point(given);
            join.indices[c] = point;
            give_to_side({c, p, true}, point);
            give_to_side({c, p, false}, point);
        }
    }
    join.split_points = join.sources.get_count() - uv_points.get_count();
    drop_welded_points(uv_indices, is_kept, join);
    return join;
}

#include "sds/refinement/handed_edges.h"

#include <algorithm>
#include <utility>

#include "sds/common/array_bytes.h"
#include "sds/common/control_grid.h"

namespace sds {

void HandedEdges::Level::start(const RefinementLevel& level) {
    edge_indices.assign(level.edge_count, none);
    edges.resize(0);
    has_point.assign(level.vertex_count, static_cast<unsigned char>(0));
    points.resize(level.vertex_count);
}

size_t HandedEdges::Level::get_memory_size() const {
    return bytes_of(edge_indices) + bytes_of(edges) + bytes_of(has_point) + bytes_of(points);
}

void HandedEdges::begin_level(const RefinementLevel& level, const RefinementLevel* fine) {
    m_is_first = m_level == nullptr;
    m_level = &level;
    m_fine = fine;
    if (fine != nullptr) m_below.start(*fine);
}

// Whether there may be finer patches across the edge at a face-corner.
bool HandedEdges::is_finer_across(unsigned int c) const {
    const unsigned int o = m_level->edges.opposite_edges[c];
    return o == none || m_level->states[m_level->face_of(o)] == FaceState::refined;
}

void HandedEdges::exchange(unsigned int face, Vec3f* controls) {
    const unsigned int begin = m_level->face_begin(face);
    const unsigned int* vertices = m_level->corner_vertices.get_data() + begin;
    const bool hands_on = m_fine != nullptr && m_level->face_children[face] != none;
    unsigned int known = 0;  // corners with a point that was handed
    if (!m_is_first) {
        const unsigned char* has_point = m_here.has_point.get_data();
        const Vec3f* points = m_here.points.get_data();
        for (unsigned int k = 0; k < 4; ++k) {
            if (has_point[vertices[k]] == 0) continue;
            known |= 1u << k;
            controls[corner_control(k)] = points[vertices[k]];
        }
    }
    // The ends of an edge are handed with it.
    const unsigned int known_edges = known & (known >> 1 | known << 3);
    if (!hands_on && known_edges == 0) return;
    for (unsigned int k = 0; k < 4; ++k) {
        const bool may_be_known = ((known_edges >> k) & 1u) != 0;
        if (!may_be_known && !hands_on) continue;
        const unsigned int next = (k + 1) & 3u;
        const unsigned int edge = m_level->corner_edges[begin + k];
        const unsigned int index = may_be_known && edge != none ? m_here.edge_indices[edge] : none;
        if (index != none) {
            const Edge& handed = m_here.edges[index];
            const bool is_forward = handed.start == vertices[k];
            controls[leaving_edge_control(k)] = handed.controls[is_forward ? 1 : 2];
            controls[arriving_edge_control(next)] = handed.controls[is_forward ? 2 : 1];
        } else if (hands_on && is_finer_across(begin + k) && m_level->has_halves(edge)) {
            const Vec3f own[4] = {controls[corner_control(k)], controls[leaving_edge_control(k)],
                                  controls[arriving_edge_control(next)], controls[corner_control(next)]};
            hand_halves(edge, vertices[k], own);
        }
    }
}

void HandedEdges::end_level(const PatchLimits<GMathVec3<double>>& limits) {
    if (m_fine == nullptr) return;
    const unsigned int* children = m_level->vertex_children.get_data();
    for (unsigned int v = 0; v < m_level->vertex_count; ++v) {
        if (children[v] == none) continue;
        if (!m_is_first && m_here.has_point[v] != 0)
            hand_point(children[v], m_here.points[v]);
        else if (limits.is_touched(v))
            hand_point(children[v], Vec3f(limits.get(v)));
    }
    for (unsigned int i = 0; !m_is_first && i < m_here.edges.get_count(); ++i)
        if (const unsigned int e = m_here.edges[i].edge; m_level->has_halves(e))
            hand_halves(e, m_here.edges[i].start, m_here.edges[i].controls);
    m_scratch->largest = std::max(m_scratch->largest, m_below.get_memory_size());
    std::swap(m_here, m_below);
}

void HandedEdges::hand_point(unsigned int child, const Vec3f& point) {
    m_below.has_point[child] = 1;
    m_below.points[child] = point;
}

void HandedEdges::hand_halves(unsigned int edge, unsigned int start, const Vec3f* p) {
    const unsigned int* halves = m_level->edge_halves.get_data() + 2 * size_t{edge};
    const bool is_forward = m_level->edge_ends[2 * edge] == start;
    const unsigned int first = halves[is_forward ? 0 : 1];
    if (m_below.edge_indices[first] != none) return;
    const Vec3f ab = (p[0] + p[1]) * 0.5f;
    const Vec3f bc = (p[1] + p[2]) * 0.5f;
    const Vec3f cd = (p[2] + p[3]) * 0.5f;
    const Vec3f abc = (ab + bc) * 0.5f;
    const Vec3f bcd = (bc + cd) * 0.5f;
    const Vec3f middle = (abc + bcd) * 0.5f;
    const unsigned int point = m_level->edge_children[edge];
    m_below.has_point[point] = 1;
    m_below.points[point] = middle;
    m_below.edge_indices[first] = m_below.edges.get_count();
    m_below.edges.add({first, m_level->vertex_children[start], {p[0], ab, abc, middle}});
    const unsigned int second = halves[is_forward ? 1 : 0];
    m_below.edge_indices[second] = m_below.edges.get_count();
    m_below.edges.add({second, point, {middle, bcd, cd, p[3]}});
}

}  // namespace sds

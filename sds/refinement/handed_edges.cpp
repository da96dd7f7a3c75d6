#include "sds/refinement/handed_edges.h"

#include <functional>
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

size_t HandedEdges::Levels::get_memory_size() const {
    size_t size = 0;
    for (const Level& level : {std::cref(here), std::cref(below)})
        size +=
            bytes_of(level.edge_indices) + bytes_of(level.edges) + bytes_of(level.has_point) + bytes_of(level.points);
    return size;
}

void HandedEdges::begin_level(const RefinementLevel& level, const RefinementLevel* fine) {
    m_is_first = m_level == nullptr;
    if (m_is_first) m_here.start(level);
    m_level = &level;
    m_fine = fine;
    if (fine != nullptr) m_below.start(*fine);
}

void HandedEdges::exchange(unsigned int face, Vec3f* controls) {
    if (m_is_first && (m_fine == nullptr || m_level->face_children[face] == none)) return;
    const unsigned int begin = m_level->face_begin(face);
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int v = m_level->corner_vertices[begin + k];
        if (m_here.has_point[v] != 0) controls[corner_control(k)] = m_here.points[v];
        if (m_fine != nullptr) hand_point(v, controls[corner_control(k)]);
    }
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int edge = m_level->corner_edges[begin + k];
        const unsigned int next = (k + 1) & 3u;
        if (const unsigned int index = m_here.edge_indices[edge]; index != none) {
            const Edge& handed = m_here.edges[index];
            const bool is_forward = handed.start == m_level->corner_vertices[begin + k];
            controls[leaving_edge_control(k)] = handed.controls[is_forward ? 1 : 2];
            controls[arriving_edge_control(next)] = handed.controls[is_forward ? 2 : 1];
        } else if (m_fine != nullptr && m_level->has_halves(edge)) {
            const Vec3f own[4] = {controls[corner_control(k)], controls[leaving_edge_control(k)],
                                  controls[arriving_edge_control(next)], controls[corner_control(next)]};
            hand_halves(edge, m_level->corner_vertices[begin + k], own);
        }
    }
}

void HandedEdges::end_level() {
    if (m_fine == nullptr) return;
    for (unsigned int v = 0; v < m_level->vertex_count; ++v)
        if (m_here.has_point[v] != 0) hand_point(v, m_here.points[v]);
    for (unsigned int e = 0; e < m_level->edge_count; ++e)
        if (const unsigned int index = m_here.edge_indices[e]; index != none && m_level->has_halves(e))
            hand_halves(e, m_here.edges[index].start, m_here.edges[index].controls);
    std::swap(m_here, m_below);
}

void HandedEdges::hand_point(unsigned int v, const Vec3f& point) {
    const unsigned int child = m_level->vertex_children[v];
    if (child == none) return;
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
    m_below.edges.add({m_level->vertex_children[start], {p[0], ab, abc, middle}});
    m_below.edge_indices[halves[is_forward ? 1 : 0]] = m_below.edges.get_count();
    m_below.edges.add({point, {middle, bcd, cd, p[3]}});
}

}  // namespace sds

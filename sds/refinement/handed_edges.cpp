#include "sds/refinement/handed_edges.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "sds/common/array_bytes.h"
#include "sds/common/control_grid.h"
#include "sds/common/listed_walks.h"

namespace sds {

namespace {

// One of two, without a branch.
template <class T>
const T* choose(unsigned char is_first, const T* first, const T* second) {
    const auto mask = std::uintptr_t{0} - is_first;
    return reinterpret_cast<const T*>((reinterpret_cast<std::uintptr_t>(first) & mask) |
                                      (reinterpret_cast<std::uintptr_t>(second) & ~mask));
}

}  // namespace

void HandedEdges::Level::start(const RefinementLevel& level) {
    // No other edges are handed on.
    const unsigned int edge_count = level.edge_sharpness.get_count();
    has_edge.assign(edge_count, static_cast<unsigned char>(0));
    edges.resize(edge_count);
    handed_edges.resize(0);
    has_point.assign(level.vertex_count + 1, static_cast<unsigned char>(0));
    points.resize(level.vertex_count + 1);
}

size_t HandedEdges::Level::get_memory_size() const {
    return bytes_of(edges) + bytes_of(has_edge) + bytes_of(handed_edges) + bytes_of(points) + bytes_of(has_point);
}

void HandedEdges::begin_level(const RefinementLevel& level, const RefinementLevel* fine) {
    if (m_level == nullptr) m_here.start(level);
    m_level = &level;
    m_fine = fine;
    if (fine != nullptr) m_below.start(*fine);
}

// Hands edges with both halves down to the next level. Its own copies of pointers, which no store can change.
class HandedEdges::Hander {
public:
    Hander(const RefinementLevel& level, Level& below)
        : m_ends(level.edge_ends.get_data()),
          m_halves(level.edge_halves.get_data()),
          m_children(level.edge_children.get_data()),
          m_below(below),
          m_edges(below.edges.get_data()),
          m_has_edge(below.has_edge.get_data()),
          m_points(below.points.get_data()),
          m_has_point(below.has_point.get_data()) {
        below.handed_edges.resize(below.has_edge.get_count());
        m_handed = below.handed_edges.get_data();
    }
    ~Hander() { m_below.handed_edges.resize(m_count); }

    // `start` is one of the edge's two vertices, where `a` is.
    [[gnu::always_inline]] void hand(unsigned int edge, unsigned int start, SimdFloat4 a, SimdFloat4 b, SimdFloat4 c,
                                     SimdFloat4 d) {
        const unsigned int is_backward = m_ends[2 * size_t{edge}] == start ? 0 : 1;
        const unsigned int first = m_halves[2 * size_t{edge} + is_backward];
        const unsigned int second = m_halves[2 * size_t{edge} + 1 - is_backward];
        if (m_has_edge[first] != 0) return;
        const SimdFloat4 half(0.5f);
        const SimdFloat4 ab = (a + b) * half, bc = (b + c) * half, cd = (c + d) * half;
        const SimdFloat4 abc = (ab + bc) * half, bcd = (bc + cd) * half;
        const unsigned int point = m_children[edge];
        m_has_point[point] = 1;
        store((abc + bcd) * half, m_points[point]);
        // Both halves end at the point.
        m_handed[m_count++] = first;
        m_handed[m_count++] = second;
        m_has_edge[first] = m_has_edge[second] = 1;
        store(ab, m_edges[first].controls[0]);
        store(abc, m_edges[first].controls[1]);
        store(cd, m_edges[second].controls[0]);
        store(bcd, m_edges[second].controls[1]);
    }

private:
    const unsigned int *m_ends, *m_halves, *m_children;
    Level& m_below;
    Edge* m_edges;
    unsigned char* m_has_edge;
    unsigned int* m_handed = nullptr;
    Point* m_points;
    unsigned char* m_has_point;
    unsigned int m_count = 0;
};

void HandedEdges::end_level(const PatchLimits<GMathVec3<double>>& limits, Vec3f* controls) {
    take_edges(controls);
    if (m_fine == nullptr) return;
    hand_edges(controls);
    hand_points(limits);
    m_scratch->largest = std::max(m_scratch->largest, m_below.get_memory_size());
    std::swap(m_here, m_below);
}

void HandedEdges::take_edges(Vec3f* controls) const {
    const unsigned int *ends = m_level->edge_ends.get_data(), *vertices = m_level->corner_vertices.get_data();
    const unsigned int* patches = m_level->face_patches.get_data();
    const FaceState* states = m_level->states.get_data();
    const Edge* edges = m_here.edges.get_data();
    const auto take = [=](unsigned int e, unsigned int c) {
        const unsigned int face = quad_of(c), k = corner_of(c);
        if (states[face] != FaceState::emitted && states[face] != FaceState::leaf) return;
        Vec3f* own = controls + 16 * size_t{patches[face]};
        const unsigned int is_backward = ends[2 * size_t{e}] == vertices[c] ? 0 : 1;
        load(edges[e].controls[is_backward]).store3(own[leaving_edge_control(k)].get_data());
        load(edges[e].controls[1 - is_backward]).store3(own[arriving_edge_control((k + 1) & 3u)].get_data());
    };
    const unsigned int *corners = m_level->edge_corners.get_data(),
                       *opposites = m_level->edges.opposite_edges.get_data();
    for (const unsigned int e : m_here.handed_edges) {
        const unsigned int c = corners[e];
        if (c == none) continue;
        take(e, c);
        if (opposites[c] != none) take(e, opposites[c]);
    }
    const CoreArray<unsigned char>& marks = m_level->edge_marks;
    if (std::find(marks.begin(), marks.end(), RefinementLevel::nonmanifold_mark) == marks.end()) return;
    for (unsigned int c = 0; c < 4 * m_level->candidate_count; ++c)
        if (const unsigned int e = m_level->corner_edges[c]; e < m_here.has_edge.get_count() && m_here.has_edge[e] != 0)
            take(e, c);
}

// Those of the level's own patches, and those that it was handed.
void HandedEdges::hand_edges(const Vec3f* controls) {
    Hander hander(*m_level, m_below);
    const unsigned char* has_edge = m_here.has_edge.get_data();
    const unsigned int *corner_edges = m_level->corner_edges.get_data(), *patches = m_level->face_patches.get_data();
    for (const unsigned int c : m_level->handing_corners) {
        const unsigned int edge = corner_edges[c];
        if (has_edge[edge] != 0 || !m_level->has_halves(edge)) continue;
        const unsigned int face = m_level->face_of(c), k = c - m_level->face_begin(face), next = (k + 1) & 3u;
        const Vec3f* patch = controls + 16 * size_t{patches[face]};
        const auto load = [patch](unsigned int control) { return SimdFloat4::load3(patch[control].get_data()); };
        hander.hand(edge, m_level->corner_vertices[c], load(corner_control(k)), load(leaving_edge_control(k)),
                    load(arriving_edge_control(next)), load(corner_control(next)));
    }
    for (const unsigned int e : m_here.handed_edges) {
        if (!m_level->has_halves(e)) continue;
        const Point* inner = m_here.edges[e].controls;
        const unsigned int* ends = m_level->edge_ends.get_data() + 2 * size_t{e};
        hander.hand(e, ends[0], load(m_here.points[ends[0]]), load(inner[0]), load(inner[1]),
                    load(m_here.points[ends[1]]));
    }
}

// Without branches, since which vertices are on is hard to foretell.
void HandedEdges::hand_points(const PatchLimits<GMathVec3<double>>& limits) {
    const unsigned int* children = m_level->vertex_children.get_data();
    const GMathVec3<double> zero(0, 0, 0);
    for_each_with_child(children, m_level->vertex_count, [&](unsigned int v) {
        const unsigned int child = children[v];
        const unsigned char is_handed = m_here.has_point[v], is_touched = limits.is_touched(v) ? 1 : 0;
        const GMathVec3<double>& limit = *choose(is_touched, &limits.get(v), &zero);
        const Point rounded = {static_cast<float>(limit[0]), static_cast<float>(limit[1]), static_cast<float>(limit[2]),
                               0.0f};
        m_below.has_point[child] = is_handed | is_touched;
        m_below.points[child] = *choose(is_handed, &m_here.points[v], &rounded);
    });
}

}  // namespace sds

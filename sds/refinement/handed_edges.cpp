#include "sds/refinement/handed_edges.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "sds/common/array_bytes.h"
#include "sds/common/control_grid.h"
#include "sds/refinement/listed_children.h"

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
    edge_indices.assign(edge_count, none);
    edges.resize(0);
    edges.reserve(std::max(edge_count, 1u));
    has_point.assign(level.vertex_count + 1, static_cast<unsigned char>(0));
    points.resize(level.vertex_count + 1);
}

size_t HandedEdges::Level::get_memory_size() const {
    return bytes_of(edge_indices) + bytes_of(edges) + bytes_of(has_point) + bytes_of(points);
}

void HandedEdges::begin_level(const RefinementLevel& level, const RefinementLevel* fine) {
    m_has_points = m_level != nullptr;
    if (m_level == nullptr) m_here.start(level);
    m_level = &level;
    m_fine = fine;
    if (fine != nullptr) m_below.start(*fine);
}

void HandedEdges::end_level(const PatchLimits<GMathVec3<double>>& limits, Vec3f* controls) {
    take_edges(controls);
    if (m_fine == nullptr) return;
    hand_own_edges(controls);
    hand_points(limits);
    for (const Edge& handed : m_here.edges)
        if (m_level->has_halves(handed.edge))
            hand_halves(handed.edge, handed.start, load(handed.controls[0]), load(handed.controls[1]),
                        load(handed.controls[2]), load(handed.controls[3]));
    m_scratch->largest = std::max(m_scratch->largest, m_below.get_memory_size());
    std::swap(m_here, m_below);
}

void HandedEdges::take_edges(Vec3f* controls) const {
    bool has_nonmanifold = false;
    for (const Edge& handed : m_here.edges) {
        has_nonmanifold |= m_level->edge_marks[handed.edge] == RefinementLevel::nonmanifold_mark;
        const unsigned int c = m_level->edge_corners[handed.edge];
        if (c == none) continue;
        take_edge(handed, c, controls);
        if (const unsigned int o = m_level->edges.opposite_edges[c]; o != none) take_edge(handed, o, controls);
    }
    if (!has_nonmanifold) return;
    for (unsigned int c = 0; c < 4 * m_level->candidate_count; ++c)
        if (const unsigned int edge = m_level->corner_edges[c];
            edge < m_here.edge_indices.get_count() && m_here.edge_indices[edge] != none)
            take_edge(m_here.edges[m_here.edge_indices[edge]], c, controls);
}

void HandedEdges::take_edge(const Edge& handed, unsigned int c, Vec3f* controls) const {
    const unsigned int face = quad_of(c), k = corner_of(c);
    const FaceState state = m_level->states[face];
    if (state != FaceState::emitted && state != FaceState::leaf) return;
    Vec3f* own = controls + 16 * size_t{m_level->face_patches[face]};
    const bool is_forward = handed.start == m_level->corner_vertices[c];
    load(handed.controls[is_forward ? 1 : 2]).store3(own[leaving_edge_control(k)].get_data());
    load(handed.controls[is_forward ? 2 : 1]).store3(own[arriving_edge_control((k + 1) & 3u)].get_data());
}

void HandedEdges::hand_own_edges(const Vec3f* controls) {
    for (const unsigned int c : m_level->handing_corners) {
        const unsigned int edge = m_level->corner_edges[c];
        if (m_here.edge_indices[edge] != none || !m_level->has_halves(edge)) continue;
        const unsigned int face = m_level->face_of(c), k = c - m_level->face_begin(face), next = (k + 1) & 3u;
        const Vec3f* patch = controls + 16 * size_t{m_level->face_patches[face]};
        const auto load = [patch](unsigned int control) { return SimdFloat4::load3(patch[control].get_data()); };
        hand_halves(edge, m_level->corner_vertices[c], load(corner_control(k)), load(leaving_edge_control(k)),
                    load(arriving_edge_control(next)), load(corner_control(next)));
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

void HandedEdges::hand_halves(unsigned int edge, unsigned int start, SimdFloat4 a, SimdFloat4 b, SimdFloat4 c,
                              SimdFloat4 d) {
    const unsigned int* halves = m_level->edge_halves.get_data() + 2 * size_t{edge};
    const bool is_forward = m_level->edge_ends[2 * edge] == start;
    const unsigned int first = halves[is_forward ? 0 : 1], second = halves[is_forward ? 1 : 0];
    if (m_below.edge_indices[first] != none) return;
    const SimdFloat4 half(0.5f);
    const SimdFloat4 ab = (a + b) * half, bc = (b + c) * half, cd = (c + d) * half;
    const SimdFloat4 abc = (ab + bc) * half, bcd = (bc + cd) * half;
    const SimdFloat4 middle = (abc + bcd) * half;
    const unsigned int point = m_level->edge_children[edge];
    m_below.has_point[point] = 1;
    store(middle, m_below.points[point]);
    const unsigned int count = m_below.edges.get_count();
    m_below.edge_indices[first] = count;
    m_below.edge_indices[second] = count + 1;
    m_below.edges.resize(count + 2);
    const auto put = [](Edge& out, unsigned int number, unsigned int from, SimdFloat4 p, SimdFloat4 q, SimdFloat4 r,
                        SimdFloat4 s) {
        out.edge = number;
        out.start = from;
        store(p, out.controls[0]);
        store(q, out.controls[1]);
        store(r, out.controls[2]);
        store(s, out.controls[3]);
    };
    put(m_below.edges[count], first, m_level->vertex_children[start], a, ab, abc, middle);
    put(m_below.edges[count + 1], second, point, middle, bcd, cd, d);
}

}  // namespace sds

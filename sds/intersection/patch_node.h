// Sub-patches and the pool they live in, shared by the frustum, the fixed-level and the adaptive routines.
#pragma once

#include <cstring>
#include <limits>

#include "qn_gmath/gmath_vec.h"
#include "qn_simd/simd_float4.h"
#include "sds/common/control_lanes.h"

namespace sds {

struct PatchBox {
    float min[3];
    float max[3];

    float get_size() const { return (max[0] - min[0]) + (max[1] - min[1]) + (max[2] - min[2]); }
};

struct alignas(16) PatchNode {
    // Row-major 4 x 4 grid of control points per coordinate; places 0, 3, 15, 12 are the corners in cyclic order.
    float coords[3][16];
    // Lowest a and b, highest a and b in patch coordinates: a runs along the rows, b along the columns.
    float range[4];
    PatchBox box;
    float size;         // width, height and depth of the box added up
    float parent_size;  // the same of the node that this is half of
    unsigned int depth;
    unsigned char direction;  // 0 when a is u, 1 when a is v
    bool box_valid;           // box and size are current
    unsigned char children[2];

    GMathVec3<float> get_point(unsigned int place) const {
        return {coords[0][place], coords[1][place], coords[2][place]};
    }
};

inline void set_root(PatchNode& root, const ControlLanes& controls) {
    std::memcpy(root.coords, controls.coords, sizeof(root.coords));
    root.range[0] = root.range[1] = 0.0f;
    root.range[2] = root.range[3] = 1.0f;
    root.parent_size = std::numeric_limits<float>::max();
    root.depth = 0;
    root.direction = 0;
    root.box_valid = false;
}

inline PatchBox compute_box(const PatchNode& node) {
    PatchBox box;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float* c = node.coords[axis];
        const SimdFloat4 r0 = SimdFloat4::load(c), r1 = SimdFloat4::load(c + 4), r2 = SimdFloat4::load(c + 8),
                         r3 = SimdFloat4::load(c + 12);
        box.min[axis] = horizontal_min(min(min(r0, r1), min(r2, r3)));
        box.max[axis] = horizontal_max(max(max(r0, r1), max(r2, r3)));
    }
    return box;
}

inline const PatchBox& get_box(PatchNode& node) {
    if (!node.box_valid) {
        node.box = compute_box(node);
        node.size = node.box.get_size();
        node.box_valid = true;
    }
    return node.box;
}

// De Casteljau at one half. The formula is symmetric: a reversed edge halves to the same bits.
struct CubicHalves {
    SimdFloat4 m01, a, mid, b, m23;

    CubicHalves(SimdFloat4 p0, SimdFloat4 p1, SimdFloat4 p2, SimdFloat4 p3) {
        const SimdFloat4 half(0.5f);
        const SimdFloat4 m12 = (p1 + p2) * half;
        m01 = (p0 + p1) * half;
        m23 = (p2 + p3) * half;
        a = (m01 + m12) * half;
        b = (m12 + m23) * half;
        mid = (a + b) * half;
    }
};

inline void store_rows(float* c, SimdFloat4 r0, SimdFloat4 r1, SimdFloat4 r2, SimdFloat4 r3) {
    r0.store(c);
    r1.store(c + 4);
    r2.store(c + 8);
    r3.store(c + 12);
}

// Halves the four rows. The children store their grids transposed, so that the next such split halves the other
// direction:
//     child row k = the k-th points of the four half-rows,    range (a0, b0, a1, b1) -> (b0, a0, b1, half) and (b0,
//     half, b1, a1)
inline void halve_rows(const PatchNode& node, PatchNode& first, PatchNode& second) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float* c = node.coords[axis];
        SimdFloat4 p0 = SimdFloat4::load(c), p1 = SimdFloat4::load(c + 4), p2 = SimdFloat4::load(c + 8),
                   p3 = SimdFloat4::load(c + 12);
        transpose(p0, p1, p2, p3);
        const CubicHalves h(p0, p1, p2, p3);
        store_rows(first.coords[axis], p0, h.m01, h.a, h.mid);
        store_rows(second.coords[axis], h.mid, h.b, h.m23, p3);
    }
    const float* r = node.range;
    const float half = (r[0] + r[2]) * 0.5f;
    const float a_max = r[2];
    const float a_min = r[0];
    const float b_min = r[1];
    const float b_max = r[3];
    first.range[0] = second.range[0] = b_min;
    first.range[2] = second.range[2] = b_max;
    first.range[1] = a_min;
    first.range[3] = half;
    second.range[1] = half;
    second.range[3] = a_max;
    first.direction = second.direction = static_cast<unsigned char>(node.direction ^ 1u);
}

// Halves the four columns in place: the grids keep their orientation and the b interval is halved.
inline void halve_columns(const PatchNode& node, PatchNode& first, PatchNode& second) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float* c = node.coords[axis];
        const SimdFloat4 p0 = SimdFloat4::load(c), p1 = SimdFloat4::load(c + 4), p2 = SimdFloat4::load(c + 8),
                         p3 = SimdFloat4::load(c + 12);
        const CubicHalves h(p0, p1, p2, p3);
        store_rows(first.coords[axis], p0, h.m01, h.a, h.mid);
        store_rows(second.coords[axis], h.mid, h.b, h.m23, p3);
    }
    const float* r = node.range;
    const float half = (r[1] + r[3]) * 0.5f;
    first.range[0] = second.range[0] = r[0];
    first.range[2] = second.range[2] = r[2];
    first.range[1] = r[1];
    first.range[3] = half;
    second.range[1] = half;
    second.range[3] = r[3];
    first.direction = second.direction = node.direction;
}

// A fixed pool of nodes, the nodes still to visit and the count of splits that were refused. Lives in the thread's
// scratch: begin() makes it ready for a call.
class NodePool {
public:
    static constexpr unsigned int capacity = 128;

    // Empties everything and gives out the root, which becomes node 0.
    unsigned int begin() {
        m_free_count = 0;
        m_fresh = 0;
        m_pending_count = 0;
        m_overflow_count = 0;
        unsigned char root = 0;
        take(root);
        return root;
    }

    PatchNode& operator[](unsigned int index) { return m_nodes[index]; }

    void release(unsigned int index) { m_free[m_free_count++] = static_cast<unsigned char>(index); }

    // Takes two nodes for the children of `node`; false, with the refusal counted, when the pool has not both.
    bool take_children(PatchNode& node) {
        if (take(node.children[0])) {
            if (take(node.children[1])) return true;
            release(node.children[0]);
        }
        count_refusal();
        return false;
    }

    void count_refusal() { ++m_overflow_count; }

    // `entry` is the distance at which the ray enters the node's box.
    void push(unsigned int index, float entry) {
        m_pending[m_pending_count++] = {entry, static_cast<unsigned char>(index)};
    }
    bool pop(unsigned int& index, float& entry) {
        if (m_pending_count == 0) return false;
        const Pending& top = m_pending[--m_pending_count];
        index = top.index;
        entry = top.entry;
        return true;
    }

    unsigned int get_overflow_count() const { return m_overflow_count; }
    unsigned int get_node_index(const PatchNode& node) const { return static_cast<unsigned int>(&node - m_nodes); }

private:
    struct Pending {
        float entry;
        unsigned char index;
    };

    // The latest to come back goes out first; fresh ones when none is back.
    bool take(unsigned char& index) {
        if (m_free_count != 0) {
            index = m_free[--m_free_count];
            return true;
        }
        if (m_fresh == capacity) return false;
        index = static_cast<unsigned char>(m_fresh++);
        return true;
    }

    PatchNode m_nodes[capacity];
    Pending m_pending[capacity];
    unsigned char m_free[capacity];
    unsigned int m_free_count;
    unsigned int m_fresh;
    unsigned int m_pending_count;
    unsigned int m_overflow_count;
};

// Split rule of the fixed levels: every level halves both directions once, down to `max_depth` splits.
struct FixedDepthSplit {
    unsigned int max_depth;

    bool is_leaf(const PatchNode& node) const { return node.depth >= max_depth; }

    void halve(const PatchNode& node, PatchNode& first, PatchNode& second) const {
        halve_rows(node, first, second);
        first.depth = second.depth = node.depth + 1;
        first.box_valid = second.box_valid = false;
    }
};

// Split rule of the limit surface: the longer of two sides is halved, and a node whose box came out of that hardly
// smaller than its parent's, by the tolerance or less, is small enough.
struct AdaptiveSplit {
    float tolerance;

    // A NaN in the sizes makes a leaf.
    bool is_leaf(PatchNode& node) const {
        get_box(node);
        return !(node.parent_size - node.size > tolerance);
    }

    void halve(const PatchNode& node, PatchNode& first, PatchNode& second) const {
        const GMathVec3<float> corner = node.get_point(0);
        const float row = (node.get_point(3) - corner).length_squared();
        const float column = (node.get_point(12) - corner).length_squared();
        if (row > column)
            halve_rows(node, first, second);
        else
            halve_columns(node, first, second);
        first.depth = second.depth = node.depth + 1;
        first.parent_size = second.parent_size = node.size;
        first.box_valid = second.box_valid = false;
    }
};

// Makes the children of a node that is no leaf by its rule; false when the pool has no room for them.
template <class Rule>
bool split(const Rule& rule, NodePool& pool, PatchNode& node) {
    if (!pool.take_children(node)) return false;
    rule.halve(node, pool[node.children[0]], pool[node.children[1]]);
    return true;
}

}  // namespace sds

#include "oracles/ray_oracle.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

namespace sds_test {

namespace {

constexpr unsigned int none = 0xFFFFFFFF;
constexpr unsigned int block_size = 8;  // cells along the side of a block

// Values and slopes of the cubic basis. Grouped as (ends) + (middle) wherever it is summed, so that an edge walked from
// its other end gives the same bits.
struct Basis {
    double value[4];
    double slope[4];

    explicit Basis(double t) {
        const double s = 1.0 - t;
        value[0] = s * s * s;
        value[1] = 3 * s * (s * t);
        value[2] = 3 * t * (s * t);
        value[3] = t * t * t;
        slope[0] = -3 * s * s;
        slope[1] = 3 * s * s - 6 * s * t;
        slope[2] = 6 * s * t - 3 * t * t;
        slope[3] = 3 * t * t;
    }
};

template <class Value>
Value sum(const double* w, const Value& a, const Value& b, const Value& c, const Value& d) {
    return (a * w[0] + d * w[3]) + (b * w[1] + c * w[2]);
}

template <class Value>
Value tensor(const Value* grid, const double* wu, const double* wv) {
    Value rows[4];
    for (unsigned int r = 0; r < 4; ++r)
        rows[r] = sum(wu, grid[4 * r], grid[4 * r + 1], grid[4 * r + 2], grid[4 * r + 3]);
    return sum(wv, rows[0], rows[1], rows[2], rows[3]);
}

struct Plane2 {
    double p, q;
    Plane2 operator+(const Plane2& o) const { return {p + o.p, q + o.q}; }
    Plane2 operator*(double s) const { return {p * s, q * s}; }
};

// A sub-patch in the plane across the ray.
struct PlaneNode {
    Plane2 points[16];
    double u0, u1, v0, v1;
    unsigned int depth;

    bool holds_origin(double slack) const {
        double low_p = points[0].p, high_p = low_p, low_q = points[0].q, high_q = low_q;
        for (const Plane2& point : points) {
            low_p = std::min(low_p, point.p);
            high_p = std::max(high_p, point.p);
            low_q = std::min(low_q, point.q);
            high_q = std::max(high_q, point.q);
        }
        return low_p <= slack && high_p >= -slack && low_q <= slack && high_q >= -slack;
    }

    // Halves along u (depth even) or v.
    void split(PlaneNode& first, PlaneNode& second) const {
        const bool along_u = depth % 2 == 0;
        const unsigned int step = along_u ? 1 : 4;
        const unsigned int stride = along_u ? 4 : 1;
        for (unsigned int line = 0; line < 4; ++line) {
            const Plane2* c = points + line * stride;
            const Plane2 a = (c[0] + c[step]) * 0.5;
            const Plane2 m = (c[step] + c[2 * step]) * 0.5;
            const Plane2 b = (c[2 * step] + c[3 * step]) * 0.5;
            const Plane2 am = (a + m) * 0.5;
            const Plane2 mb = (m + b) * 0.5;
            const Plane2 middle = (am + mb) * 0.5;
            Plane2* f = first.points + line * stride;
            Plane2* s = second.points + line * stride;
            f[0] = c[0], f[step] = a, f[2 * step] = am, f[3 * step] = middle;
            s[0] = middle, s[step] = mb, s[2 * step] = b, s[3 * step] = c[3 * step];
        }
        first.depth = second.depth = depth + 1;
        first.u0 = u0, first.u1 = u1, first.v0 = v0, first.v1 = v1;
        second.u0 = u0, second.u1 = u1, second.v0 = v0, second.v1 = v1;
        if (along_u)
            first.u1 = second.u0 = 0.5 * (u0 + u1);
        else
            first.v1 = second.v0 = 0.5 * (v0 + v1);
    }
};

}  // namespace

struct RayOracle::RayPlane {
    Vec3d origin, direction, across0, across1;
    double length;
    double near, far;

    RayPlane(const Vec3d& o, const Vec3d& d, double n, double f)
        : origin(o), direction(d), length(d.length()), near(n), far(f) {
        const Vec3d unit = d * (1.0 / length);
        unsigned int least = std::fabs(unit[1]) < std::fabs(unit[0]) ? 1 : 0;
        if (std::fabs(unit[2]) < std::fabs(unit[least])) least = 2;
        Vec3d axis{0, 0, 0};
        axis[least] = 1.0;
        across0 = unit.cross(axis);
        across0 *= 1.0 / across0.length();
        across1 = unit.cross(across0);
    }
    Plane2 project(const Vec3d& point) const {
        const Vec3d from = point - origin;
        return {from.dot(across0), from.dot(across1)};
    }
    double distance(const Vec3d& point) const { return (point - origin).dot(direction) / (length * length); }
};

std::vector<RayOracle::Controls> RayOracle::get_controls(const SdsMeshGeometry& geometry) {
    std::vector<Controls> patches(geometry.get_patch_count());
    for (unsigned int i = 0; i < patches.size(); ++i) geometry.get_bezier_controls(i, patches[i].data());
    return patches;
}

std::vector<unsigned int> RayOracle::get_splits(const SdsMesh& mesh) {
    std::vector<unsigned int> splits(mesh.get_primitive_count(), limit_surface);
    if (mesh.get_level() != 0)
        for (unsigned int i = 0; i < splits.size(); ++i) splits[i] = mesh.get_cell_level(i);
    return splits;
}

RayOracle::RayOracle(const std::vector<Controls>& patches, const std::vector<unsigned int>& splits)
    : m_patches(patches.size()) {
    for (const unsigned int count : splits) m_cells.push_back(count == limit_surface ? 0 : 1u << count);
    std::vector<BoxTree::Box> boxes;
    for (unsigned int primitive = 0; primitive < m_patches.size(); ++primitive) {
        BoxTree::Box box = BoxTree::Box::empty();
        for (unsigned int place = 0; place < 16; ++place) {
            m_patches[primitive][place] = Vec3d(patches[primitive][sds::grid_order[place]]);
            box.grow(m_patches[primitive][place]);
        }
        m_bbox.grow(box);
        boxes.push_back(box);
    }
    if (!m_cells.empty() && m_cells[0] != 0) {
        boxes.clear();
        for (unsigned int primitive = 0; primitive < m_patches.size(); ++primitive) {
            const unsigned int cells = m_cells[primitive];
            for (unsigned int j = 0; j < cells; j += block_size)
                for (unsigned int i = 0; i < cells; i += block_size) {
                    m_blocks.push_back(
                        {primitive, i, j, std::min(i + block_size, cells), std::min(j + block_size, cells)});
                    boxes.push_back(block_box(m_blocks.back()));
                }
        }
    }
    m_tree.emplace_back(boxes, 1e-12 * (m_bbox.is_empty() ? 0.0 : m_bbox.get_diagonal()));
}

Vec3d RayOracle::limit_point(unsigned int primitive, double u, double v) const {
    return tensor(m_patches[primitive].data(), Basis(u).value, Basis(v).value);
}

Vec3d RayOracle::grid_point(unsigned int primitive, unsigned int i, unsigned int j) const {
    return limit_point(primitive, static_cast<double>(i) / m_cells[primitive],
                       static_cast<double>(j) / m_cells[primitive]);
}

Vec3d RayOracle::point(unsigned int primitive, double u, double v) const {
    if (is_limit()) return limit_point(primitive, u, v);
    const unsigned int cells = m_cells[primitive];
    const unsigned int i = std::min(static_cast<unsigned int>(u * cells), cells - 1);
    const unsigned int j = std::min(static_cast<unsigned int>(v * cells), cells - 1);
    const double a = u * cells - i;
    const double b = v * cells - j;
    const Vec3d c0 = grid_point(primitive, i, j), c2 = grid_point(primitive, i + 1, j + 1);
    if (a >= b) return c0 * (1 - a) + grid_point(primitive, i + 1, j) * (a - b) + c2 * b;
    return c0 * (1 - b) + c2 * a + grid_point(primitive, i, j + 1) * (b - a);
}

std::vector<TEdge> RayOracle::find_t_edges() const {
    // Places of an edge's four controls in the grid, and its ends' coordinates.
    static constexpr struct {
        unsigned int places[4];
        double begin[2], end[2];
    } edges[] = {{{0, 1, 2, 3}, {0, 0}, {1, 0}},
                 {{3, 7, 11, 15}, {1, 0}, {1, 1}},
                 {{15, 14, 13, 12}, {1, 1}, {0, 1}},
                 {{12, 8, 4, 0}, {0, 1}, {0, 0}}};
    using Point = std::array<float, 3>;
    const auto round = [](const Vec3d& p) {
        return Point{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    };
    const auto halve = [](const Point& a, const Point& b) {
        return Point{(a[0] + b[0]) * 0.5f, (a[1] + b[1]) * 0.5f, (a[2] + b[2]) * 0.5f};
    };
    std::set<Point> corners;
    for (const Grid& grid : m_patches)
        for (const unsigned int place : {0u, 3u, 12u, 15u}) corners.insert(round(grid[place]));
    std::vector<TEdge> found;
    for (unsigned int primitive = 0; primitive < get_patch_count(); ++primitive)
        for (const auto& edge : edges) {
            Point c[4];
            for (unsigned int i = 0; i < 4; ++i) c[i] = round(m_patches[primitive][edge.places[i]]);
            const Point inner = halve(c[1], c[2]);
            const Point middle = halve(halve(halve(c[0], c[1]), inner), halve(inner, halve(c[2], c[3])));
            if (corners.contains(middle))
                found.push_back({primitive, {edge.begin[0], edge.begin[1]}, {edge.end[0], edge.end[1]}});
        }
    return found;
}

BoxTree::Box RayOracle::block_box(const Block& block) const {
    BoxTree::Box box = BoxTree::Box::empty();
    for (unsigned int j = block.v0; j <= block.v1; ++j)
        for (unsigned int i = block.u0; i <= block.u1; ++i) box.grow(grid_point(block.primitive, i, j));
    return box;
}

template <class Report>
void RayOracle::meet_patch(const RayPlane& ray, unsigned int primitive, Report&& report) const {
    constexpr unsigned int newton_depth = 32;
    constexpr unsigned int last_depth = 48;
    constexpr double root_residual = 1e-12;
    const Grid& grid = m_patches[primitive];
    PlaneNode stack[last_depth + 2];
    PlaneNode& root = stack[0];
    double scale = ray.origin.length();
    for (unsigned int place = 0; place < 16; ++place) {
        root.points[place] = ray.project(grid[place]);
        scale = std::max(scale, grid[place].length());
    }
    const double slack = 4e-15 * scale;
    root.u0 = root.v0 = 0.0;
    root.u1 = root.v1 = 1.0;
    root.depth = 0;
    unsigned int count = root.holds_origin(slack) ? 1 : 0;
    const auto split = [&](const PlaneNode& node) {
        node.split(stack[count], stack[count + 1]);
        const bool first = stack[count].holds_origin(slack);
        const bool second = stack[count + 1].holds_origin(slack);
        if (!first && second) stack[count] = stack[count + 1];
        count += (first ? 1u : 0u) + (second ? 1u : 0u);
    };
    while (count != 0) {
        const PlaneNode node = stack[--count];
        if (node.depth < newton_depth) {
            split(node);
            continue;
        }
        double u = 0.5 * (node.u0 + node.u1);
        double v = 0.5 * (node.v0 + node.v1);
        const double u_center = u, v_center = v, reach = 2.0 * (node.u1 - node.u0);
        Vec3d du, dv;
        bool is_root = false;
        for (unsigned int step = 0; step < 8; ++step) {
            const Basis bu(u), bv(v);
            const Plane2 f = ray.project(tensor(grid.data(), bu.value, bv.value));
            du = tensor(grid.data(), bu.slope, bv.value);
            dv = tensor(grid.data(), bu.value, bv.slope);
            is_root = std::hypot(f.p, f.q) <= root_residual * scale;
            const double a = du.dot(ray.across0), b = dv.dot(ray.across0), c = du.dot(ray.across1),
                         d = dv.dot(ray.across1);
            const double det = a * d - b * c;
            const double step_u = (d * f.p - b * f.q) / det;
            const double step_v = (a * f.q - c * f.p) / det;
            if (!(std::fabs(u - step_u - u_center) <= reach && std::fabs(v - step_v - v_center) <= reach)) break;
            u -= step_u;
            v -= step_v;
        }
        if (!is_root) {
            if (node.depth < last_depth) split(node);
            continue;
        }
        u = std::clamp(u, 0.0, 1.0);
        v = std::clamp(v, 0.0, 1.0);
        const Vec3d normal = du.cross(dv);
        const double t = ray.distance(limit_point(primitive, u, v));
        if (t > ray.near && t < ray.far)
            report(Crossing{t, primitive, u, v, std::fabs(normal.dot(ray.direction)) / (normal.length() * ray.length)});
    }
}

template <class Report>
void RayOracle::meet_block(const RayPlane& ray, const Block& block, Report&& report) const {
    constexpr unsigned int side = block_size + 1;
    Plane2 plane[side * side];
    Vec3d space[side * side];
    for (unsigned int j = block.v0; j <= block.v1; ++j)
        for (unsigned int i = block.u0; i <= block.u1; ++i) {
            const unsigned int at = side * (j - block.v0) + i - block.u0;
            space[at] = grid_point(block.primitive, i, j);
            plane[at] = ray.project(space[at]);
        }
    const auto edge = [](const Plane2& a, const Plane2& b) { return a.p * b.q - a.q * b.p; };
    for (unsigned int j = 0; j < block.v1 - block.v0; ++j)
        for (unsigned int i = 0; i < block.u1 - block.u0; ++i)
            for (unsigned int upper = 0; upper < 2; ++upper) {
                const unsigned int k0 = side * j + i;
                const unsigned int k1 = upper == 0 ? k0 + 1 : k0 + side + 1;
                const unsigned int k2 = upper == 0 ? k0 + side + 1 : k0 + side;
                const double e0 = edge(plane[k1], plane[k2]), e1 = edge(plane[k2], plane[k0]),
                             e2 = edge(plane[k0], plane[k1]);
                const bool inside = (e0 >= 0 && e1 >= 0 && e2 >= 0) || (e0 <= 0 && e1 <= 0 && e2 <= 0);
                const double area = e0 + e1 + e2;
                if (!inside || area == 0.0) continue;
                const double w0 = e0 / area, w1 = e1 / area, w2 = e2 / area;
                const double t = ray.distance(space[k0] * w0 + space[k1] * w1 + space[k2] * w2);
                if (!(t > ray.near && t < ray.far)) continue;
                const double a = i + block.u0 + (upper == 0 ? w1 + w2 : w1);
                const double b = j + block.v0 + (upper == 0 ? w2 : w1 + w2);
                const Vec3d normal = (space[k1] - space[k0]).cross(space[k2] - space[k0]);
                const double cells = m_cells[block.primitive];
                report(Crossing{t, block.primitive, a / cells, b / cells,
                                std::fabs(normal.dot(ray.direction)) / (normal.length() * ray.length)});
            }
}

void RayOracle::find_all(const Vec3d& origin, const Vec3d& direction, double near, double far,
                         std::vector<Crossing>& out) const {
    out.clear();
    const RayPlane ray(origin, direction, near, far);
    const auto keep = [&](const Crossing& crossing) { out.push_back(crossing); };
    m_tree[0].trace(origin, direction, near, far, [&](unsigned int item) {
        if (is_limit())
            meet_patch(ray, item, keep);
        else
            meet_block(ray, m_blocks[item], keep);
        return far;
    });
}

Crossing RayOracle::find_nearest(const Vec3d& origin, const Vec3d& direction, double near, double far) const {
    Crossing nearest{far, none, 0.0, 0.0, 0.0};
    const RayPlane ray(origin, direction, near, far);
    const auto keep = [&](const Crossing& crossing) {
        if (crossing.t < nearest.t) nearest = crossing;
    };
    m_tree[0].trace(origin, direction, near, far, [&](unsigned int item) {
        if (is_limit())
            meet_patch(ray, item, keep);
        else
            meet_block(ray, m_blocks[item], keep);
        // A little farther than the nearest, for the patches' roots may lie a rounding error outside their boxes.
        return nearest.t + 1e-12 * (1.0 + std::fabs(nearest.t));
    });
    return nearest;
}

}  // namespace sds_test

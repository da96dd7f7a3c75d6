
#include <algorithm>
#include <cmath>
#include <limits>

#include "sds/common/control_lanes.h"
#include "sds/common/cubic_basis.h"
#include "sds/intersection/trace_patch.h"
#include "sds/mesh/ray_index.h"
#include "sds/mesh/ray_tree_build.h"

namespace sds {

// Weights of the points i / 2^level along one side, in every lane.
struct NetWeights {
    static constexpr unsigned int max_size = 9;
    SimdFloat4 at[max_size][4];

    explicit NetWeights(unsigned int level) {
        const unsigned int size = get_kept_side(level);
        for (unsigned int i = 0; i < size; ++i) {
            const auto basis = CubicBasis<float>::make_symmetric(static_cast<float>(i) / static_cast<float>(size - 1));
            for (unsigned int k = 0; k < 4; ++k) at[i][k] = SimdFloat4(basis.b[k]);
        }
    }
};

namespace {

// Thirteen points or rows of points: those of four parts, each sharing its last with the next one's first.
constexpr unsigned int net_size = 13;

// De Casteljau at one half, twice.
void quarter_curve(SimdFloat4 p0, SimdFloat4 p1, SimdFloat4 p2, SimdFloat4 p3, SimdFloat4* out) {
    const auto halve = [](const SimdFloat4* p, SimdFloat4* q) {
        const SimdFloat4 half(0.5f);
        const SimdFloat4 m01 = (p[0] + p[1]) * half, m12 = (p[1] + p[2]) * half, m23 = (p[2] + p[3]) * half;
        const SimdFloat4 a = (m01 + m12) * half, b = (m12 + m23) * half;
        q[0] = p[0], q[1] = m01, q[2] = a, q[3] = (a + b) * half, q[4] = b, q[5] = m23, q[6] = p[3];
    };
    const SimdFloat4 whole[4] = {p0, p1, p2, p3};
    SimdFloat4 halves[7];
    halve(whole, halves);
    halve(halves, out);
    halve(halves + 3, out + 6);
}

// Least and greatest coordinates of the parts [v][u].
struct PartBounds {
    float low[4][4], high[4][4];

    // Makes all of them the patch's.
    void join() {
        std::fill_n(&low[0][0], part_count, *std::min_element(&low[0][0], &low[0][0] + part_count));
        std::fill_n(&high[0][0], part_count, *std::max_element(&high[0][0], &high[0][0] + part_count));
    }
};

// Of their control points.
void find_bounds(const float* coords, PartBounds& bounds) {
    SimdFloat4 rows[net_size];
    quarter_curve(SimdFloat4::load_unaligned(coords), SimdFloat4::load_unaligned(coords + 4),
                  SimdFloat4::load_unaligned(coords + 8), SimdFloat4::load_unaligned(coords + 12), rows);
    for (unsigned int v = 0; v < 4; ++v) {
        SimdFloat4 c[4] = {rows[3 * v], rows[3 * v + 1], rows[3 * v + 2], rows[3 * v + 3]};
        transpose(c[0], c[1], c[2], c[3]);
        SimdFloat4 columns[net_size], low[4], high[4];
        quarter_curve(c[0], c[1], c[2], c[3], columns);
        for (unsigned int u = 0; u < 4; ++u) {
            const SimdFloat4* p = columns + 3 * u;
            low[u] = min(min(p[0], p[1]), min(p[2], p[3]));
            high[u] = max(max(p[0], p[1]), max(p[2], p[3]));
        }
        transpose(low[0], low[1], low[2], low[3]);
        transpose(high[0], high[1], high[2], high[3]);
        min(min(low[0], low[1]), min(low[2], low[3])).store_unaligned(bounds.low[v]);
        max(max(high[0], high[1]), max(high[2], high[3])).store_unaligned(bounds.high[v]);
    }
}

// The corners of a patch's flat cells of level 2 or 3, one coordinate of (i, j) in row i, place j.
struct CellNet {
    static constexpr unsigned int row_size = 12;
    float at[NetWeights::max_size][row_size];

    // Every point by symmetric sums first along v, then along u, with weights that are exactly 0 and 1 at the ends:
    // patches that share an edge get its points to the same bits.
    CellNet(const float* coords, unsigned int level, const NetWeights& weights) {
        const unsigned int size = get_kept_side(level);
        const auto blend = [](const SimdFloat4* c, const SimdFloat4* w) {
            return (c[0] * w[0] + c[3] * w[3]) + (c[1] * w[1] + c[2] * w[2]);
        };
        const SimdFloat4 rows[4] = {SimdFloat4::load_unaligned(coords), SimdFloat4::load_unaligned(coords + 4),
                                    SimdFloat4::load_unaligned(coords + 8), SimdFloat4::load_unaligned(coords + 12)};
        for (unsigned int j = 0; j < size; j += 4) {
            SimdFloat4 curves[4];
            for (unsigned int k = 0; k < 4; ++k) curves[k] = blend(rows, weights.at[std::min(j + k, size - 1)]);
            transpose(curves[0], curves[1], curves[2], curves[3]);
            for (unsigned int i = 0; i < size; ++i) blend(curves, weights.at[i]).store_unaligned(at[i] + j);
        }
    }

    // Cells are flat: their corners bound them.
    void find_bounds(unsigned int level, PartBounds& bounds) const {
        const unsigned int step = 1u << (level - 2);
        for (unsigned int u = 0; u < 4; ++u) {
            float low[row_size], high[row_size];
            std::copy_n(at[step * u], row_size, low);
            std::copy_n(at[step * u], row_size, high);
            for (unsigned int i = step * u + 1; i <= step * (u + 1); ++i)
                for (unsigned int j = 0; j < row_size; ++j) {
                    low[j] = std::min(low[j], at[i][j]);
                    high[j] = std::max(high[j], at[i][j]);
                }
            for (unsigned int v = 0; v < 4; ++v) {
                const float *l = low + step * v, *h = high + step * v;
                bounds.low[v][u] = std::min(l[0], std::min(l[step / 2], l[step]));
                bounds.high[v][u] = std::max(h[0], std::max(h[step / 2], h[step]));
            }
        }
    }

    void store(unsigned int level, float* out) const {
        const unsigned int side = get_kept_side(level);
        for (unsigned int i = 0; i < side; ++i) std::copy_n(at[i], side, out + side * i);
    }
};

// The part at each place of PartBounds, v first.
struct PartOrder {
    unsigned char at[part_count];

    constexpr PartOrder() : at{} {
        for (unsigned int part = 0; part < part_count; ++part)
            at[4 * get_part_v(part) + get_part_u(part)] = static_cast<unsigned char>(part);
    }
};
constexpr PartOrder part_order;

// Steps from 0 to 255; NaN, as those of a point that is not finite, as 0.
int round_down(float x) { return static_cast<int>(x > 0.0f ? std::min(x, 255.0f) : 0.0f); }

// Boxes take in, by `margin`, the rounding of points, of the ray and of the test that they are for, and hits that
// kernels accept beside a part.
void set_boxes(const PartBounds& bounds, float margin, unsigned int axis, PartBoxes& boxes) {
    constexpr float outside = 0x1p-17f;
    const float low = *std::min_element(&bounds.low[0][0], &bounds.low[0][0] + part_count);
    const float high = *std::max_element(&bounds.high[0][0], &bounds.high[0][0] + part_count);
    const float pad = margin + outside * (high - low), origin = low - pad;
    const float step = (high + pad - origin) * ((1.0f + 0x1p-20f) / 255.0f), inverse = 1.0f / step;
    boxes.origin[axis] = origin;
    boxes.step[axis] = step;
    const float *lows = &bounds.low[0][0], *highs = &bounds.high[0][0];
    int first[part_count], last[part_count];
    for (unsigned int i = 0; i < part_count; ++i) {
        first[i] = round_down((lows[i] - pad - origin) * inverse);
        last[i] = 255 - round_down(255.0f - (highs[i] + pad - origin) * inverse);
    }
    for (unsigned int i = 0; i < part_count; ++i) {
        boxes.sides[axis][0][part_order.at[i]] = static_cast<unsigned char>(first[i]);
        boxes.sides[axis][1][part_order.at[i]] = static_cast<unsigned char>(last[i]);
    }
}

// False for an empty box, and one that is not finite.
bool holds_points(const GMathBbox3<double>& box) {
    constexpr double largest = std::numeric_limits<double>::max();
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double low = box.get_min()[axis], high = box.get_max()[axis];
        if (!(low >= -largest && low <= high && high <= largest)) return false;
    }
    return true;
}

// The box in single precision, with room for what the hierarchy's tests round and for hits beside the patch.
TreeItem make_item(const GMathBbox3<double>& box, unsigned int patch, const float* center, double margin) {
    TreeItem item{{}, {}, patch};
    constexpr double outside = 0x1p-17;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double from = static_cast<double>(center[axis]);
        const double low = box.get_min()[axis] - from, high = box.get_max()[axis] - from;
        const double pad = margin + outside * (high - low);
        item.low[axis] = static_cast<float>(low - pad);
        item.high[axis] = static_cast<float>(high + pad);
    }
    return item;
}

}  // namespace

std::unique_ptr<const RayIndex> RayIndex::make(const SdsMesh& mesh, const CoreBasicArray<GMathBbox3<double>>& boxes) {
    const SdsMeshGeometry& geometry = *mesh.get_geometry();
    const unsigned int count = geometry.get_patch_count();
    if (count == 0 || count > max_patch_count || boxes.get_count() != count || geometry.is_animated()) return nullptr;
    const GMathBbox3<float>& box = geometry.get_bbox();
    float extent = 0.0f;
    for (unsigned int axis = 0; axis < 3; ++axis)
        extent = std::max({extent, std::fabs(box.get_min()[axis]), std::fabs(box.get_max()[axis])});
    if (!(extent >= 0x1p-20f && extent <= 0x1p60f)) return nullptr;
    // A few times the rounding of the largest coordinate.
    const float margin = 0x1p-19f * extent;

    // What is kept is rounded as the surface is large, not as it is far from the origin.
    const GMathVec3<float> middle = box.get_center();
    const float center[3] = {middle[0], middle[1], middle[2]};
    CoreArray<TreeItem> items;
    items.reserve(count);
    for (unsigned int patch = 0; patch < count; ++patch) {
        if (holds_points(boxes[patch])) items.add(make_item(boxes[patch], patch, center, static_cast<double>(margin)));
    }
    if (items.is_empty()) return nullptr;
    auto index = std::make_unique<RayIndex>();
    index->m_mesh = &mesh;
    index->m_center = GMathBbox3<double>(box).get_center();
    build_ray_tree(items, index->m_nodes);
    index->m_boxes.resize(count);
    const unsigned int level = mesh.get_level() == 0 ? limit_surface : mesh.get_cell_level(0);
    // Refined surfaces have cells of several levels, which share parts of edges.
    const bool keeps_cells = (level == 2 || level == 3) && count <= max_kept_patch_count && !geometry.is_refined();
    if (keeps_cells) index->m_cells.resize(get_kept_size(level) * count);
    const NetWeights weights(keeps_cells ? level : 2);
    index->m_tree = {{center[0], center[1], center[2]},
                     index->m_nodes.get_data(),
                     index->m_boxes.get_data(),
                     keeps_cells ? index->m_cells.get_data() : nullptr,
                     level};
    for (const TreeItem& item : items) index->set_parts(item.patch, weights, margin);
    return index;
}

void RayIndex::set_parts(unsigned int patch, const NetWeights& weights, float margin) {
    const unsigned int level = m_tree.cell_level;
    GMathVec3<float> points[16];
    m_mesh->get_geometry()->get_bezier_controls(patch, points);
    for (GMathVec3<float>& point : points)
        for (unsigned int axis = 0; axis < 3; ++axis) point[axis] -= m_tree.center[axis];
    const ControlLanes controls(points);
    const bool is_limit = m_mesh->get_level() == 0;
    float* const cells = m_cells.is_empty() ? nullptr : m_cells.get_data() + size_t{get_kept_size(level)} * patch;
    const unsigned int corner_count = cells != nullptr ? get_kept_side(level) * get_kept_side(level) : 0;
    // What is loaded with the last corners.
    if (cells != nullptr) std::fill(cells + 3 * corner_count, cells + get_kept_size(level), 0.0f);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        PartBounds bounds;
        if (cells == nullptr) {
            find_bounds(controls.coords[axis], bounds);
            // Cells larger than parts leave the parts' hulls.
            if (!is_limit && m_mesh->get_cell_level(patch) < 2) bounds.join();
        } else {
            const CellNet net(controls.coords[axis], level, weights);
            net.find_bounds(level, bounds);
            net.store(level, cells + axis * corner_count);
        }
        set_boxes(bounds, margin, axis, m_boxes[patch]);
    }
}

}  // namespace sds


#include <algorithm>
#include <cmath>
#include <limits>

#include "sds/common/control_lanes.h"
#include "sds/common/cubic_basis.h"
#include "sds/intersection/trace_patch.h"
#include "sds/mesh/part_kernels/part_kernels.h"
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

// Makes the bounds of all parts the patch's.
void join(PartBounds& bounds) {
    float *low = &bounds.low[0][0], *high = &bounds.high[0][0];
    std::fill_n(low, part_count, *std::min_element(low, low + part_count));
    std::fill_n(high, part_count, *std::max_element(high, high + part_count));
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
    const PartKernels& kernels = get_part_kernels();
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
            kernels.find_bounds(controls.coords[axis], bounds);
            // Cells larger than parts leave the parts' hulls.
            if (!is_limit && m_mesh->get_cell_level(patch) < 2) join(bounds);
        } else {
            const CellNet net(controls.coords[axis], level, weights);
            net.find_bounds(level, bounds);
            net.store(level, cells + axis * corner_count);
        }
        kernels.set_boxes(bounds, margin, axis, m_boxes[patch]);
    }
}

}  // namespace sds

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "sds/common/control_lanes.h"
#include "sds/intersection/trace_patch.h"
#include "sds/mesh/cell_net.h"
#include "sds/mesh/part_kernels/part_kernels.h"
#include "sds/mesh/ray_index.h"
#include "sds/mesh/ray_tree_build.h"
#include "sds/mesh/sliver_slices.h"
#include "sds/mesh_geometry/patch_arrays.h"
#include "sds/refinement/patch_places.h"

namespace sds {

namespace {

// Makes the bounds of all parts the patch's.
void join(PartBounds& bounds) {
    float *low = &bounds.low[0][0], *high = &bounds.high[0][0];
    std::fill_n(low, part_count, *std::min_element(low, low + part_count));
    std::fill_n(high, part_count, *std::max_element(high, high + part_count));
}

// Empties the bounds of some parts.
void clear(PartBounds& bounds, unsigned int parts) {
    for (; parts != 0; parts &= parts - 1) {
        const auto part = static_cast<unsigned int>(std::countr_zero(parts));
        bounds.low[get_part_v(part)][get_part_u(part)] = std::numeric_limits<float>::infinity();
        bounds.high[get_part_v(part)][get_part_u(part)] = -std::numeric_limits<float>::infinity();
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

// Room for what the hierarchy's tests round and for hits beside the patch.
double get_pad(const GMathBbox3<double>& box, unsigned int axis, double margin) {
    constexpr double outside = 0x1p-17;
    return margin + outside * (box.get_max()[axis] - box.get_min()[axis]);
}

// The box in single precision, with room.
TreeItem make_item(const GMathBbox3<double>& box, unsigned int patch, const float* center, double margin) {
    TreeItem item{{}, {}, patch};
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double from = static_cast<double>(center[axis]);
        const double low = box.get_min()[axis] - from, high = box.get_max()[axis] - from;
        const double pad = get_pad(box, axis, margin);
        item.low[axis] = static_cast<float>(low - pad);
        item.high[axis] = static_cast<float>(high + pad);
    }
    return item;
}

bool has_kept_level(unsigned int level) { return level == 2 || level == 3; }

// Of the first patch, whose level in its group is `level_in_group`.
unsigned int get_cell_level(const SdsMesh& mesh, unsigned int level_in_group) {
    return mesh.get_level() == 0 ? limit_surface : mesh.get_cell_level(0) + level_in_group;
}

// One patch of what the hierarchy takes for one.
struct Member {
    unsigned int patch, part, level, x, y;
};

// The patches of one quad, by their parts.
class Members {
public:
    Members(const PatchGroup* groups, unsigned int index) {
        if (groups == nullptr) {
            m_members[m_count++] = {index, 0, 0, 0, 0};
            return;
        }
        const PatchGroup& group = groups[index];
        for (unsigned int left = all_parts; left != 0;) {
            const auto part = static_cast<unsigned int>(std::countr_zero(left));
            const unsigned int level = group.get_level(part), shift = 2 - level;
            m_members[m_count++] = {group.get_patch(part), part, level, get_part_u(part) >> shift,
                                    get_part_v(part) >> shift};
            left &= ~get_parts_of_patch(part, level);
        }
    }
    const Member* begin() const { return m_members; }
    const Member* end() const { return m_members + m_count; }

private:
    Member m_members[part_count];
    unsigned int m_count = 0;
};

// The patches of a refined surface by quads, where every quad has the same cells and they are worth keeping.
void make_groups(const SdsMesh& mesh, CoreArray<PatchGroup>& groups) {
    const SdsMeshGeometry& geometry = *mesh.get_geometry();
    if (mesh.get_level() == 0 || !geometry.is_refined() || geometry.get_finest_level() > 2) return;
    const PatchPlaces& places = geometry.get_places();
    const unsigned int count = places.get_patch_count();
    if (count > RayIndex::max_kept_patch_count * part_count) return;
    PatchGroup group{};
    for (unsigned int first = 0, end = 0; first < count; first = end) {
        group.first = first;
        const unsigned int quad = places.get_patch(first).quad();
        for (; end < count && places.get_patch(end).quad() == quad; ++end) {
            const RefinedPatch& patch = places.get_patch(end);
            // Its cells are half as large on the patch.
            if (patch.covers_four_quads()) return groups.clear();
            const auto level = static_cast<unsigned int>(patch.level());
            for (unsigned int part = 0; part < part_count; ++part)
                if (get_part_u(part) >> (2 - level) == patch.x() && get_part_v(part) >> (2 - level) == patch.y())
                    group.places[part] = static_cast<unsigned char>((end - first) | level << 4);
        }
        groups.add(group);
    }
    if (groups.get_count() > RayIndex::max_kept_patch_count ||
        !has_kept_level(get_cell_level(mesh, groups[0].get_level(0))))
        groups.clear();
}

// Half the surface of a box, 0 of one that holds nothing.
double get_area(const GMathBbox3<double>& box) {
    if (!holds_points(box)) return 0.0;
    const GMathVec3<double> size = box.get_max() - box.get_min();
    return size[0] * size[1] + size[1] * size[2] + size[2] * size[0];
}

ControlLanes get_controls_from(const SdsMesh& mesh, unsigned int patch, const float* center) {
    GMathVec3<float> points[16];
    mesh.get_geometry()->get_bezier_controls(patch, points);
    for (GMathVec3<float>& point : points)
        for (unsigned int axis = 0; axis < 3; ++axis) point[axis] -= center[axis];
    return ControlLanes(points);
}

// Looks for slivers where a ray that meets the surface enters many boxes, and among the largest boxes only: what others
// cost is not seen.
void count_slices(const SdsMesh& mesh, const CoreBasicArray<GMathBbox3<double>>& boxes,
                  CoreArray<unsigned char>& counts) {
    constexpr double least_overlap = 6.0, least_share = 1.0 / 1024.0;
    const unsigned int count = boxes.get_count();
    if (count == 0) return;
    const GMathBbox3<double> whole(mesh.get_geometry()->get_bbox());
    const double area = get_area(whole);
    // A few tell whether all are worth looking at.
    for (const unsigned int step : {64u, 1u}) {
        double overlap = 0.0;
        for (unsigned int patch = 0; patch < count; patch += step) overlap += get_area(boxes[patch]);
        if (!(overlap * step > least_overlap * area)) return;
    }
    // Few patches may have many.
    constexpr unsigned int few = 1u << 17, enough = 8, max_item_count = 1u << 20;
    const unsigned int most = std::min(std::max(few / count, enough), max_item_count / count);
    const GMathVec3<float> middle(whole.get_center());
    counts.resize(count);
    for (unsigned int patch = 0; patch < count; ++patch) {
        const bool is_large = get_area(boxes[patch]) > least_share * area;
        counts[patch] = 1;
        if (!is_large) continue;
        const ControlLanes controls = get_controls_from(mesh, patch, middle.get_data());
        counts[patch] = static_cast<unsigned char>(SliverSlices(controls, most).get_count());
    }
}

// The largest coordinate of the surface's box.
float get_extent(const SdsMeshGeometry& geometry) {
    const GMathBbox3<float>& box = geometry.get_bbox();
    float extent = 0.0f;
    for (unsigned int axis = 0; axis < 3; ++axis)
        extent = std::max({extent, std::fabs(box.get_min()[axis]), std::fabs(box.get_max()[axis])});
    return extent;
}

bool may_have_own_index(const SdsMesh& mesh) {
    const SdsMeshGeometry& geometry = *mesh.get_geometry();
    const unsigned int count = geometry.get_patch_count();
    if (count == 0 || count > RayIndex::max_sliver_count || geometry.is_animated()) return false;
    const float extent = get_extent(geometry);
    return extent >= 0x1p-20f && extent <= 0x1p60f;
}

}  // namespace

// Fills an index, item by item.
class RayIndex::Builder {
public:
    Builder(RayIndex& index, const CoreBasicArray<GMathBbox3<double>>& boxes, float margin)
        : m_index(index), m_boxes(boxes), m_margin(margin) {
        const unsigned int level = index.m_tree.cell_level;
        if (index.m_tree.cells != nullptr)
            for (unsigned int below = 0; below < 3; ++below) m_weights[below].set(level - std::min(below, level));
    }

    // Boxes and corners of what the hierarchy takes for one patch.
    void set_parts(unsigned int item) {
        const RayTree& tree = m_index.m_tree;
        const SdsMesh& mesh = *m_index.m_mesh;
        const bool keeps_cells = tree.cells != nullptr;
        PartBounds bounds[3];
        unsigned int missing = 0;
        for (const Member& member : Members(tree.groups, item)) {
            if (!holds_points(m_boxes[member.patch])) {
                missing |= get_parts_of_patch(member.part, member.level);
                continue;
            }
            GMathVec3<float> points[16];
            mesh.get_geometry()->get_bezier_controls(member.patch, points);
            const ControlLanes placed(points);
            for (GMathVec3<float>& point : points)
                for (unsigned int axis = 0; axis < 3; ++axis) point[axis] -= tree.center[axis];
            const ControlLanes controls(points);
            if (keeps_cells) {
                add_corners(controls, placed, member);
                continue;
            }
            for (unsigned int axis = 0; axis < 3; ++axis) {
                m_kernels.find_bounds(controls.coords[axis], bounds[axis]);
                // Cells larger than parts leave the parts' hulls.
                if (mesh.get_level() != 0 && mesh.get_cell_level(member.patch) < 2) join(bounds[axis]);
            }
        }
        for (unsigned int axis = 0; axis < 3; ++axis) {
            if (keeps_cells) store_corners(item, axis, bounds[axis]);
            if (missing != 0) clear(bounds[axis], missing);
            m_kernels.set_boxes(bounds[axis], m_margin, axis, m_index.m_boxes[item]);
        }
    }

private:
    // `placed` are the controls where they are, `controls` from the center. All corners are set before they are looked
    // at, unless a patch is left out.
    void add_corners(const ControlLanes& controls, const ControlLanes& placed, const Member& member) {
        const RayTree& tree = m_index.m_tree;
        const unsigned int level = tree.cell_level - member.level;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            if (tree.groups == nullptr) {
                m_nets[axis].set(controls.coords[axis], level, m_weights[0]);
                continue;
            }
            CellNet net;
            net.set(controls.coords[axis], level, m_weights[member.level]);
            net.set_sides(placed.coords[axis], tree.center[axis], level);
            m_nets[axis].add(net, level, member.x, member.y);
        }
    }
    void store_corners(unsigned int item, unsigned int axis, PartBounds& bounds) {
        const unsigned int level = m_index.m_tree.cell_level, size = get_kept_size(level);
        const unsigned int corner_count = get_kept_side(level) * get_kept_side(level);
        float* const cells = m_index.m_cells.get_data() + size_t{size} * item;
        m_nets[axis].find_bounds(level, bounds);
        m_nets[axis].store(level, cells + axis * corner_count);
        // What is loaded with the last corners.
        std::fill(cells + 3 * corner_count, cells + size, 0.0f);
    }

    const PartKernels& m_kernels = get_part_kernels();
    RayIndex& m_index;
    const CoreBasicArray<GMathBbox3<double>>& m_boxes;
    float m_margin;
    NetWeights m_weights[3];  // of patches of level 0 to 2
    CellNet m_nets[3] = {};
};

RayIndex::Plan RayIndex::make_plan(const SdsMesh& mesh, const CoreBasicArray<GMathBbox3<double>>& boxes) {
    const SdsMeshGeometry& geometry = *mesh.get_geometry();
    Plan plan;
    const unsigned int patch_count = geometry.get_patch_count();
    if (!may_have_own_index(mesh) || boxes.get_count() != patch_count) return plan;
    make_groups(mesh, plan.groups);
    const bool has_groups = !plan.groups.is_empty();
    if (!has_groups) count_slices(mesh, boxes, plan.slice_counts);
    const unsigned int count = has_groups ? plan.groups.get_count() : patch_count;
    const bool is_refined_limit = geometry.is_refined() && mesh.get_level() == 0;
    const auto sliced =
        std::count_if(plan.slice_counts.get_data(), plan.slice_counts.get_data() + plan.slice_counts.get_count(),
                      [](unsigned char slices) { return slices > 1; });
    const bool is_of_slivers = 2 * static_cast<size_t>(sliced) > count;
    if (count > (is_refined_limit ? max_refined_patch_count : max_patch_count) && !is_of_slivers) return plan;
    plan.count = count;
    plan.level = get_cell_level(mesh, has_groups ? plan.groups[0].get_level(0) : 0);
    // Patches of several levels share parts of edges.
    plan.keeps_cells =
        has_groups || (has_kept_level(plan.level) && count <= max_kept_patch_count && !geometry.is_refined());
    return plan;
}

size_t RayIndex::estimate_size(const SdsMesh& mesh) {
    if (!may_have_own_index(mesh)) return 0;
    CoreArray<GMathBbox3<double>> boxes(mesh.get_geometry()->get_patch_count());
    mesh.get_geometry()->compute_primitive_bboxes(0, boxes.get_count(), boxes.get_data());
    const Plan plan = make_plan(mesh, boxes);
    if (plan.count == 0) return 0;
    size_t item_count = plan.slice_counts.is_empty() ? plan.count : 0;
    for (const unsigned char slices : plan.slice_counts) item_count += slices;
    // Nodes are a fifth to a third of what they hold, in an array with room to grow.
    return sizeof(RayIndex) + sizeof(RayTreeNode) * (1 + item_count / 2) +
           plan.count * (sizeof(PartBoxes) + (plan.groups.is_empty() ? 0 : sizeof(PatchGroup)) +
                         (plan.keeps_cells ? sizeof(float) * get_kept_size(plan.level) : 0));
}

std::unique_ptr<const RayIndex> RayIndex::make(const SdsMesh& mesh, const CoreBasicArray<GMathBbox3<double>>& boxes) {
    const SdsMeshGeometry& geometry = *mesh.get_geometry();
    Plan plan = make_plan(mesh, boxes);
    const unsigned int count = plan.count;
    if (count == 0) return nullptr;
    auto index = std::make_unique<RayIndex>();
    index->m_groups = std::move(plan.groups);
    const PatchGroup* const groups = index->m_groups.is_empty() ? nullptr : index->m_groups.get_data();
    const GMathBbox3<float>& box = geometry.get_bbox();
    // A few times the rounding of the largest coordinate.
    const float margin = 0x1p-19f * get_extent(geometry);

    // What is kept is rounded as the surface is large, not as it is far from the origin.
    const GMathVec3<float> middle = box.get_center();
    const float center[3] = {middle[0], middle[1], middle[2]};
    CoreArray<TreeItem> items;
    items.reserve(count);
    for (unsigned int item = 0; item < count; ++item) {
        auto whole = GMathBbox3<double>::empty();
        for (const Member& member : Members(groups, item))
            if (holds_points(boxes[member.patch])) whole.grow(boxes[member.patch]);
        if (!holds_points(whole)) continue;
        const unsigned int slices = plan.slice_counts.is_empty() ? 1 : plan.slice_counts[item];
        if (slices == 1) {
            items.add(make_item(whole, item, center, static_cast<double>(margin)));
            continue;
        }
        float pad[3];
        for (unsigned int axis = 0; axis < 3; ++axis)
            pad[axis] = static_cast<float>(get_pad(whole, axis, static_cast<double>(margin)));
        SliverSlices(get_controls_from(mesh, item, center), slices).add_items(pad, item, items);
    }
    if (items.is_empty()) return nullptr;
    index->m_mesh = &mesh;
    index->m_center = GMathBbox3<double>(box).get_center();
    build_ray_tree(items, index->m_nodes);
    index->m_boxes.resize(count);
    if (plan.keeps_cells) index->m_cells.resize(get_kept_size(plan.level) * count);
    index->m_tree = {{center[0], center[1], center[2]},
                     index->m_nodes.get_data(),
                     index->m_boxes.get_data(),
                     plan.keeps_cells ? index->m_cells.get_data() : nullptr,
                     plan.level,
                     groups,
                     geometry.is_refined() ? geometry.get_refined_arrays().controls : nullptr};
    Builder builder(*index, boxes, margin);
    for (const TreeItem& item : items) {
        // Slices of a patch follow each other.
        if (&item == &items[0] || (&item)[-1].patch != item.patch) builder.set_parts(item.patch);
    }
    return index;
}

}  // namespace sds

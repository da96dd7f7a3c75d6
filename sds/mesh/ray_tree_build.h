// Builds the hierarchy of a RayTree.
#pragma once

#include "qn_core/core_array.h"
#include "sds/intersection/fast/patch_parts.h"

namespace sds {

// A patch's box.
struct TreeItem {
    float low[3], high[3];
    unsigned int patch;
};

// One leaf per item, of which there is at least one. Splits where the surface area heuristic says
// so (Goldsmith and Salmon 1987), in bins (Wald 2007), always the largest of up to eight boxes. No deeper than
// RayTree::max_depth for up to 2^20 items.
void build_ray_tree(const CoreArray<TreeItem>& items, CoreArray<RayTreeNode>& nodes);

}  // namespace sds

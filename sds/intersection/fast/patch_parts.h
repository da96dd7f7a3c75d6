// What is kept of a patch and of a surface so that a ray meets only those parts of them that it comes near to.
//
// A patch has sixteen parts, four by four. Those of a quarter follow each other, quarters and parts in the order of
// quarter(): the second coordinate runs faster.
//
//     v ^   5  7 13 15
//       |   4  6 12 14
//       |   1  3  9 11
//       |   0  2  8 10
//       +-------------> u
#pragma once

namespace sds {

inline constexpr unsigned int part_count = 16;
inline constexpr unsigned int all_parts = 0xFFFF;

// Place of a part in u and v, each 0 to 3.
constexpr unsigned int get_part_u(unsigned int part) { return (part >> 2 & 2u) | (part >> 1 & 1u); }
constexpr unsigned int get_part_v(unsigned int part) { return (part >> 1 & 2u) | (part & 1u); }

// Boxes of a patch's parts, in two lines of a cache, each side in steps of the patch's own box: side = origin + step *
// number.
struct alignas(64) PartBoxes {
    float origin[3], step[3];
    unsigned char sides[3][2][part_count];  // [axis][0 low, 1 high][part]
};

// The corners of a patch's 2^level x 2^level flat cells in space, of level 2 or 3: floats x of all, then y, then z, of
// corner (i, j), i along u, in place (2^level + 1) i + j. What follows them is there to be loaded with the last ones.
constexpr unsigned int get_kept_side(unsigned int level) { return (1u << level) + 1; }
constexpr unsigned int get_kept_size(unsigned int level) {
    return 3 * get_kept_side(level) * get_kept_side(level) + (level == 2 ? 2u : 1u);
}

// The patches of one quad of a surface that is refined to sixteenths at most: what a hierarchy takes for one patch. The
// quad then has sixteen parts, each in one patch; a patch of level k is 2^-k of the quad either way.
struct PatchGroup {
    unsigned int first;                // patch; the others follow it
    unsigned char places[part_count];  // of each part: its patch, counted from the first, and that one's level x 16

    unsigned int get_patch(unsigned int part) const { return first + (places[part] & 15u); }
    unsigned int get_level(unsigned int part) const { return places[part] >> 4; }
};
// The parts that lie in the patch of level `level` that has `part`.
constexpr unsigned int get_parts_of_patch(unsigned int part, unsigned int level) {
    return level == 0 ? all_parts : level == 1 ? 15u << (part & 12u) : 1u << part;
}

// Eight boxes of a hierarchy and what is in them. A box that nothing is in has its low sides above its high ones.
struct alignas(64) RayTreeNode {
    static constexpr unsigned int width = 8;
    static constexpr unsigned int leaf_flag = 0x80000000u;

    float sides[3][2][width];      // [axis][0 low, 1 high][child]
    unsigned int children[width];  // a patch and the flag, or a node
};

// A hierarchy over patches, or over groups of them, which keep cells as patches do: hits alone are by patch. Boxes,
// of parts too, have room for the rounding of the tests that they are for, and for a ray that is turned by 2^-24.
struct RayTree {
    // Entries that wait while a ray goes through the deepest tree.
    static constexpr unsigned int max_depth = 48, stack_size = max_depth * (RayTreeNode::width - 1) + 1;

    float center[3];           // that boxes and corners are relative to
    const RayTreeNode* nodes;  // the first is the root
    const PartBoxes* boxes;    // of every patch
    const float* cells;        // kept corners of every patch, or null
    unsigned int cell_level;   // of the kept ones
    const PatchGroup* groups;  // or null
    const float* controls;     // x y z of sixteen points a patch, where they are stored: asked for ahead, not read
};

}  // namespace sds

// What a step that waits until it is needed keeps besides the control cage, and what is told of its quads without it.
#pragma once

#include "qn_sys/sys_thread.h"
#include "sds/mesh_base/sds_mesh_base.h"

struct SdsMeshBase::StepSource {
    // Quads, which are the polygons' corners, to an entry of `blocks`.
    static constexpr unsigned int block_size = 16;
    struct Block {
        unsigned int polygon;       // that of the block's first quad
        unsigned int first_corner;  // of the polygon
    };

    SysThreadLock lock;
    CoreArray<Block> blocks;
    CoreArray<unsigned int> polygon_groups;
    CoreArray<unsigned char> creases;  // per face-corner, or empty
    bool has_void = false;             // a polygon with a corner that has no vertex

    Block find_polygon(const ControlCage& cage, unsigned int quad) const {
        Block found = blocks[quad / block_size];
        while (quad - found.first_corner >= cage.polygon_counts[found.polygon])
            found.first_corner += cage.polygon_counts[found.polygon++];
        return found;
    }
    size_t get_memory_size() const {
        return sizeof(StepSource) + sizeof(Block) * blocks.get_count() + 4 * polygon_groups.get_count() +
               creases.get_count();
    }
};

// The sixteen control points as one array per coordinate, in grid order.
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "qn_simd/simd_float4.h"
#include "sds/common/control_grid.h"
#include "sds/common/point_lanes.h"

namespace sds {

struct ControlLanes {
    float coords[3][16];

    ControlLanes() = default;
    // `controls` in corner order.
    explicit ControlLanes(const GMathVec3<float>* controls) { set(controls); }
    explicit ControlLanes(const PointLanes* controls) { set(controls); }
    void set(const GMathVec3<float>* controls) {
        set_by([controls](unsigned int place) { return SimdFloat4::load3(controls[grid_order[place]].get_data()); });
    }
    void set(const PointLanes* controls) {
        set_by([controls](unsigned int place) { return controls[grid_order[place]].lanes; });
    }

private:
    template <class Load>
    void set_by(const Load& load) {
        for (unsigned int row = 0; row < 16; row += 4) {
            SimdFloat4 x = load(row), y = load(row + 1), z = load(row + 2), w = load(row + 3);
            transpose(x, y, z, w);
            x.store_unaligned(coords[0] + row);
            y.store_unaligned(coords[1] + row);
            z.store_unaligned(coords[2] + row);
        }
    }
};

}  // namespace sds

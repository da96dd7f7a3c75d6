#include "model/control_cage.h"

#include <algorithm>

namespace sds_model {

bool ControlCage::is_all_quads() const {
    return std::all_of(polygon_counts.begin(), polygon_counts.end(), [](std::uint32_t n) { return n == 4; });
}

std::vector<std::uint32_t> ControlCage::get_polygon_offsets() const {
    std::vector<std::uint32_t> offsets(polygon_counts.size() + 1);
    std::uint32_t offset = 0;
    for (std::size_t p = 0; p < polygon_counts.size(); ++p) {
        offsets[p] = offset;
        offset += polygon_counts[p];
    }
    offsets.back() = offset;
    return offsets;
}

void turn_over(ControlCage& cage) {
    turn_corners_over(cage.polygon_counts, false, cage.polygon_indices);
    turn_corners_over(cage.polygon_counts, false, cage.uv_indices);
    turn_corners_over(cage.polygon_counts, true, cage.corner_creases);
    turn_corners_over(cage.polygon_counts, true, cage.corner_sharpness);
}

}  // namespace sds_model

// The log line of a call that ran out of room.
#pragma once

#include "sds/common/log_line.h"

namespace sds {

// `rule` is "estimate" or "adaptive"; `count` splits and hits found no room.
inline void log_overflows(const char* rule, unsigned int count) {
    if (count == 0) return;
    log_line(log_level_statistics, "sds.ray_bezier_intersection_", rule, ": ", count,
             " intersections skipped because of stack overflows\n");
}

}  // namespace sds

// A cage like those of characters: a body with limbs, fingers and small features, closed, of about 6,000 quads.
#pragma once

#include "model/control_cage.h"

namespace sds_bench {

// The hull of a figure of blocks, smoothed. Where limbs join and small knobs stand, vertices have three, five and six
// edges, at 18 % of the quads; arms, legs and head taper, so that the longest edge is about forty times the shortest.
// The same on every machine.
sds_model::ControlCage make_figure_cage();

// What such a cage is like.
struct CageFigures {
    unsigned int quad_count = 0;
    bool is_closed = false;        // every edge has two quads
    double irregular_share = 0.0;  // of the quads: those with a vertex of other than four edges
    double edge_ratio = 0.0;       // longest over shortest
};
CageFigures measure_quads(const sds_model::ControlCage& cage);

}  // namespace sds_bench

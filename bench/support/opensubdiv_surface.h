// OpenSubdiv's side of a comparison: topology, adaptive refinement, patch tables and positions, in single precision.
#pragma once

#include <memory>
#include <vector>

#include "bench/support/our_surface.h"

namespace sds_bench {

// A cage in the arrays that OpenSubdiv reads, so that no conversion is timed. Creases are infinitely sharp.
struct OpenSubdivCage {
    explicit OpenSubdivCage(const HostCage& cage);

    std::vector<int> counts;
    std::vector<int> indices;
    std::vector<int> crease_pairs;
    std::vector<float> sharpness;
    std::vector<Vec3f> positions;
};

class OpenSubdivSurface {
public:
    struct Sample {
        Vec3f position{0, 0, 0}, du{0, 0, 0}, dv{0, 0, 0};
    };

    // Everything that evaluation needs: adaptive refinement to level 2, patch tables with Gregory end caps, refined
    // positions. `cage` outlives the surface.
    explicit OpenSubdivSurface(const OpenSubdivCage& cage);
    ~OpenSubdivSurface();

    // Prepares what update_positions and evaluate need besides.
    void make_stencils();
    void make_map(const HostCage& cage);
    // New positions on the same topology, by the stencils.
    void update_positions();
    // One of our quads at (u, v): position and first derivatives per parameter of the parametric face, which for quads
    // of a cage that took a step is twice ours. Needs make_map.
    Sample evaluate(unsigned int quad, float u, float v) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace sds_bench

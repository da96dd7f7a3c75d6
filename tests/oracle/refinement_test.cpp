// Local refinement against OpenSubdiv's limit surface.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>

#include "support/refined_surface.h"

using namespace sds_test;

namespace {

constexpr unsigned int not_comparable = opposite_winding | corner_tags;

TEST(Refinement, Print) {
    for (const ZooMesh* cage : all_cages()) {
        if (cage->is_in(not_comparable)) continue;
        const TaggedCage tagged = tag_cage(*cage);
        const OpenSubdivOracle oracle(tagged, 9);
        std::printf("%s\n", cage->name.c_str());
        for (const unsigned int depth : {0u, 1u, 2u, 4u}) {
            const RefinedSurface surface(tagged, depth);
            const RefinedErrors e = measure_refined(surface, oracle);
            const double q0 = surface.topology.get_places().get_quad_count();
            std::printf(
                "  %u: %.2f %.2f  regular %.1e %.1e single %.1e  leaf %.1e dist %.1e mean %.1e  normals %.3f %.3f "
                "%.2f\n",
                depth, surface.patch_count() / q0, surface.support_count() / q0, e.regular, e.regular_normal,
                e.regular_single, e.leaf_position, e.leaf_distance, e.mean_position, e.normals.mean,
                e.normals.percentile99, e.normals.worst);
        }
    }
}

}  // namespace

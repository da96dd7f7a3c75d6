// Last levels without faces.
#include <gtest/gtest.h>

#include <cstring>

#include "oracles/refined_surface.h"

namespace {

using namespace sds_test;
using sds::NetStorage;

void expect_same_bits(const sds::RefinedPatches& a, const sds::RefinedPatches& b) {
    const unsigned int count = a.get_patch_count();
    ASSERT_EQ(count, b.get_patch_count());
    ASSERT_EQ(a.get_net_count(), b.get_net_count());
    EXPECT_EQ(std::memcmp(a.get_controls(), b.get_controls(), 16 * sizeof(Vec3f) * count), 0);
    for (unsigned int p = 0; p < count; ++p) ASSERT_EQ(a.get_net_places().find(p), b.get_net_places().find(p)) << p;
    if (count == 0 || a.get_net_count() == 0) return;
    EXPECT_EQ(std::memcmp(a.get_nets(), b.get_nets(), 24 * sizeof(Vec3f) * a.get_net_count()), 0);
}

// Cages far from the origin have short patches, those in between only on their last levels.
TEST(Siblings, HaveTheBitsOfFaces) {
    unsigned int sibling_levels = 0, levels_with_some_short = 0;
    std::vector<ZooMesh> cages{make_cut_torus()};
    for (const ZooMesh* mesh : all_cages())
        if (mesh->positions.size() < 600) cages.push_back(*mesh);
    for (const ZooMesh& mesh : cages) {
        for (unsigned int depth = 1; depth <= 3; ++depth) {
            SCOPED_TRACE(mesh.name + " at depth " + std::to_string(depth));
            TaggedCage cage = tag_cage(mesh);
            cage.smooth_triangles = depth == 2;
            sds::RefinedTopology faces, siblings;
            build_topology(cage, depth, faces);
            build_topology(cage, depth, siblings, 0.0, true);
            ASSERT_FALSE(faces.has_siblings());
            if (!siblings.has_siblings()) continue;
            ++sibling_levels;
            ASSERT_EQ(faces.get_places().get_leaf_count(), siblings.get_places().get_leaf_count());
            for (const float distance : {0.0f, 60.0f, 3000.0f}) {
                CoreArray<Vec3f> positions, motion;
                for (const Vec3f& p : mesh.positions) {
                    positions.add(p + Vec3f(distance, 0.0f, 0.25f * distance));
                    motion.add({p[1], -p[0], 0.5f});
                }
                sds::RefinedPatches ours, theirs, our_motion, their_motion;
                for (const NetStorage storage : {NetStorage::never, NetStorage::all, NetStorage::where_needed}) {
                    ours.build(siblings, positions, storage);
                    theirs.build(faces, positions, storage);
                    expect_same_bits(ours, theirs);
                }
                our_motion.build_like(ours, siblings, motion);
                their_motion.build_like(theirs, faces, motion);
                expect_same_bits(our_motion, their_motion);
                const unsigned int leaf_count = siblings.get_places().get_leaf_count();
                levels_with_some_short +=
                    ours.get_net_count() > leaf_count && ours.get_net_count() < ours.get_patch_count() ? 1 : 0;
            }
        }
    }
    EXPECT_GT(sibling_levels, 10u);
    EXPECT_GT(levels_with_some_short, 0u);
}

}  // namespace

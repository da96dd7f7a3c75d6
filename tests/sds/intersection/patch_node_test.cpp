#include "sds/intersection/patch_node.h"

#include <set>

#include "one_patch.h"

namespace sds_test {
namespace {

using sds::PatchBox;
using sds::PatchNode;

PatchNode make_root(const PatchControls& controls) {
    PatchNode node;
    sds::set_root(node, sds::ControlLanes(controls.data()));
    return node;
}

bool is_within(const PatchBox& inner, const PatchBox& outer) {
    for (unsigned int axis = 0; axis < 3; ++axis)
        if (inner.min[axis] < outer.min[axis] || inner.max[axis] > outer.max[axis]) return false;
    return true;
}

// The places of a node's grid in patch coordinates are told apart from its own (a, b) by its direction.
Vec3d expected_point(const RayOracle& oracle, const PatchNode& node, double a, double b) {
    const double x = node.range[0] + a * (node.range[2] - node.range[0]);
    const double y = node.range[1] + b * (node.range[3] - node.range[1]);
    return node.direction == 0 ? oracle.limit_point(0, x, y) : oracle.limit_point(0, y, x);
}

Vec3d evaluate(const PatchNode& node, double a, double b) {
    PatchControls controls;
    for (unsigned int place = 0; place < 16; ++place) controls[sds::grid_order[place]] = node.get_point(place);
    return RayOracle({controls}, RayOracle::limit_surface).limit_point(0, a, b);
}

// Descends at random by both kinds of split, checking every node on the way.
TEST(PatchNode, ChildrenAreThePatchOnTheirRange) {
    for (unsigned int seed = 0; seed < 50; ++seed) {
        const PatchControls controls = make_random_patch(seed);
        const RayOracle oracle({controls}, RayOracle::limit_surface);
        std::mt19937 random(seed);
        PatchNode node = make_root(controls);
        for (unsigned int depth = 0; depth < 16; ++depth) {
            PatchNode first, second;
            if (random() % 2 == 0)
                sds::halve_rows(node, first, second);
            else
                sds::halve_columns(node, first, second);
            for (const PatchNode* child : {&first, &second}) {
                EXPECT_TRUE(is_within(sds::compute_box(*child), sds::compute_box(node)));
                for (const double a : {0.0, 0.3, 1.0})
                    for (const double b : {0.0, 0.6, 1.0})
                        EXPECT_LT((evaluate(*child, a, b) - expected_point(oracle, *child, a, b)).length(), 1e-6);
            }
            node = random() % 2 == 0 ? first : second;
        }
    }
}

TEST(PatchNode, BoxesOfChildrenNeverLeaveTheParentAtAnyMagnitude) {
    std::mt19937 random(1);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    std::uniform_int_distribution<int> exponent(-60, 60);
    for (unsigned int i = 0; i < 20000; ++i) {
        const PatchControls controls = make_patch([&](unsigned int, unsigned int) {
            const auto value = [&] { return std::ldexp(unit(random), exponent(random)); };
            return Vec3f(value(), value(), value());
        });
        const PatchNode node = make_root(controls);
        PatchNode children[4];
        sds::halve_rows(node, children[0], children[1]);
        sds::halve_columns(node, children[2], children[3]);
        for (const PatchNode& child : children) ASSERT_TRUE(is_within(sds::compute_box(child), sds::compute_box(node)));
    }
}

// Neighbours see their common edge from opposite ends and, after a transposing split, as another side of the grid.
TEST(PatchNode, ReversedEdgesHalveToTheSameBits) {
    std::mt19937 random(2);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    for (unsigned int i = 0; i < 1000; ++i) {
        Vec3f edge[4];
        for (Vec3f& p : edge) p = {unit(random), unit(random) * 1e3f, unit(random) * 1e-3f};
        // The edge is the bottom row of one patch and, reversed, a side column of the other.
        const PatchControls along = make_patch([&](unsigned int column, unsigned int row) {
            return row == 0 ? edge[column] : Vec3f(unit(random), unit(random), unit(random));
        });
        const PatchControls across = make_patch([&](unsigned int column, unsigned int row) {
            return column == 3 ? edge[3 - row] : Vec3f(unit(random), unit(random), unit(random));
        });
        const auto collect = [](const PatchControls& controls, bool is_row) {
            std::set<std::array<float, 3>> points;
            std::vector<PatchNode> nodes{make_root(controls)};
            for (unsigned int depth = 0; depth < 6; ++depth) {
                std::vector<PatchNode> children;
                for (const PatchNode& node : nodes) {
                    PatchNode pair[2];
                    sds::halve_rows(node, pair[0], pair[1]);
                    for (const PatchNode& child : pair) {
                        const float* r = child.range;
                        const float v_min = child.direction == 0 ? r[1] : r[0];
                        const float u_max = child.direction == 0 ? r[2] : r[3];
                        if (is_row ? v_min == 0.0f : u_max == 1.0f) children.push_back(child);
                    }
                }
                nodes = children;
            }
            for (const PatchNode& node : nodes)
                for (const unsigned int place : {0u, 3u, 12u, 15u}) {
                    const bool is_far = place == 3 || place == 15;
                    const bool is_top = place >= 12;
                    const float a = node.range[is_far ? 2 : 0], b = node.range[is_top ? 3 : 1];
                    const float u = node.direction == 0 ? a : b, v = node.direction == 0 ? b : a;
                    if (is_row ? v != 0.0f : u != 1.0f) continue;
                    const Vec3f p = node.get_point(place);
                    points.insert({p[0], p[1], p[2]});
                }
            return points;
        };
        const auto points = collect(along, true);
        EXPECT_EQ(points.size(), 9u);
        EXPECT_EQ(points, collect(across, false));
    }
}

TEST(NodePool, GivesOutEveryNodeOnceAndRefusesTheRest) {
    auto pool = std::make_unique<sds::NodePool>();
    PatchNode parent;
    std::set<unsigned int> taken{pool->begin()};
    for (unsigned int i = 0; i < 63; ++i) {
        ASSERT_TRUE(pool->take_children(parent));
        EXPECT_TRUE(taken.insert(parent.children[0]).second);
        EXPECT_TRUE(taken.insert(parent.children[1]).second);
    }
    EXPECT_EQ(taken.size(), 127u);
    EXPECT_FALSE(pool->take_children(parent)) << "one node left is not enough";
    EXPECT_FALSE(pool->take_children(parent)) << "and it went back";
    EXPECT_EQ(pool->get_overflow_count(), 2u);
    pool->release(5);
    ASSERT_TRUE(pool->take_children(parent));
    EXPECT_EQ(std::set<unsigned int>({parent.children[0], parent.children[1]}), std::set<unsigned int>({5, 127}));
    pool->begin();
    EXPECT_EQ(pool->get_overflow_count(), 0u);
}

TEST(AdaptiveSplit, HalvesTheLongerSideAndEndsWhereASplitNoLongerShrinks) {
    auto pool = std::make_unique<sds::NodePool>();
    // Columns on a tie; a transposing split halves u and turns the grid.
    for (const auto& [width, height, direction] : {std::tuple(2.0f, 1.0f, 1), {1.0f, 2.0f, 0}, {1.0f, 1.0f, 0}}) {
        PatchControls patch = make_flat_patch();
        for (Vec3f& p : patch) p = {p[0] * width, p[1] * height, 0.0f};
        PatchNode& root = (*pool)[pool->begin()];
        sds::set_root(root, sds::ControlLanes(patch.data()));
        const sds::AdaptiveSplit fine{3e-6f};
        ASSERT_FALSE(fine.is_leaf(root)) << "the root has no parent to have shrunk from";
        ASSERT_TRUE(sds::split(fine, *pool, root));
        EXPECT_EQ((*pool)[root.children[0]].direction, direction);
        if (width != height) continue;
        PatchNode& child = (*pool)[root.children[0]];
        EXPECT_TRUE(sds::AdaptiveSplit{0.5f}.is_leaf(child)) << "shrunk by the tolerance exactly";
        EXPECT_FALSE(sds::AdaptiveSplit{0.4999f}.is_leaf(child));
    }
}

}  // namespace
}  // namespace sds_test

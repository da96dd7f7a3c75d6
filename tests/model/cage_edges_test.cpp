#include "model/cage_edges.h"

#include <gtest/gtest.h>

namespace sds_model {

using namespace sds_io;
namespace {

TEST(CageEdges, AnEmptyCageHasNone) {
    const ControlCage cage;
    const CageEdges edges(cage);
    EXPECT_TRUE(edges.sides(0, 1).empty());
    edges.for_each_edge([](auto) { FAIL(); });
}

}  // namespace
}  // namespace sds_model

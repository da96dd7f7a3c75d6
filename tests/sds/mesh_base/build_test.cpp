// SdsMeshBase::set, copies and queries.
#include <gmock/gmock.h>

#include <memory>

#include "../surface_checks.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using testing::ElementsAre;

TEST(SdsMeshBaseSet, EmptyMeshTakesTheQuadRoad) {
    SdsMeshBase base;
    RecordingProgress progress;
    set_base(base, zoo_mesh("lone_triangle"));
    set_base(base, ZooMesh{}, &progress);
    EXPECT_EQ(base.get_primitive_count(), 0u);
    EXPECT_FALSE(base.get_base_tessellation_level());
    EXPECT_THAT(progress.values, ElementsAre(0.0f, 1.0f));
}

TEST(SdsMeshBaseSet, BothRoadsReportTheirTasksAndShares) {
    RecordingProgress quads, polygons;
    SdsMeshBase base;
    set_base(base, zoo_mesh("sheet"), &quads);
    EXPECT_THAT(quads.at_depth(0),
                ElementsAre(std::pair("compute polygons neighbourhood", 0.5f), std::pair("compute creases", 0.5f)));
    const RecordingProgress::Task& creases = *quads.find("compute creases");
    for (const unsigned int steps : {creases.step_count, creases.steps, creases.last_step})
        EXPECT_EQ(steps, base.get_primitive_count());

    set_base(base, zoo_mesh("tetrahedron"), &polygons);
    EXPECT_THAT(polygons.at_depth(0),
                ElementsAre(std::pair("compute polygons neighbourhood", 0.2f), std::pair("prepare subdivision", 0.2f),
                            std::pair("create subdivision topology", 0.4f)));
    EXPECT_EQ(polygons.find("prepare subdivision")->last_step, 4u);
    EXPECT_EQ(polygons.find("create subdivision topology")->step_count, 4u);
    EXPECT_EQ(polygons.tasks[0].increments, 2u);
    EXPECT_NEAR(polygons.tasks[0].shares, 0.2, 1e-6);
    for (const RecordingProgress* progress : {&quads, &polygons}) {
        EXPECT_THAT(progress->values, ElementsAre(0.0f, 1.0f));
        EXPECT_EQ(progress->open, 0u);
    }
}

TEST(SdsMeshBaseSet, QuadsInheritFromTheirPolygons) {
    SdsMeshBase base;
    CoreArray<CoreString> names;
    for (const char* name : {"a", "b", "c"}) names.add(name);
    base.set(10, to_core_array(std::vector<unsigned int>{0, 1, 2, 2, 1, 3, 4, 5, 6, 7, 8, 9}),
             to_core_array(std::vector<unsigned int>{3, 4, 5}), to_core_array(std::vector<unsigned int>{2, 0, 1}),
             names, nullptr);
    for (unsigned int q = 0; q < 12; ++q) {
        const unsigned int polygon = q < 3 ? 0 : (q < 7 ? 1 : 2);
        EXPECT_EQ(base.get_primitive_polygon_id(q), polygon);
        EXPECT_EQ(base.get_primitive_shading_group_index(q), (polygon + 2) % 3);
    }
    EXPECT_EQ(base.get_shading_group_names()[2], CoreString("c"));
    // The step is one of the levels, and level 0 counts as 1.
    for (const auto& [level, samples] : {std::pair(0u, 2u), {1u, 2u}, {3u, 5u}})
        EXPECT_EQ(base.get_tessellation_sample_count(level), samples);
    set_base(base, zoo_mesh("lone_quad"));
    EXPECT_EQ(base.get_tessellation_sample_count(0), 3u);
    EXPECT_EQ(base.get_primitive_polygon_id(0), 0u);
}

TEST(SdsMeshBaseSet, QuadsHaveNoEdgesBeyondTheFourth) {
    ZooMesh cage = zoo_mesh("cube");
    cage.corner_creases.assign(cage.indices.size(), 1);
    const BuiltSurface surface(cage);
    for (unsigned int k = 0; k < 70; ++k) {
        EXPECT_EQ(surface.base.is_primitive_edge_crease(0, k), k < 4) << k;
        EXPECT_EQ(surface.base.is_primitive_edge_visible(0, k), k < 4) << k;
    }
}

TEST(SdsMeshBaseCopy, CopiesStandAloneAndAssignmentSharesTheStep) {
    auto source = std::make_unique<SdsMeshBase>();
    set_base(*source, zoo_mesh("prism7_uvs"));
    SdsMeshBase copy(*source), assigned;
    EXPECT_EQ(copy.get_memory_size(), source->get_memory_size());
    ASSERT_NE(copy.get_subdivision(), source->get_subdivision());
    EXPECT_TRUE(copy.get_subdivision()->quad_parents.is_empty());
    for (unsigned int q = 0; q < copy.get_primitive_count(); ++q)
        EXPECT_EQ(copy.get_primitive_polygon_id(q), source->get_primitive_polygon_id(q));

    set_base(assigned, zoo_mesh("lone_pentagon"));
    assigned = *source;
    assigned = *&assigned;
    EXPECT_EQ(assigned.get_subdivision(), source->get_subdivision());
    // A new build of one leaves the other's record alone.
    set_base(*source, zoo_mesh("lone_pentagon"));
    source.reset();
    for (const SdsMeshBase* base : {&copy, &assigned}) {
        EXPECT_EQ(base->get_subdivision()->first_edge_point, zoo_mesh("prism7_uvs").positions.size());
        EXPECT_EQ(base->get_subdivision()->vertex_rings.get_count(), base->get_vertex_infos().get_count());
    }
}

}  // namespace

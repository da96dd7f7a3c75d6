// SdsMeshBase::set, copies and queries.
#include <gmock/gmock.h>

#include <memory>

#include "qn_poly/poly_crease_scope.h"
#include "sds/mesh_base/sds_mesh_base.h"
#include "support/built_surface.h"
#include "support/recorders.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::RecordingProgress;
using sds_test::to_core_array;
using sds_test::ZooMesh;
using testing::ElementsAre;

void set_base(SdsMeshBase& base, const ZooMesh& cage, AppProgressBar* progress = nullptr) {
    const CoreArray<unsigned int> groups(static_cast<unsigned int>(cage.counts.size()), 0u);
    CoreArray<CoreString> names;
    names.add("body");
    base.set(static_cast<unsigned int>(cage.positions.size()), to_core_array(cage.indices), to_core_array(cage.counts),
             groups, names, progress);
}

ZooMesh cage_of(std::vector<unsigned int> counts, std::vector<unsigned int> indices, unsigned int vertex_count) {
    ZooMesh cage;
    cage.counts = std::move(counts);
    cage.indices = std::move(indices);
    cage.positions.assign(vertex_count, {0, 0, 0});
    return cage;
}

TEST(SdsMeshBaseSet, EmptyMeshTakesTheQuadRoad) {
    SdsMeshBase base;
    RecordingProgress progress;
    set_base(base, sds_test::zoo_mesh("lone_triangle"));
    set_base(base, cage_of({}, {}, 0), &progress);
    EXPECT_EQ(base.get_primitive_count(), 0u);
    EXPECT_FALSE(base.get_base_tessellation_level());
    EXPECT_THAT(progress.values, ElementsAre(0.0f, 1.0f));
}

TEST(SdsMeshBaseSet, QuadRoadReportsItsTasks) {
    RecordingProgress progress;
    SdsMeshBase base;
    set_base(base, sds_test::zoo_mesh("sheet"), &progress);
    EXPECT_THAT(progress.at_depth(0),
                ElementsAre(std::pair("compute polygons neighbourhood", 0.5f), std::pair("compute creases", 0.5f)));
    const RecordingProgress::Task& creases = *progress.find("compute creases");
    EXPECT_EQ(creases.step_count, base.get_primitive_count());
    EXPECT_EQ(creases.steps, base.get_primitive_count());
    EXPECT_EQ(creases.last_step, base.get_primitive_count());
    EXPECT_THAT(progress.values, ElementsAre(0.0f, 1.0f));
    EXPECT_EQ(progress.open, 0u);
}

TEST(SdsMeshBaseSet, PolygonRoadReportsItsTasksAndShares) {
    RecordingProgress progress;
    SdsMeshBase base;
    set_base(base, sds_test::zoo_mesh("tetrahedron"), &progress);
    EXPECT_THAT(progress.at_depth(0),
                ElementsAre(std::pair("compute polygons neighbourhood", 0.2f), std::pair("prepare subdivision", 0.2f),
                            std::pair("create subdivision topology", 0.4f)));
    EXPECT_EQ(progress.find("prepare subdivision")->last_step, 4u);
    EXPECT_EQ(progress.find("create subdivision topology")->step_count, 4u);
    EXPECT_EQ(progress.tasks[0].increments, 2u);
    EXPECT_NEAR(progress.tasks[0].shares, 0.2, 1e-6);
    EXPECT_THAT(progress.values, ElementsAre(0.0f, 1.0f));
}

TEST(SdsMeshBaseSet, OneTriangleAmongQuadsSendsAllThroughTheStep) {
    SdsMeshBase base;
    set_base(base, cage_of({4, 3}, {0, 1, 2, 3, 1, 4, 2}, 5));
    EXPECT_EQ(base.get_primitive_count(), 7u);
    EXPECT_TRUE(base.get_base_tessellation_level());
    EXPECT_EQ(base.get_tessellation_sample_count(0), 2u);
    EXPECT_EQ(base.get_tessellation_sample_count(1), 2u);
    EXPECT_EQ(base.get_tessellation_sample_count(3), 5u);
    for (unsigned int q = 0; q < 7; ++q) EXPECT_EQ(base.get_primitive_polygon_id(q), q < 4 ? 0u : 1u);
    set_base(base, cage_of({4}, {0, 1, 2, 3}, 4));
    EXPECT_FALSE(base.get_base_tessellation_level());
    EXPECT_EQ(base.get_tessellation_sample_count(0), 3u);
    EXPECT_EQ(base.get_tessellation_sample_count(1), 3u);
    EXPECT_EQ(base.get_primitive_polygon_id(0), 0u);
}

TEST(SdsMeshBaseSet, QuadsInheritTheirPolygonsShadingGroup) {
    SdsMeshBase base;
    CoreArray<CoreString> names;
    for (const char* name : {"a", "b", "c"}) names.add(name);
    const ZooMesh cage = cage_of({3, 4, 5}, {0, 1, 2, 2, 1, 3, 4, 5, 6, 7, 8, 9}, 10);
    base.set(10, to_core_array(cage.indices), to_core_array(cage.counts),
             to_core_array(std::vector<unsigned int>{2, 0, 1}), names, nullptr);
    for (unsigned int q = 0; q < 12; ++q)
        EXPECT_EQ(base.get_primitive_shading_group_index(q), q < 3 ? 2u : (q < 7 ? 0u : 1u));
    ASSERT_EQ(base.get_shading_group_names().get_count(), 3u);
    EXPECT_EQ(base.get_shading_group_names()[2], CoreString("c"));
}

TEST(SdsMeshBaseSet, LoneQuadIsAllBorder) {
    SdsMeshBase base;
    set_base(base, sds_test::zoo_mesh("lone_quad"));
    for (unsigned int e = 0; e < 4; ++e) {
        EXPECT_TRUE(base.is_edge_border(e));
        EXPECT_TRUE(base.is_edge_sharp(e));
        EXPECT_FALSE(base.is_edge_crease(e));
        EXPECT_TRUE(base.is_primitive_edge_visible(0, e));
        EXPECT_EQ(base.get_vertex_infos()[e].get_sharp_edge_count(), 2u);
    }
    EXPECT_EQ(base.get_primitive_edge_count(0), 4u);
}

TEST(SdsMeshBaseSet, NibblesOfOneByteAnswerCreaseAndVisibility) {
    const BuiltSurface surface(sds_test::zoo_mesh("prism5_crease_loop"));
    const SdsMeshBase& base = surface.base;
    for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
        const unsigned char flags = base.get_edges().quad_edge_flags[q];
        EXPECT_EQ(flags & 0xF0u, 0x90u);
        for (unsigned int k = 0; k < 4; ++k) {
            EXPECT_EQ(base.is_primitive_edge_crease(q, k), ((flags >> k) & 1u) != 0);
            EXPECT_EQ(base.is_edge_crease(4 * q + k), ((flags >> k) & 1u) != 0);
            EXPECT_EQ(base.is_primitive_edge_visible(q, k), k == 0 || k == 3);
        }
        for (const unsigned int k : {4u, 5u, 7u, 31u}) EXPECT_FALSE(base.is_primitive_edge_crease(q, k));
    }
}

TEST(SdsMeshBaseCopy, CopyConstructorDuplicatesTheStep) {
    auto source = std::make_unique<SdsMeshBase>();
    set_base(*source, sds_test::zoo_mesh("prism7_uvs"));
    const SdsMeshBase copy(*source);
    ASSERT_NE(copy.get_subdivision(), nullptr);
    EXPECT_NE(copy.get_subdivision(), source->get_subdivision());
    EXPECT_EQ(copy.get_subdivision()->first_face_point, source->get_subdivision()->first_face_point);
    EXPECT_EQ(copy.get_subdivision()->ring_edges.get_count(), source->get_subdivision()->ring_edges.get_count());
    EXPECT_TRUE(copy.get_subdivision()->quad_parents.is_empty());
    EXPECT_EQ(copy.get_memory_size(), source->get_memory_size());
    for (unsigned int q = 0; q < copy.get_primitive_count(); ++q)
        EXPECT_EQ(copy.get_primitive_polygon_id(q), source->get_primitive_polygon_id(q));
    source.reset();
    EXPECT_EQ(copy.get_subdivision()->vertex_rings.get_count(), copy.get_vertex_infos().get_count());
}

TEST(SdsMeshBaseCopy, AssignmentSharesTheStepUntilTheLastOwner) {
    auto source = std::make_unique<SdsMeshBase>();
    set_base(*source, sds_test::zoo_mesh("tetrahedron"));
    SdsMeshBase target;
    set_base(target, sds_test::zoo_mesh("lone_pentagon"));
    target = *source;
    EXPECT_EQ(target.get_subdivision(), source->get_subdivision());
    target = *&target;
    EXPECT_EQ(target.get_subdivision(), source->get_subdivision());

    // A new build of one leaves the other's record alone.
    const unsigned int first_face_point = target.get_subdivision()->first_face_point;
    set_base(*source, sds_test::zoo_mesh("lone_pentagon"));
    EXPECT_EQ(target.get_subdivision()->first_face_point, first_face_point);
    source.reset();
    EXPECT_EQ(target.get_subdivision()->vertex_rings.get_count(), target.get_vertex_infos().get_count());
}

TEST(SdsMeshBaseMemory, CountsItsArrays) {
    SdsMeshBase base;
    EXPECT_EQ(base.get_memory_size(), sizeof(SdsMeshBase));
    set_base(base, sds_test::zoo_mesh("lone_quad"));
    EXPECT_EQ(base.get_memory_size(), sizeof(SdsMeshBase) + 4 * (4 + 1) + 4 /* "body" */ + 4 + 4 * 4 + 1);
    set_base(base, sds_test::zoo_mesh("lone_triangle"));
    EXPECT_EQ(base.get_memory_size(), sizeof(SdsMeshBase) + 4 * (12 + 3) + 4 + 7 + 4 * 12 + 3 + 4 * (14 + 2 * 7 + 12));
}

TEST(SdsMeshBaseTable, HoldsCosines) {
    const SdsMeshBase base;
    const float* table = SdsMeshBase::get_cos_table();
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table[0], 1.0f);
    EXPECT_EQ(table[512], -1.0f);
    for (unsigned int k = 0; k <= 512; ++k)
        EXPECT_NEAR(table[k], std::cos(static_cast<double>(k) * 3.14159265358979323846 / 512.0), 6.1e-8) << k;
}

TEST(SdsMeshBaseClass, IsARegisteredResource) {
    const CoreClassInfo& info = SdsMeshBase().get_class_info();
    EXPECT_EQ(CoreClassInfo::find("SdsMeshBase"), &info);
    EXPECT_TRUE(SdsMeshBase::class_info().is_kind_of(ResourceData::class_info()));
}

}  // namespace

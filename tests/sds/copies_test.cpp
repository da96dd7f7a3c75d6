// Copies that were constructed stand alone; those that were assigned share the subdivision record and the view.
#include <memory>

#include "surface_checks.h"

namespace {

using namespace sds_test;

// Controls at rest and moved, of the surface and its first UV map, and the quads' polygons.
std::vector<Vec3f> read(const SdsMeshBase& base, const SdsMeshGeometry& geometry, const SdsMeshMaps& maps) {
    std::vector<Vec3f> all;
    for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
        Vec3f controls[48];
        geometry.get_bezier_controls(q, controls);
        geometry.get_bezier_controls_at(q, 1.0, controls + 16);
        maps.get_bezier_controls(0, q, controls + 32);
        all.insert(all.end(), controls, controls + 48);
        all.emplace_back(static_cast<float>(base.get_primitive_polygon_id(q)), 0.0f, 0.0f);
    }
    return all;
}

TEST(Copies, OutliveTheirSource) {
    const ZooMesh& cage = zoo_mesh("prism7_uvs");
    const BuiltSurface surface(cage, {.motion_vectors = cage.positions});
    const std::vector<Vec3f> expected = read(surface.base, surface.geometry, surface.maps);
    struct Source {
        SdsMeshBase base;
        SdsMeshGeometry geometry;
        SdsMeshMaps maps;
    };
    auto source = std::make_unique<Source>(SdsMeshBase(), surface.geometry, surface.maps);
    set_base(source->base, cage);
    const SdsMeshBase base(source->base);
    const SdsMeshGeometry geometry(source->geometry);
    const SdsMeshMaps maps(source->maps);
    EXPECT_EQ(base.get_memory_size(), source->base.get_memory_size());
    EXPECT_EQ(maps.get_memory_size(), source->maps.get_memory_size());
    ASSERT_NE(base.get_subdivision(), source->base.get_subdivision());
    EXPECT_TRUE(base.get_subdivision()->quad_parents.is_empty());

    SdsMeshBase assigned_base;
    SdsMeshGeometry assigned, own;
    SdsMeshMaps assigned_maps;
    set_base(assigned_base, zoo_mesh("lone_pentagon"));
    assigned_base = source->base;
    assigned_base = *&assigned_base;
    assigned = source->geometry;
    assigned = *&assigned;
    own = source->geometry;
    assigned_maps = source->maps;
    assigned_maps = *&assigned_maps;
    EXPECT_EQ(assigned_base.get_subdivision(), source->base.get_subdivision());
    EXPECT_EQ(assigned.get_bezier_mesh().get_quad_vertices(0), source->geometry.get_vertices().get_data());
    EXPECT_EQ(read(assigned_base, assigned, assigned_maps), expected);
    own.set(base, to_core_array(cage.positions), to_core_array(cage.positions),
            SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
    EXPECT_EQ(own.get_bezier_mesh().get_quad_vertices(0), own.get_vertices().get_data());

    // A new build of one leaves the others' record alone.
    set_base(source->base, zoo_mesh("lone_pentagon"));
    source.reset();
    EXPECT_EQ(read(base, geometry, maps), expected);
    EXPECT_EQ(read(assigned_base, own, assigned_maps), expected);
    EXPECT_EQ(assigned_base.get_subdivision()->first_edge_point, cage.positions.size());
    EXPECT_EQ(maps.get_uv_map_name(0), CoreString("uv"));

    EXPECT_EQ(SdsMeshGeometry(SdsMeshGeometry()).get_bezier_mesh().get_patch_count(), 0u);
    own = SdsMeshGeometry();
    EXPECT_EQ(own.get_vertices().get_count(), 0u);
}

TEST(Copies, OfMeshesShareTheSurfaceAndAreFreshResources) {
    BuiltSurface surface(zoo_mesh("cube"), {.level = 2});
    surface.mesh.set_name("original");
    surface.mesh.set_hash_key(42);
    const std::unique_ptr<GeometryObject> copy(surface.mesh.get_copy());
    EXPECT_EQ(dynamic_cast<const SdsMesh&>(*copy).get_geometry(), surface.mesh.get_geometry());
    EXPECT_EQ(dynamic_cast<const SdsMesh&>(*copy).get_level_scale(), 4.0f);
    EXPECT_EQ(copy->get_name(), CoreString());
    EXPECT_EQ(copy->get_hash_key(), 0u);
    SdsMesh assigned;
    assigned = surface.mesh;
    EXPECT_EQ(assigned.get_name(), CoreString("original"));
    EXPECT_EQ(assigned.get_hash_key(), 42u);
    EXPECT_EQ(assigned.get_base(), &surface.base);
    for (SdsMesh* objects : {static_cast<SdsMesh*>(nullptr), new SdsMesh[3], new SdsMesh[0]})
        EXPECT_TRUE(SdsMesh::___class_destructor__(objects, true));
    EXPECT_TRUE(SdsMesh::___class_destructor__(new SdsMesh, false));
}

}  // namespace

// Properties of every kind and type, read on the surface.
#include "sds/mesh_property/sds_mesh_property.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "oracles/refined_surface.h"
#include "oracles/surface_errors.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_gmath/gmath_half.h"
#include "qn_poly/poly_crease_scope.h"
#include "sds/common/cubic_basis.h"
#include "sds/mesh_property/element_types.h"
#include "sds/surface_checks.h"

namespace {

using namespace sds_test;
using Kind = PolyMeshProperty::Type;
using Type = ResourceProperty::Type;
using Mode = SdsMeshGeometry::InterpolationMode;

PolyMesh make_poly_mesh(const ZooMesh& cage) {
    PolyMesh mesh;
    mesh.set_polygons(to_core_array(cage.counts), to_core_array(cage.indices), to_core_array(cage.corner_creases));
    return mesh;
}

// A property with one set of values, bound to a surface.
struct BoundProperty {
    PolyMesh polygons;
    PolyMeshProperty source;
    ResourceProperty values;
    SdsMeshProperty property;
    CtxShader shader;
    CtxEval ctx{shader};

    BoundProperty(const BuiltSurface& surface, const ZooMesh& cage, Kind kind, const ResourceProperty& items,
                  const std::vector<unsigned int>& indices = {})
        : polygons(make_poly_mesh(cage)),
          source(make_source(polygons, kind, items, indices)),
          values(items),
          property(surface.mesh, source) {}

    std::vector<double> read(unsigned int quad, double u, double v, std::vector<double>* du = nullptr,
                             std::vector<double>* dv = nullptr) const {
        std::vector<double> out(64), a(64), b(64), c(64, 7.0);
        const GeometryFragment fragment{quad, u, v, 0.0, 0.0};
        const unsigned int n = property.evaluate(ctx, fragment, 0, out.data(), a.data(), b.data(), c.data(), 64);
        for (unsigned int i = 0; i < n; ++i) EXPECT_EQ(c[i], 0.0);
        out.resize(n);
        if (du != nullptr) *du = a;
        if (dv != nullptr) *dv = b;
        return out;
    }
    std::vector<long long> read_integers(unsigned int quad, double u, double v) const {
        std::vector<long long> out(64);
        const GeometryFragment fragment{quad, u, v, 0.0, 0.0};
        out.resize(property.evaluate(ctx, fragment, 0, out.data(), nullptr, nullptr, nullptr, 64));
        return out;
    }

private:
    static PolyMeshProperty make_source(const PolyMesh& polygons, Kind kind, const ResourceProperty& items,
                                        const std::vector<unsigned int>& indices) {
        PolyMeshProperty source(polygons, "test", kind, items.get_type(), items.get_extent());
        source.set_values(GMathTimeSampling(), CoreArray<ResourceProperty>(1, items));
        if (!indices.empty()) source.set_indices(to_core_array(indices));
        return source;
    }
};

template <class T>
ResourceProperty make_items(Type type, unsigned int extent, const std::vector<T>& flat) {
    ResourceProperty items("test");
    items.init(type, extent, static_cast<unsigned int>(flat.size()) / extent);
    for (unsigned int i = 0; i < items.get_item_count(); ++i)
        items.set_item_values(i, flat.data() + extent * i, extent);
    return items;
}

ResourceProperty positions_as_items(const ZooMesh& cage) {
    std::vector<float> flat;
    for (const Vec3f& p : cage.positions) flat.insert(flat.end(), {p[0], p[1], p[2]});
    return make_items(Type::float32, 3, flat);
}

unsigned int size_of(const std::vector<unsigned int>& items) { return static_cast<unsigned int>(items.size()); }

// Values of one element type at the ends of its range and between.
template <class T>
std::vector<T> extremes_of() {
    if constexpr (std::is_same_v<T, sds::Half>)
        return {{GMathHalfFloatConverter::from_float(65504.0f)},
                {GMathHalfFloatConverter::from_float(-65504.0f)},
                {GMathHalfFloatConverter::from_float(0.1f)}};
    else
        return {std::numeric_limits<T>::max(), std::numeric_limits<T>::lowest(), T(1)};
}

// Calls the test with every type and a value of its element.
template <class Test>
void for_all_types(Test&& test) {
    for (unsigned int i = 0; i < ResourceProperty::type_count; ++i) {
        const auto type = static_cast<Type>(i);
        SCOPED_TRACE(ResourceProperty::get_type_name(type));
        sds::with_element(type, [&](auto element) { test(type, element); });
    }
}

TEST(MeshProperty, PositionsAsAPropertyGiveTheSurfaceItself) {
    for (const char* name :
         {"cube", "cube_crease_loop", "torus_dart", "prism5_crease_loop", "bow_tie", "strip", "lone_triangle"}) {
        const ZooMesh& cage = zoo_mesh(name);
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed, Mode::borders_fixed}) {
            for (const bool indexed : {false, true})
                for (const unsigned int depth : {0u, 3u}) {
                    BuiltSurface::Options options;
                    options.mode = mode;
                    options.refinement.depth = depth;
                    options.refinement.refine_maps = true;
                    if (depth != 0) options.refinement.edge_sharpness.assign(size_of(cage.indices), 0.0f);
                    for (unsigned int c = 0; c < options.refinement.edge_sharpness.get_count(); c += 5)
                        options.refinement.edge_sharpness[c] = 2.3f;
                    const BuiltSurface surface(cage, options);
                    BoundProperty bound(surface, cage, Kind::per_vertex, positions_as_items(cage),
                                        indexed ? cage.indices : std::vector<unsigned int>{});
                    const CoreArray<unsigned char> creases = to_core_array(cage.corner_creases);
                    const PolyCreaseScope scope(creases);
                    ASSERT_TRUE(bound.property.init(0, &bound.values)) << name;
                    EXPECT_EQ(bound.property.get_refined_values(0) != nullptr, surface.geometry.is_refined());
                    const SdsMeshProperty copy(bound.property);
                    EXPECT_EQ(copy.get_refined_values(0), bound.property.get_refined_values(0));
                    const double tolerance = 1e-6 * std::max(1.0, surface.get_diagonal());
                    const std::vector<Vec3f> controls = controls_of(surface.geometry);
                    for (unsigned int q = 0; q < surface.mesh.get_primitive_count(); ++q) {
                        const std::vector<Vec3d> wide(&controls[16 * size_t{q}], &controls[16 * size_t{q}] + 16);
                        for (const double u : {0.0, 0.3, 0.9375})
                            for (const double v : {0.0, 0.6, 0.9375}) {
                                std::vector<double> du, dv;
                                const std::vector<double> p = bound.read(q, u, v, &du, &dv);
                                ASSERT_EQ(p.size(), 3u);
                                const auto jet = sds::evaluate_jet(wide.data(), u, v);
                                SCOPED_TRACE(testing::Message() << name << " patch " << q << " depth " << depth);
                                expect_near(Vec3d(p[0], p[1], p[2]), jet.value, tolerance);
                                expect_near(Vec3d(du[0], du[1], du[2]), jet.du, 8 * tolerance);
                                expect_near(Vec3d(dv[0], dv[1], dv[2]), jet.dv, 8 * tolerance);
                            }
                    }
                }
        }
    }
}

// Values of two charts that meet along a seam, on a refined cage: each is refined as if the other were not there.
TEST(MeshProperty, RefinedSeamsDoNotBleed) {
    const ZooMesh cage = make_cut_torus();
    BuiltSurface::Options options;
    options.refinement.depth = 2;
    options.refinement.refine_maps = true;
    const BuiltSurface surface(cage, options);
    // The first two triangles and their neighbors have items of their own.
    std::vector<unsigned int> indices(cage.indices.size());
    const auto vertex_count = static_cast<unsigned int>(cage.positions.size());
    for (unsigned int c = 0; c < indices.size(); ++c) indices[c] = cage.indices[c] + (c < 30 ? vertex_count : 0);
    std::vector<float> items(2 * size_t{vertex_count}, 1.0f);
    for (unsigned int v = 0; v < vertex_count; ++v) items[vertex_count + v] = 3.0f + static_cast<float>(v % 3);
    BoundProperty bound(surface, cage, Kind::per_vertex, make_items(Type::float32, 1, items), indices);
    ASSERT_TRUE(bound.property.init(0, &bound.values));
    for (unsigned int p = 0; p < surface.mesh.get_primitive_count(); ++p)
        for (const double u : {0.0, 0.5, 1.0}) {
            const unsigned int polygon = surface.mesh.get_primitive_polygon_id(p);
            const std::vector<double> value = bound.read(p, u, 0.25);
            ASSERT_EQ(value.size(), 1u);
            const unsigned int first_corner = polygon < 2 ? 3 * polygon : 6 + 4 * (polygon - 2);
            if (first_corner >= 30)
                EXPECT_EQ(value[0], 1.0);
            else
                EXPECT_GE(value[0], 3.0 - 1e-6);
        }
}

// Linear on the cage's polygons: what a bilinear surface makes of the same values, whatever the surface it is read on.
TEST(MeshProperty, VaryingValuesAreLinearOnThePolygons) {
    for (const ZooMesh& cage : {make_cut_torus(), make_sheet(3), make_pole(5)})
        for (const unsigned int depth : {0u, 2u})
            for (const bool indexed : {false, true}) {
                BuiltSurface::Options options;
                const BuiltSurface flat(cage, {.mode = Mode::all_fixed});
                options.refinement.depth = depth;
                options.refinement.refine_maps = true;
                const BuiltSurface surface(cage, options);
                const std::vector<unsigned int> indices = indexed ? cage.indices : std::vector<unsigned int>();
                BoundProperty varying(surface, cage, Kind::varying, positions_as_items(cage), indices);
                BoundProperty expected(flat, cage, Kind::per_vertex, positions_as_items(cage));
                EXPECT_TRUE(varying.read(0, 0.5, 0.5).empty());
                ASSERT_TRUE(varying.property.init(0, &varying.values));
                ASSERT_TRUE(expected.property.init(0, &expected.values));
                for (unsigned int p = 0; p < surface.mesh.get_primitive_count(); ++p)
                    for (const double u : {0.0, 0.3, 1.0})
                        for (const double v : {0.25, 1.0}) {
                            const GeometryPlace place = surface.mesh.get_primitive_place(p, u, v);
                            std::vector<double> du, dv, limit_du, limit_dv;
                            const std::vector<double> value = varying.read(p, u, v, &du, &dv);
                            const std::vector<double> limit =
                                expected.read(place.face, place.u, place.v, &limit_du, &limit_dv);
                            ASSERT_EQ(value.size(), 3u);
                            expect_near(Vec3d(value[0], value[1], value[2]), Vec3d(limit[0], limit[1], limit[2]), 2e-6);
                            Vec3d a(du[0], du[1], du[2]), b(dv[0], dv[1], dv[2]);
                            place.turn_to_face(a, b);
                            expect_near(a, Vec3d(limit_du[0], limit_du[1], limit_du[2]), 4e-6);
                            expect_near(b, Vec3d(limit_dv[0], limit_dv[1], limit_dv[2]), 4e-6);
                        }
            }
}

TEST(MeshProperty, ConstantsAndExtremesOfEveryTypeSurviveOnTheSurface) {
    // With the subdivision step and without, and refined.
    for (const auto& [cage, depth] : {std::pair{make_pole(5), 0u}, {make_sheet(3), 0u}, {make_pole(5), 2u}}) {
        BuiltSurface::Options options;
        options.refinement.depth = depth;
        options.refinement.refine_maps = true;
        const BuiltSurface surface(cage, options);
        for_all_types([&](Type type, auto element) {
            using T = decltype(element);
            for (const T value : extremes_of<T>()) {
                const std::vector<T> flat(cage.positions.size() * 5, value);  // more components than go at once
                BoundProperty bound(surface, cage, Kind::per_vertex, make_items(type, 5, flat));
                ASSERT_TRUE(bound.property.init(0, &bound.values));
                for (const double u : {0.0, 0.37, 1.0}) {
                    EXPECT_EQ(bound.read(0, u, 0.71), std::vector<double>(5, sds::to_real(value)));
                    EXPECT_EQ(bound.read_integers(0, u, 0.71), std::vector<long long>(5, sds::to_integer(value)));
                }
            }
        });
    }
}

TEST(MeshProperty, IntegerResultsRoundToEvenSaturateAndTakeNanAsZero) {
    EXPECT_EQ(sds::round_to_integer<std::int8_t>(2.5), 2);
    EXPECT_EQ(sds::round_to_integer<std::int8_t>(3.5), 4);
    EXPECT_EQ(sds::round_to_integer<std::int8_t>(-1e9), -128);
    EXPECT_EQ(sds::round_to_integer<std::uint8_t>(255.6), 255);
    EXPECT_EQ(sds::round_to_integer<std::uint8_t>(-0.4), 0);
    EXPECT_EQ(sds::round_to_integer<std::int64_t>(1e300), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(sds::round_to_integer<std::uint64_t>(18446744073709549568.0), 18446744073709549568ull);
    EXPECT_EQ(sds::round_to_integer<std::uint64_t>(18446744073709551616.0), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(sds::round_to_integer<int>(std::nan("")), 0);
    // The 2^64 correction, and the bit pattern through the integer callback.
    EXPECT_EQ(sds::to_real(std::uint64_t(1) << 63), 9.223372036854775808e18);
    EXPECT_EQ(sds::to_integer(std::numeric_limits<std::uint64_t>::max()), -1);
}

TEST(MeshProperty, PerPolygonValuesFollowTheControlPolygonAndConstantsAreEverywhere) {
    const ZooMesh cage = make_pole(5);
    const BuiltSurface surface(cage);
    std::vector<std::int32_t> ids(cage.counts.size());
    for (unsigned int i = 0; i < ids.size(); ++i) ids[i] = 100 + static_cast<int>(i);
    BoundProperty uniform(surface, cage, Kind::per_polygon, make_items(Type::int32, 1, ids));
    EXPECT_EQ(uniform.read_integers(0, 0.5, 0.5).size(), 0u) << "an empty sample yields nothing";
    ASSERT_TRUE(uniform.property.init(0, &uniform.values));
    for (unsigned int quad = 0; quad < surface.get_quad_count(); ++quad) {
        const int id = ids[surface.base.get_primitive_polygon_id(quad)];
        EXPECT_EQ(uniform.read_integers(quad, 0.2, 0.8), std::vector<long long>{id});
        EXPECT_EQ(uniform.read(quad, 0.2, 0.8), std::vector<double>{static_cast<double>(id)});
    }
    EXPECT_TRUE(uniform.read(surface.get_quad_count(), 0.5, 0.5).empty());
    long long none = 5;
    EXPECT_EQ(uniform.property.evaluate(uniform.ctx, GeometryFragment(), 0, &none, nullptr, nullptr, nullptr, 0), 0u);
    EXPECT_EQ(none, 5);

    BoundProperty constant(surface, cage, Kind::constant, make_items<double>(Type::float64, 2, {1.5, -2.5}));
    ASSERT_TRUE(constant.property.init(0, &constant.values));
    std::vector<double> du;
    EXPECT_EQ(constant.read(3, 0.1, 0.2, &du), (std::vector<double>{1.5, -2.5}));
    EXPECT_EQ(du[0], 0.0);
    EXPECT_EQ(constant.read_integers(0, 0, 0), (std::vector<long long>{2, -2}));
}

TEST(MeshProperty, BindingRefusesWhatItCannotEvaluate) {
    const ZooMesh cage = make_sheet(2);
    const BuiltSurface surface(cage);
    const ResourceProperty items = positions_as_items(cage);
    BoundProperty bound(surface, cage, Kind::per_vertex, items);
    EXPECT_FALSE(bound.property.init(0, nullptr));
    const ResourceProperty wrong_type =
        make_items<double>(Type::float64, 1, std::vector<double>(cage.positions.size()));
    ASSERT_TRUE(bound.property.init(0, &bound.values));
    EXPECT_NE(bound.property.get_bezier_corners(0), nullptr);
    EXPECT_FALSE(bound.property.init(0, &wrong_type));
    EXPECT_EQ(bound.property.get_values_property(0), nullptr);
    EXPECT_EQ(bound.property.get_bezier_corners(0), nullptr);

    BoundProperty indexed_polygons(surface, cage, Kind::per_polygon, items, cage.indices);
    ASSERT_TRUE(indexed_polygons.property.init(0, &indexed_polygons.values));
    EXPECT_TRUE(indexed_polygons.read(0, 0.5, 0.5).empty()) << "polygons with indices of their own have no item";

    BoundProperty other(surface, cage, static_cast<Kind>(4), items);
    EXPECT_FALSE(other.property.has_callbacks());
    EXPECT_FALSE(other.property.init(0, &other.values));

    const BuiltSurface flat(cage, {.mode = Mode::all_fixed});
    BoundProperty on_flat(flat, cage, Kind::per_vertex, items);
    ASSERT_TRUE(on_flat.property.init(0, &on_flat.values));
    EXPECT_EQ(on_flat.property.get_bezier_corners(0), nullptr);
}

TEST(MeshProperty, ItemsOfVaryingLengthAreCutToTheShortest) {
    for (const ZooMesh& cage : {make_pole(5), make_sheet(2)}) {
        const BuiltSurface surface(cage);
        std::vector<unsigned int> lengths(cage.positions.size(), 3);
        lengths.back() = 2;
        ResourceProperty items("test");
        items.init(Type::int16, to_core_array(lengths));
        for (unsigned int i = 0; i < lengths.size(); ++i) {
            const std::int16_t row[3] = {7, -9, 11};
            items.set_item_values(i, row, 3);
        }
        BoundProperty bound(surface, cage, Kind::per_vertex, items);
        ASSERT_TRUE(bound.property.init(0, &bound.values));
        for (unsigned int q = 0; q < surface.get_quad_count(); ++q)
            EXPECT_EQ(bound.read_integers(q, 0.4, 0.4), (std::vector<long long>{7, -9}));
    }
}

TEST(MeshProperty, FixedLevelsReadTheCornerOfTheCell) {
    const ZooMesh cage = make_sheet(3);
    const BuiltSurface coarse(cage, {.level = 2}), limit(cage);
    BoundProperty at_level(coarse, cage, Kind::per_vertex, positions_as_items(cage));
    BoundProperty at_limit(limit, cage, Kind::per_vertex, positions_as_items(cage));
    ASSERT_TRUE(at_level.property.init(0, &at_level.values));
    ASSERT_TRUE(at_limit.property.init(0, &at_limit.values));
    // As near to a cell's end as single precision tells apart, and nearer.
    const struct {
        double x, corner;
    } cases[] = {{0.49, 0.25}, {0.4999999, 0.25}, {0.49999999, 0.5}, {0.5, 0.5}, {1.0, 1.0}};
    for (const auto& u : cases)
        for (const auto& v : cases)
            EXPECT_EQ(at_level.read(4, u.x, v.x), at_limit.read(4, u.corner, v.corner)) << u.x << ", " << v.x;
}

// Values belong to the quads: a refined surface reads them there, derivatives by its patches' own u and v.
TEST(MeshProperty, RefinedSurfacesReadTheQuads) {
    for (const ZooMesh& cage : {make_cut_torus(), zoo_mesh("cube"), zoo_mesh("prism7_uvs")})
        for (const unsigned int level : {0u, 3u}) {
            BuiltSurface::Options options;
            options.level = level;
            const BuiltSurface plain(cage, options);
            options.refinement.depth = 2;
            const BuiltSurface refined(cage, options);
            const ResourceProperty items = positions_as_items(cage);
            std::vector<float> ids(cage.counts.size());
            for (size_t i = 0; i < ids.size(); ++i) ids[i] = static_cast<float>(i);
            for (const bool is_indexed : {false, true}) {
                const std::vector<unsigned int> indices = is_indexed ? cage.indices : std::vector<unsigned int>();
                BoundProperty a(plain, cage, Kind::per_vertex, items, indices);
                BoundProperty b(refined, cage, Kind::per_vertex, items, indices);
                BoundProperty polygons(refined, cage, Kind::per_polygon, make_items(Type::float32, 1, ids));
                ASSERT_TRUE(a.property.init(0, &a.values) && b.property.init(0, &b.values));
                ASSERT_TRUE(polygons.property.init(0, &polygons.values));
                for (unsigned int p = 0; p < refined.mesh.get_primitive_count(); ++p) {
                    // A corner of the patches' cells is one of the quads'.
                    const GeometryPlace place = refined.mesh.get_primitive_place(p, 0.5, 0.5);
                    std::vector<double> du, dv, expected_du, expected_dv;
                    const std::vector<double> values = b.read(p, 0.5, 0.5, &du, &dv);
                    EXPECT_EQ(values, a.read(place.face, place.u, place.v, &expected_du, &expected_dv));
                    Vec3d u{du[0], du[1], du[2]}, v{dv[0], dv[1], dv[2]};
                    place.turn_to_face(u, v);
                    EXPECT_EQ(u, Vec3d(expected_du[0], expected_du[1], expected_du[2]));
                    EXPECT_EQ(v, Vec3d(expected_dv[0], expected_dv[1], expected_dv[2]));
                    EXPECT_EQ(polygons.read(p, 0.5, 0.5)[0], plain.base.get_primitive_polygon_id(place.face));
                }
                EXPECT_TRUE(b.read(refined.mesh.get_primitive_count(), 0.5, 0.5).empty());
            }
        }
}

TEST(MeshProperty, TimeSamplesAreSeparateAndCopiesIndependent) {
    const ZooMesh cage = make_pole(5);
    const BuiltSurface surface(cage);
    const PolyMesh polygons = make_poly_mesh(cage);
    CoreArray<ResourceProperty> samples;
    for (const float value : {1.0f, 2.0f})
        samples.add(make_items(Type::float32, 1, std::vector<float>(cage.positions.size(), value)));
    PolyMeshProperty source(polygons, "test", Kind::per_vertex, Type::float32, 1);
    source.set_values(GMathTimeSampling(to_core_array(std::vector<double>{0.0, 1.0})), samples);
    SdsMeshProperty property(surface.mesh, source);
    ASSERT_TRUE(property.init(0, &source.get_sample_values(0)));
    ASSERT_TRUE(property.init(1, &source.get_sample_values(1)));
    const SdsMeshProperty copy(property);
    property.init(1, nullptr);
    const CtxShader shader;
    const CtxEval ctx(shader);
    double value = 0.0;
    EXPECT_EQ(property.evaluate(ctx, GeometryFragment(), 1, &value, nullptr, nullptr, nullptr, 1), 0u);
    for (unsigned int s = 0; s < 2; ++s) {
        ASSERT_EQ(copy.evaluate(ctx, GeometryFragment(), s, &value, nullptr, nullptr, nullptr, 1), 1u);
        EXPECT_EQ(value, 1.0 + s);
    }
}

}  // namespace

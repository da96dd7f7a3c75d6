// Prints a hash per cage, mode and kind of result: what one processor or compiler computes, another must too, bit for
// bit.
//
//     surface_hashes
//
// A line: cage, interpolation mode, then the hashes of the patches' topology, vertices, limit corners, tangents,
// control points, boxes and areas, UVs, limit points, samples and hits. Signs and payloads of NaN do not count.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <random>

#include "oracles/built_surface.h"
#include "oracles/ray_checks.h"

using namespace sds_test;

namespace {

// FNV-1a over 64 bits.
class Hash {
public:
    void add(std::uint64_t bits) {
        for (unsigned int shift = 0; shift < 64; shift += 8)
            m_value = (m_value ^ ((bits >> shift) & 0xFFu)) * 0x100000001B3u;
    }
    void add(double x) {
        std::uint64_t bits = 0x7FF8000000000000u;
        if (x == x) std::memcpy(&bits, &x, sizeof bits);
        add(bits);
    }
    template <class T>
    void add(const GMathVec3<T>& p) {
        for (unsigned int axis = 0; axis < 3; ++axis) add(static_cast<double>(p[axis]));
    }
    template <class T>
    void add(const GMathBbox3<T>& box) {
        add(box.get_min());
        add(box.get_max());
    }
    template <class Range>
    void add_all(const Range& range) {
        for (const auto& item : range) add(item);
    }
    std::uint64_t get() const { return m_value; }

private:
    std::uint64_t m_value = 0xCBF29CE484222325u;
};

// The generator's numbers are the standard's; distributions are the library's own.
class Random {
public:
    double next() { return static_cast<double>(m_bits()) * 0x1p-32; }
    unsigned int below(unsigned int count) { return static_cast<unsigned int>(next() * count); }

private:
    std::mt19937 m_bits{1};
};

std::uint64_t hash_topology(const BuiltSurface& surface) {
    Hash hash;
    for (const unsigned int index : surface.base.get_quad_indices()) hash.add(std::uint64_t{index});
    for (const SdsMeshBase::BezierPatch& patch : surface.geometry.get_bezier_patches()) {
        for (const unsigned int vertex : patch.neighbour_vertices) hash.add(std::uint64_t{vertex});
        for (const float weight : patch.edge_weights) hash.add(static_cast<double>(weight));
        for (const float weight : patch.corner_weights) hash.add(static_cast<double>(weight));
        hash.add(std::uint64_t{patch.sharp_edges});
    }
    return hash.get();
}

std::uint64_t hash_controls(const BuiltSurface& surface) {
    Hash hash;
    for (unsigned int i = 0; i < surface.get_quad_count(); ++i) {
        Vec3f controls[16], tangents[24];
        surface.geometry.get_bezier_controls(i, controls);
        surface.geometry.get_bezier_tangents(i, tangents);
        hash.add_all(controls);
        hash.add_all(tangents);
        surface.geometry.get_bezier_controls_at(i, 0.375, controls);
        hash.add_all(controls);
    }
    return hash.get();
}

std::uint64_t hash_boxes(const BuiltSurface& surface, const CtxEval& ctx) {
    Hash hash;
    hash.add(surface.geometry.get_bbox());
    hash.add(surface.geometry.get_bbox_at(ctx, 0.375));
    const SdsMeshGeometry::AreaRecord& area = surface.geometry.get_area_record();
    for (const float x : {area.x, area.y, area.z, area.blend}) hash.add(static_cast<double>(x));
    const auto matrix = GMathMatrix4x4<double>::scale(1.0, 2.0, 0.5);
    for (unsigned int i = 0; i < surface.get_quad_count(); ++i) {
        GMathBbox3<double> box;
        surface.geometry.compute_primitive_bbox(ctx, i, box);
        hash.add(box);
        surface.geometry.compute_primitive_bbox_at(ctx, i, 0.375, box);
        hash.add(box);
        hash.add(surface.geometry.estimate_primitive_area(ctx, i, matrix));
    }
    return hash.get();
}

std::uint64_t hash_uvs(const BuiltSurface& surface, const CtxEval& ctx) {
    Hash hash;
    Random random;
    if (surface.maps.get_uv_map_count() == 0) return hash.get();
    for (unsigned int i = 0; i < surface.get_quad_count(); ++i) {
        if (!surface.maps.is_primitive_uv_mapped(i, 0)) continue;
        GMathVec3<double> uvw[3];
        const GeometryFragment fragment{i, random.next(), random.next(), 0.0, 0.0};
        surface.mesh.compute_fragment_uvw(ctx, fragment, 0, uvw[0], uvw[1], uvw[2]);
        hash.add_all(uvw);
    }
    return hash.get();
}

std::uint64_t hash_samples(const BuiltSurface& surface, const CtxEval& ctx) {
    Hash hash;
    Random random;
    for (unsigned int i = 0; i < surface.get_quad_count(); ++i) {
        GeometryFragment fragment{i, random.next(), random.next(), 0.0, 0.0};
        if (i % 3 == 0) fragment.u = static_cast<double>(i % 2);  // corners and edges too
        if (i % 5 == 0) fragment.v = static_cast<double>(i / 5 % 2);
        if (i % 7 == 0) fragment.time = fragment.time_interval = 0.375;
        GeometrySample sample;
        surface.mesh.compute_fragment_sample(ctx, fragment, sample);
        hash.add(sample.get_geometric_position());
        hash.add(sample.get_geometric_dpdu());
        hash.add(sample.get_geometric_dpdv());
        hash.add(sample.get_geometric_normal());
        hash.add(sample.get_geometric_dndu());
        hash.add(sample.get_geometric_dndv());
        hash.add(sample.get_d2pduv());
        hash.add(sample.get_smoothing_normal());
        hash.add(sample.get_smoothing_dndu());
        hash.add(sample.get_geometric_position_dt());
    }
    return hash.get();
}

std::uint64_t hash_limit_points(const BuiltSurface& surface) {
    Hash hash;
    Random random;
    std::vector<SdsMeshGeometry::LimitPlace> places;
    for (unsigned int i = 0; i < 4 * surface.get_quad_count(); ++i) {
        const double u = random.next(), v = i % 4 == 0 ? 1.0 : random.next();
        places.push_back({i / 4, static_cast<float>(u), static_cast<float>(v)});
    }
    std::vector<SdsMeshGeometry::LimitPoint> points(places.size());
    surface.geometry.compute_limit_points(places.data(), static_cast<unsigned int>(places.size()), points.data());
    for (const SdsMeshGeometry::LimitPoint& point : points) {
        hash.add(point.position);
        hash.add(point.du);
        hash.add(point.dv);
        hash.add(point.normal);
    }
    return hash.get();
}

std::uint64_t traced_rays = 0, found_hits = 0;

// Rays at random places of the surface from outside, each against every patch.
std::uint64_t hash_hits(const BuiltSurface& surface, const CtxEval& ctx, KernelFamily family) {
    Hash hash;
    Random random;
    const double size = surface.get_diagonal();
    GeometryRaytraceData data;
    data.kernel_family = family;
    data.has_motion_blur = true;
    const unsigned int ray_count = 4 + std::min(60u, 6000 / (surface.get_quad_count() + 1));
    for (unsigned int r = 0; r < ray_count; ++r) {
        const SdsMeshGeometry::LimitPlace place{random.below(surface.get_quad_count()),
                                                static_cast<float>(random.next()), static_cast<float>(random.next())};
        SdsMeshGeometry::LimitPoint target;
        surface.geometry.compute_limit_points(&place, 1, &target);
        GeometryRay ray;
        // In braces: calls in parentheses are made in an order that compilers choose.
        ray.direction = Vec3d{random.next() - 0.5, random.next() - 0.5, random.next() - 0.5};
        ray.origin = Vec3d(target.position) - ray.direction * (4.0 * size * random.next());
        ray.time = r % 4 == 0 ? 0.375 : 0.0;
        GeometryRaytraceCtx range(&ray, 1, data);
        for (unsigned int i = 0; i < surface.get_quad_count(); ++i) surface.mesh.intersect_primitive(ctx, i, range);
        hash.add(std::uint64_t{ray.hit.primitive});
        ++traced_rays;
        if (ray.hit.primitive != 0xFFFFFFFFu) ++found_hits;
        for (const double x : {ray.hit.u, ray.hit.v, ray.tfar}) hash.add(x);
    }
    return hash.get();
}

void print_line(const ZooMesh& cage, unsigned int mode) {
    BuiltSurface::Options options;
    options.mode = static_cast<SdsMeshGeometry::InterpolationMode>(mode);
    options.uv_mode = static_cast<SdsMeshMaps::InterpolationMode>(mode);
    for (const Vec3f& p : cage.positions) options.motion_vectors.emplace_back(p[1] * 0.5f, -p[2], p[0] + 0.25f);
    BuiltSurface surface(cage, options);
    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    std::printf("%s %u", cage.name.c_str(), mode);
    const auto print = [](std::uint64_t hash) { std::printf(" %016" PRIx64, hash); };
    const auto print_all = [&print](const CoreArray<Vec3f>& points) {
        Hash hash;
        hash.add_all(points);
        print(hash.get());
    };
    print(hash_topology(surface));
    print_all(surface.geometry.get_vertices());
    print_all(surface.geometry.get_bezier_corners());
    print_all(surface.geometry.get_bezier_tangents_array());
    print(hash_controls(surface));
    print(hash_boxes(surface, ctx));
    print(hash_uvs(surface, ctx));
    print(hash_limit_points(surface));
    for (const unsigned int level : {0u, 3u}) {
        surface.mesh.set(surface.geometry, surface.maps, level, nullptr);
        print(hash_samples(surface, ctx));
        for (const KernelFamily family : {fast_kernels, reference_kernels}) print(hash_hits(surface, ctx, family));
    }
    std::printf("\n");
}

}  // namespace

int main() {
    const SdsMeshBase first;  // makes the table
    Hash cosines;
    for (unsigned int k = 0; k <= 512; ++k) cosines.add(static_cast<double>(SdsMeshBase::get_cos_table()[k]));
    std::printf("cosines %016" PRIx64 "\n", cosines.get());
    std::vector<ZooMesh> sizes{make_torus(24, 16), make_sheet(20), make_pole(100)};
    sizes[0].name = "torus 24", sizes[1].name = "sheet 20", sizes[2].name = "pole 100";
    std::vector<const ZooMesh*> cages = all_cages();
    for (const ZooMesh& cage : sizes) cages.push_back(&cage);
    for (const ZooMesh* cage : cages)
        for (unsigned int mode = 0; mode < 4; ++mode) print_line(*cage, mode);
    std::printf("%" PRIu64 " rays, %" PRIu64 " hits\n", traced_rays, found_hits);
}

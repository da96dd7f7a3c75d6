#include "bench/support/our_surface.h"

#include "model/array_view.h"
#include "qn_geometry/geometry_raytrace_ctx.h"

namespace sds_bench {

HostCage::HostCage(const sds_model::ControlCage& cage, const std::string& cage_name)
    : name(cage_name),
      positions(static_cast<unsigned int>(cage.get_vertex_count())),
      counts(sds_model::view_of(cage.polygon_counts)),
      indices(sds_model::view_of(cage.polygon_indices)),
      groups(sds_model::view_of(cage.polygon_groups)),
      creases(sds_model::view_of(cage.corner_creases)) {
    for (size_t i = 0; i < positions.get_count(); ++i)
        positions[i] = {cage.positions[3 * i], cage.positions[3 * i + 1], cage.positions[3 * i + 2]};
    for (const std::string& group : cage.group_names) group_names.add(CoreString(group));
}

double HostCage::get_diagonal() const {
    GMathBbox3<double> box = GMathBbox3<double>::empty();
    for (const Vec3f& position : positions) box.grow(Vec3d(position));
    return box.get_diagonal();
}

HostCage HostCage::make_moving() const {
    HostCage moving = *this;
    GMathBbox3<float> box = GMathBbox3<float>::empty();
    for (const Vec3f& position : positions) box.grow(position);
    const Vec3f center = box.get_center();
    moving.motion.resize(positions.get_count());
    for (size_t i = 0; i < positions.get_count(); ++i) {
        const Vec3f arm = positions[i] - center;
        moving.motion[i] = Vec3f(-arm[2], 0.2f * arm[1], arm[0]) * 0.05f;
    }
    return moving;
}

HostCage HostCage::make_mapped() const {
    HostCage mapped = *this;
    mapped.uv_maps.clear();
    GeometryUvMap map{CoreString("uv"), positions, indices};
    for (Vec3f& point : map.vertices) point = {point[0], point[2], 0.0f};
    mapped.uv_maps.add(map);
    return mapped;
}

HostCage HostCage::make_mixed() const {
    HostCage mixed = *this;
    mixed.name += ", 1 % triangles";
    for (CoreArray<unsigned int>* array : {&mixed.counts, &mixed.indices, &mixed.groups}) array->clear();
    mixed.creases.clear();
    mixed.uv_maps.clear();
    const auto add = [&](unsigned int quad, std::initializer_list<unsigned int> corners) {
        mixed.counts.add(static_cast<unsigned int>(corners.size()));
        mixed.groups.add(groups[quad]);
        for (const unsigned int k : corners) {
            mixed.indices.add(indices[4 * size_t{quad} + k]);
            // An edge is a crease when either side says so: the neighbors' flags are left.
            mixed.creases.add(corners.size() == 4 ? creases[4 * size_t{quad} + k] : static_cast<unsigned char>(0));
        }
    };
    for (unsigned int quad = 0; quad < counts.get_count(); ++quad) {
        if (quad % 200 != 100) {
            add(quad, {0, 1, 2, 3});
            continue;
        }
        add(quad, {0, 1, 2});
        add(quad, {0, 2, 3});
    }
    return mixed;
}

HostCage HostCage::make_distant() const {
    HostCage distant = *this;
    distant.name += ", far from the origin";
    const auto offset = static_cast<float>(1000.0 * get_diagonal());
    for (Vec3f& position : distant.positions) position += Vec3f(offset, 0.0f, 0.0f);
    return distant;
}

OpenSubdivCage make_opensubdiv_cage(const HostCage& cage) {
    const auto span_of = [](const auto& array) { return std::span(array.get_data(), array.get_count()); };
    return {span_of(cage.counts), span_of(cage.indices), span_of(cage.creases), span_of(cage.positions)};
}

void OurSurface::build(const HostCage& cage, unsigned int depth, AppProgressBar* progress) {
    const PolyCreaseScope creases(cage.creases);
    SdsRefinement refinement;
    refinement.depth = depth;
    base.set_refinement(refinement);
    base.set(cage.get_vertex_count(), cage.indices, cage.counts, cage.groups, cage.group_names, progress);
    geometry.set(base, cage.positions, cage.motion, SdsMeshGeometry::InterpolationMode::corners_fixed, progress);
}

double OurSurface::get_build_bytes(const HostCage& cage) const {
    const double input =
        12.0 * cage.get_vertex_count() + 8.0 * cage.get_polygon_count() + 5.0 * cage.indices.get_count();
    return input + static_cast<double>(base.get_memory_size()) + static_cast<double>(geometry.get_memory_size());
}

double OurSurface::get_update_bytes() const {
    // Per quad its vertices, edges across, group, fans and records; per vertex the new position, where it is kept, and
    // the limit corner.
    constexpr double quad = 16 + 16 + 4 + 64 + 8 + 68, vertex = 12 + 12 + 12;
    return quad * base.get_primitive_count() + vertex * geometry.get_vertices().get_count() +
           12.0 * geometry.get_bezier_tangents_array().get_count();
}

void OurSurface::build_maps(const HostCage& cage) {
    const PolyCreaseScope creases(cage.creases);
    maps.set(base, cage.counts, cage.uv_maps, {}, SdsMeshMaps::InterpolationMode::corners_fixed, nullptr);
}

SdsMesh OurSurface::make_mesh(unsigned int level) const {
    SdsMesh mesh;
    mesh.set(geometry, maps, level, nullptr);
    return mesh;
}

void ReferenceMesh::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                                        GeometryRaytraceCtx& rays) const {
    GeometryRaytraceData data = rays.get_data();
    data.kernel_family = 1;
    GeometryRaytraceCtx reference(&rays.get_ray(0), rays.get_last_ray() + 1, data);
    reference.set_ray_range(rays.get_first_ray(), rays.get_last_ray());
    reference.set_reference_point(rays.get_reference_point());
    SdsMesh::intersect_primitive(ctx, primitive, reference);
}

}  // namespace sds_bench

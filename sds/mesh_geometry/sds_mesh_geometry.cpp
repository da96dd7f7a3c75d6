#include "sds/mesh_geometry/sds_mesh_geometry.h"

#include <atomic>
#include <cstring>
#include <new>

#include "sds/common/array_bytes.h"
#include "sds/common/progress.h"
#include "sds/mesh_geometry/corner_cache.h"
#include "sds/mesh_geometry/refined_surface.h"

using sds::bytes_of;

namespace {

// Meshes of fewer quad indices are built by the caller alone.
constexpr unsigned int min_threaded_indices = 512;

}  // namespace

SdsMeshGeometry::SdsMeshGeometry() : sample_lock(std::make_shared<SysThreadLock>()) {}

SdsMeshGeometry::SdsMeshGeometry(const SdsMeshGeometry& other)
    : ResourceData(other),
      base(other.base),
      mode(other.mode),
      vertex_infos(other.vertex_infos),
      local_topologies(other.local_topologies),
      tangent_infos(other.tangent_infos),
      bezier_patches(other.bezier_patches),
      topology_stamp(other.topology_stamp),
      positions_stamp(other.positions_stamp),
      bezier_corners(other.bezier_corners),
      bezier_corner_motion_vectors(other.bezier_corner_motion_vectors),
      bezier_tangents(other.bezier_tangents),
      group_bboxes(other.group_bboxes),
      group_area_records(other.group_area_records),
      bbox(other.bbox),
      area_record(other.area_record),
      sample_lock(std::make_shared<SysThreadLock>()),
      refinement(other.refinement) {
    const GeometryPointCloud& cloud = other.point_cloud;
    point_cloud.init(cloud.get_count(), cloud.get_positions().get_data(), nullptr,
                     cloud.has_velocities() ? cloud.get_velocities().get_data() : nullptr);
    if (other.has_positions_sampling()) set_positions_sampling(other.get_positions_sampling(), other.sample_loader);
    if (base != nullptr) bind_view();
}

SdsMeshGeometry& SdsMeshGeometry::operator=(const SdsMeshGeometry& other) {
    if (this == &other) return *this;
    ResourceData::operator=(other);
    topology_stamp = positions_stamp = 0;  // until all arrays are there
    point_cloud = other.point_cloud;
    base = other.base;
    mode = other.mode;
    vertex_infos = other.vertex_infos;
    local_topologies = other.local_topologies;
    tangent_infos = other.tangent_infos;
    bezier_patches = other.bezier_patches;
    topology_stamp = other.topology_stamp;
    bezier_corners = other.bezier_corners;
    bezier_corner_motion_vectors = other.bezier_corner_motion_vectors;
    bezier_tangents = other.bezier_tangents;
    group_bboxes = other.group_bboxes;
    group_area_records = other.group_area_records;
    bbox = other.bbox;
    area_record = other.area_record;
    bezier_mesh = other.bezier_mesh;
    sample_lock = other.sample_lock;
    corner_cache = other.corner_cache;
    sample_loader = other.sample_loader;
    cloud_loader = other.cloud_loader;
    refinement = other.refinement;
    positions_stamp = other.positions_stamp;
    return *this;
}

SdsMeshGeometry::~SdsMeshGeometry() = default;

const CoreClassInfo& SdsMeshGeometry::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsMeshGeometry::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("SdsMeshGeometry", &destroy_object<SdsMeshGeometry>, &ResourceData::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) SdsMeshGeometry; });
    return info;
}

size_t SdsMeshGeometry::get_memory_size() const {
    size_t size = sizeof(*this) - sizeof(point_cloud) + point_cloud.get_memory_size();
    size += bytes_of(vertex_infos) + bytes_of(local_topologies) + bytes_of(tangent_infos) + bytes_of(bezier_patches);
    size += bytes_of(bezier_corners) + bytes_of(bezier_corner_motion_vectors) + bytes_of(bezier_tangents);
    size += bytes_of(group_bboxes) + bytes_of(group_area_records);
    if (refinement) size += refinement->get_memory_size();
    if (corner_cache) {
        size += sizeof(CornerCache) + sizeof(corner_cache->slots[0]) * corner_cache->count;
        for (unsigned int i = 0; i < corner_cache->count; ++i) {
            if (corner_cache->slots[i].load(std::memory_order_acquire) != nullptr)
                size += sizeof(Vec3f) * point_cloud.get_count();
            if (!corner_cache->patches) continue;
            if (const sds::RefinedPatches* patches = corner_cache->patches[i].load(std::memory_order_acquire))
                size += sizeof(*patches) + patches->get_memory_size();
        }
    }
    return size;
}

namespace {

void apply_vertex_rule(const CoreBasicArray<unsigned int>& quad_indices, const SdsMeshBase::EdgesTopology& edges,
                       SdsMeshGeometry::InterpolationMode mode, CoreArray<SdsMeshBase::VertexInfo>& infos) {
    using InterpolationMode = SdsMeshGeometry::InterpolationMode;
    switch (mode) {
        case InterpolationMode::all_fixed:
            SdsMeshBase::set_all_vertices_as_fixed(quad_indices, edges, infos);
            break;
        case InterpolationMode::corners_fixed:
            SdsMeshBase::set_corner_vertices_as_fixed(quad_indices, edges, infos);
            break;
        case InterpolationMode::all_smoothed:
            SdsMeshBase::set_all_vertices_as_smoothed(quad_indices, edges, infos);
            break;
        case InterpolationMode::borders_fixed:
            SdsMeshBase::set_border_vertices_as_fixed(quad_indices, edges, infos);
            break;
        default:
            break;
    }
}

}  // namespace

void SdsMeshGeometry::set_vertices_interpolation(const CoreArray<unsigned int>& quad_indices,
                                                 const SdsMeshBase::EdgesTopology& edges, const InterpolationMode& mode,
                                                 CoreArray<SdsMeshBase::VertexInfo>& infos) {
    apply_vertex_rule(quad_indices, edges, mode, infos);
}

SdsMeshBase::TopologyContext SdsMeshGeometry::get_topology_context() const {
    return {&base->get_quad_indices(), &vertex_infos,          local_topologies.get_data(), &tangent_infos,
            &base->get_edges(),        base->get_subdivision()};
}

void SdsMeshGeometry::bind_view() {
    if (refinement) {
        bezier_mesh = make_view();
        bezier_mesh.add_controls(point_cloud.get_positions().get_data(), refinement->rest.get_controls(), 1.0f);
        return;
    }
    bezier_mesh = SdsBezierMesh(base->get_primitive_count(), vertex_infos.get_count(),
                                base->get_quad_indices().get_data(), bezier_patches.get_data(),
                                point_cloud.get_positions().get_data(), bezier_corners.get_data(), nullptr);
}

void SdsMeshGeometry::set(const SdsMeshBase& mesh_base, const CoreArray<Vec3f>& positions,
                          const CoreArray<Vec3f>& motion_vectors, const InterpolationMode& interpolation_mode,
                          AppProgressBar* progress) {
    sds::progress_value(progress, 0.0f);
    // New positions on the topology of the last build: everything that positions do not enter stays.
    const bool is_update =
        topology_stamp != 0 && topology_stamp == mesh_base.get_topology_stamp() && mode == interpolation_mode;
    topology_stamp = positions_stamp = 0;  // should memory run out, or the bar cancel, on the way
    base = &mesh_base;
    mode = interpolation_mode;
    corner_cache.reset();
    sample_loader.reset();
    cloud_loader.reset();
    std::shared_ptr<Refinement> former = std::move(refinement);
    if (!is_update) {
        vertex_infos = mesh_base.get_vertex_infos();
        apply_vertex_rule(mesh_base.get_quad_indices(), mesh_base.get_edges(), mode, vertex_infos);
    }
    if (mesh_base.get_control_cage() != nullptr && mode != InterpolationMode::all_fixed)
        build_refined(positions, motion_vectors, is_update, std::move(former), progress);
    else
        build_quads(positions, motion_vectors, is_update, progress);
    static std::atomic<std::uint64_t> build_count{0};
    topology_stamp = mesh_base.get_topology_stamp();
    positions_stamp = ++build_count;
    sds::progress_value(progress, 1.0f);
}

void SdsMeshGeometry::build_point_cloud(const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors,
                                        AppProgressBar* progress) {
    const bool has_motion = motion_vectors.get_count() == positions.get_count() && !positions.is_empty();
    const bool linear = mode == InterpolationMode::all_fixed;
    const sds::ProgressTask task(progress, "compute subdivision positions", 0.1f);
    if (base->get_subdivision() == nullptr) {
        point_cloud.init(positions.get_count(), positions.get_data(), nullptr,
                         has_motion ? motion_vectors.get_data() : nullptr);
        return;
    }
    // Zeroed: vertices that no quad uses are never written.
    point_cloud.init(vertex_infos.get_count(), false, has_motion, true);
    Vec3f* out = point_cloud.get_positions().get_data();
    if (has_motion)
        SdsMeshBase::compute_subdivision_positions(positions, motion_vectors, get_topology_context(), out,
                                                   point_cloud.get_velocities().get_data(), linear, progress);
    else
        SdsMeshBase::compute_subdivision_positions(positions, get_topology_context(), out, linear, progress);
}

std::unique_ptr<SysThreadTaskManager> SdsMeshGeometry::make_task_manager(const unsigned int& patch_count) {
    return 4 * patch_count >= min_threaded_indices ? std::make_unique<SysThreadTaskManager>() : nullptr;
}

void SdsMeshGeometry::build_quads(const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors,
                                  const bool& is_update, AppProgressBar* progress) {
    const bool linear = mode == InterpolationMode::all_fixed;
    const unsigned int quad_count = base->get_primitive_count();
    if (!is_update) {
        local_topologies.resize(4 * quad_count);
        tangent_infos.assign(quad_count, {});
    }
    build_point_cloud(positions, motion_vectors, progress);

    const std::unique_ptr<SysThreadTaskManager> tasks = make_task_manager(quad_count);
    {
        const sds::ProgressTask task(progress, "analyse vertices topology", 0.2f);
        if (is_update)
            sds::progress_done(progress, 4 * quad_count, tasks && !linear);
        else if (tasks)
            SdsMeshBase::analyse_vertices_local_topology(base->get_edges(), local_topologies, linear, *tasks, progress);
        else
            SdsMeshBase::analyse_vertices_local_topology(base->get_edges(), local_topologies, linear, progress);
    }
    {
        const sds::ProgressTask task(progress, "prepare tangent computation", 0.1f);
        if (is_update) {
            sds::progress_done(progress, quad_count, tasks != nullptr);
        } else {
            const SdsMeshBase::VertexLocalTopology* fans = local_topologies.get_data();
            SdsMeshBase::PatchTangentInfo* infos = tangent_infos.get_data();
            bezier_tangents.clear();
            bezier_tangents.resize(
                tasks ? SdsMeshBase::compute_tangent_infos(quad_count, fans, infos, linear, *tasks, progress)
                      : SdsMeshBase::compute_tangent_infos(quad_count, fans, infos, linear, progress));
        }
    }
    if (!is_update) bezier_patches.clear();
    bezier_corners.clear();
    bezier_corner_motion_vectors.clear();
    if (!linear)
        build_patches(is_update, tasks.get(), progress);
    else
        bind_view();
    // The weights of a linear build add up to 0.7: the bar jumps at its end.
    build_boxes(linear ? 0.3f : 0.1f, tasks.get(), progress);
}

void SdsMeshGeometry::build_boxes(const float& weight, SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const sds::ProgressTask task(progress, "update bbox and area", weight);
    if (tasks != nullptr)
        update_bbox_and_area(*tasks, progress);
    else
        update_bbox_and_area(progress);
}

void SdsMeshGeometry::build_patches(const bool& is_update, SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const SdsMeshBase::TopologyContext context = get_topology_context();
    {
        const sds::ProgressTask task(progress, "compute bezier topology", 0.1f);
        if (is_update) {
            sds::progress_done(progress, base->get_primitive_count(), tasks != nullptr);
        } else {
            bezier_patches.resize(base->get_primitive_count());
            if (tasks != nullptr)
                SdsMeshBase::compute_bezier_topology(context, bezier_patches, *tasks, progress);
            else
                SdsMeshBase::compute_bezier_topology(context, bezier_patches, progress);
        }
    }
    // Vertices that no quad uses stay where they are.
    const auto compute_corners = [&](const CoreBasicArray<Vec3f>& points, CoreArray<Vec3f>& corners) {
        corners = points;
        if (tasks != nullptr)
            SdsMeshBase::compute_bezier_corners(context, points, corners.get_data(), *tasks, progress);
        else
            SdsMeshBase::compute_bezier_corners(context, points, corners.get_data(), progress);
    };
    const bool has_motion = point_cloud.has_velocities();
    {
        const sds::ProgressTask task(progress, "compute bezier corners", has_motion ? 0.1f : 0.2f);
        compute_corners(point_cloud.get_positions(), bezier_corners);
    }
    if (has_motion) {
        const sds::ProgressTask task(progress, "compute bezier corners motion vectors", 0.1f);
        compute_corners(point_cloud.get_velocities(), bezier_corner_motion_vectors);
    }
    bind_view();
    const sds::ProgressTask task(progress, "compute bezier tangents", 0.2f);
    if (tasks != nullptr)
        SdsMeshBase::compute_bezier_tangents(bezier_mesh, base->get_edges(), tangent_infos, local_topologies,
                                             bezier_tangents.get_data(), *tasks, progress);
    else
        SdsMeshBase::compute_bezier_tangents(bezier_mesh, base->get_edges(), tangent_infos, local_topologies,
                                             bezier_tangents.get_data(), progress);
}

#include "sds/mesh_geometry/sds_mesh_geometry.h"

#include <atomic>
#include <cstring>
#include <new>

#include "sds/common/array_bytes.h"
#include "sds/common/kept_scratch.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/task_chunks.h"
#include "sds/mesh_geometry/corner_cache.h"
#include "sds/mesh_geometry/late_vertices.h"
#include "sds/mesh_geometry/refined_surface.h"

using sds::bytes_of;

namespace {

// Meshes of fewer quad indices are built by the caller alone.
constexpr unsigned int min_threaded_indices = 512;

// What corners are computed from and only a build reads.
struct FirstEdges {
    CoreArray<unsigned int> of;

    size_t get_memory_size() const { return bytes_of(of); }
};

}  // namespace

SdsMeshGeometry::SdsMeshGeometry()
    : area_lock(std::make_unique<SysThreadLock>()), sample_lock(std::make_shared<SysThreadLock>()) {}

SdsMeshGeometry::SdsMeshGeometry(const SdsMeshGeometry& other)
    : ResourceData(other),
      base(other.base),
      mode(other.mode),
      area_lock(std::make_unique<SysThreadLock>()),
      sample_lock(std::make_shared<SysThreadLock>()),
      refinement(other.refinement) {
    const GeometryPointCloud& cloud = other.get_point_cloud();
    copy_arrays(other);
    point_cloud.init(cloud.get_count(), cloud.get_positions().get_data(), nullptr,
                     cloud.has_velocities() ? cloud.get_velocities().get_data() : nullptr);
    if (other.has_positions_sampling()) set_positions_sampling(other.get_positions_sampling(), other.sample_loader);
    if (base != nullptr) bind_view();
}

SdsMeshGeometry& SdsMeshGeometry::operator=(const SdsMeshGeometry& other) {
    if (this == &other) return *this;
    ResourceData::operator=(other);
    arrays.topology_stamp = arrays.positions_stamp = 0;  // until all arrays are there
    point_cloud = other.get_point_cloud();
    are_vertices_due = false;
    late_vertices.reset();
    base = other.base;
    mode = other.mode;
    bezier_mesh = other.bezier_mesh;
    sample_lock = other.sample_lock;
    corner_cache = other.corner_cache;
    sample_loader = other.sample_loader;
    cloud_loader = other.cloud_loader;
    refinement = other.refinement;
    copy_arrays(other);
    return *this;
}

SdsMeshGeometry::~SdsMeshGeometry() = default;

// Others may be reading areas meanwhile.
void SdsMeshGeometry::copy_arrays(const SdsMeshGeometry& other) {
    const SysThreadLockGuard guard(*other.area_lock);
    are_areas_due = other.are_areas_due.load();
    arrays = other.arrays;
}

const CoreClassInfo& SdsMeshGeometry::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsMeshGeometry::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("SdsMeshGeometry", &destroy_object<SdsMeshGeometry>, &ResourceData::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) SdsMeshGeometry; });
    return info;
}

size_t SdsMeshGeometry::get_memory_size() const {
    size_t size = sizeof(*this) - sizeof(point_cloud);
    size += bytes_of(arrays.local_topologies) + bytes_of(arrays.tangent_infos) + bytes_of(arrays.bezier_patches);
    if (are_vertices_due.load(std::memory_order_acquire))
        size += sizeof(point_cloud) + bytes_of(late_vertices->positions) + bytes_of(late_vertices->motion_vectors);
    else
        size += point_cloud.get_memory_size() + bytes_of(arrays.vertex_infos);
    if (late_vertices) size += sizeof(*late_vertices);
    size += bytes_of(arrays.bezier_corners) + bytes_of(arrays.bezier_corner_motion_vectors) +
            bytes_of(arrays.bezier_tangents);
    size += bytes_of(arrays.group_bboxes) + bytes_of(arrays.group_area_records);
    if (refinement) size += refinement->get_memory_size();
    if (corner_cache) {
        const auto& [corners, patches] = *corner_cache;
        size += sizeof(CornerCache) + sizeof(void*) * (corners.get_count() + patches.get_count());
        for (unsigned int i = 0; i < corners.get_count(); ++i)
            if (corners.find(i) != nullptr) size += sizeof(Vec3f) * point_cloud.get_count();
        for (unsigned int i = 0; i < patches.get_count(); ++i)
            if (const sds::RefinedPatches* found = patches.find(i)) size += sizeof(*found) + found->get_memory_size();
    }
    return size;
}

void SdsMeshGeometry::set_vertices_interpolation(const CoreArray<unsigned int>& quad_indices,
                                                 const SdsMeshBase::EdgesTopology& edges, const InterpolationMode& mode,
                                                 CoreArray<SdsMeshBase::VertexInfo>& infos) {
    SdsMeshBase::set_vertices_by_rule(quad_indices, edges, static_cast<SdsMeshBase::VertexRule>(mode), infos);
}

SdsMeshBase::TopologyContext SdsMeshGeometry::get_topology_context() const {
    return {&base->get_quad_indices(), &arrays.vertex_infos, arrays.local_topologies.get_data(),
            &arrays.tangent_infos,     &base->get_edges(),   base->get_subdivision()};
}

void SdsMeshGeometry::bind_view() {
    if (refinement) {
        bezier_mesh = make_view();
        bezier_mesh.add_controls(get_view_vertices(), refinement->rest.get_controls(), 1.0f);
        return;
    }
    bezier_mesh = SdsBezierMesh(base->get_primitive_count(), arrays.vertex_infos.get_count(),
                                base->get_quad_indices().get_data(), arrays.bezier_patches.get_data(),
                                point_cloud.get_positions().get_data(), arrays.bezier_corners.get_data(), nullptr);
}

void SdsMeshGeometry::set(const SdsMeshBase& mesh_base, const CoreArray<Vec3f>& positions,
                          const CoreArray<Vec3f>& motion_vectors, const InterpolationMode& interpolation_mode,
                          AppProgressBar* progress) {
    sds::progress_value(progress, 0.0f);
    // New positions on the topology of the last build: everything that positions do not enter stays.
    const bool is_update = arrays.topology_stamp != 0 && arrays.topology_stamp == mesh_base.get_topology_stamp() &&
                           mode == interpolation_mode;
    arrays.topology_stamp = arrays.positions_stamp = 0;  // in case memory runs out or the bar cancels on the way
    base = &mesh_base;
    mode = interpolation_mode;
    corner_cache.reset();
    sample_loader.reset();
    cloud_loader.reset();
    are_vertices_due = false;
    late_vertices.reset();
    std::shared_ptr<Refinement> former = std::move(refinement);
    if (!is_update) {
        if (mesh_base.has_late_step() && mode != InterpolationMode::all_fixed)
            arrays.vertex_infos.clear();
        else
            set_vertex_infos();
    }
    if (mesh_base.get_control_cage() != nullptr && mode != InterpolationMode::all_fixed)
        build_refined(positions, motion_vectors, is_update, std::move(former), progress);
    else
        build_quads(positions, motion_vectors, is_update, progress);
    static std::atomic<std::uint64_t> build_count{0};
    arrays.topology_stamp = mesh_base.get_topology_stamp();
    arrays.positions_stamp = ++build_count;
    sds::progress_value(progress, 1.0f);
}

std::unique_ptr<SysThreadTaskManager> SdsMeshGeometry::make_task_manager(const unsigned int& patch_count) {
    return 4 * patch_count >= min_threaded_indices ? std::make_unique<SysThreadTaskManager>() : nullptr;
}

void SdsMeshGeometry::build_topology(const bool& is_update, CoreArray<unsigned int>& first_edges,
                                     SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const bool linear = mode == InterpolationMode::all_fixed;
    const unsigned int quad_count = base->get_primitive_count();
    SdsMeshBase::SurfaceTopology topology{0, false};
    {
        const sds::ProgressTask task(progress, "analyse vertices topology", 0.2f);
        if (is_update)
            sds::progress_done(progress, 4 * quad_count, tasks != nullptr && !linear);
        else if (linear)
            SdsMeshBase::analyse_vertices_local_topology(base->get_edges(), arrays.local_topologies, linear, tasks,
                                                         progress);
        else
            topology = SdsMeshBase::compute_surface_topology(get_topology_context(), arrays.local_topologies,
                                                             arrays.tangent_infos, arrays.bezier_patches, first_edges,
                                                             tasks, progress);
    }
    // Of a smooth surface the next two steps are done; a bar hears of them none the less.
    const auto report = [&] {
        if (is_update)
            sds::progress_done(progress, quad_count, tasks != nullptr);
        else if (progress != nullptr)
            sds::for_each_entry(tasks, quad_count, progress, [](unsigned int) {});
    };
    {
        const sds::ProgressTask task(progress, "prepare tangent computation", 0.1f);
        if (!is_update && linear)
            SdsMeshBase::compute_tangent_infos(quad_count, arrays.local_topologies.get_data(),
                                               arrays.tangent_infos.get_data(), linear, tasks, progress);
        else
            report();
    }
    if (!is_update) {
        arrays.bezier_tangents.clear();
        arrays.bezier_tangents.resize(topology.tangent_count);
        arrays.has_great_fans = topology.has_great_fans;
    }
    if (linear) return;
    const sds::ProgressTask task(progress, "compute bezier topology", 0.1f);
    report();
}

void SdsMeshGeometry::build_quads(const CoreArray<Vec3f>& positions, const CoreArray<Vec3f>& motion_vectors,
                                  const bool& is_update, AppProgressBar* progress) {
    const bool linear = mode == InterpolationMode::all_fixed;
    const unsigned int quad_count = base->get_primitive_count();
    if (!is_update) {
        arrays.local_topologies.resize(4 * quad_count);
        arrays.bezier_patches.clear();
        if (linear) {
            arrays.tangent_infos.assign(quad_count, {});
        } else {
            arrays.tangent_infos.resize(quad_count);
            arrays.bezier_patches.resize(quad_count);
        }
    }
    build_point_cloud(positions, motion_vectors, progress);

    const std::unique_ptr<SysThreadTaskManager> manager = make_task_manager(quad_count);
    SysThreadTaskManager* const tasks = manager.get();
    sds::KeptScratch<FirstEdges> first_edges;
    if (!linear) first_edges->of.resize(point_cloud.get_count());
    build_topology(is_update, first_edges->of, tasks, progress);
    if (is_update && !linear && tasks != nullptr)
        SdsMeshBase::find_first_edges(base->get_quad_indices(), first_edges->of);
    if (linear) arrays.bezier_corners.clear();
    if (linear || !point_cloud.has_velocities()) arrays.bezier_corner_motion_vectors.clear();
    if (!linear)
        build_patches(is_update, first_edges->of, tasks, progress);
    else
        bind_view();
    // The weights of a linear build add up to 0.7: the bar jumps at its end.
    build_boxes(linear ? 0.3f : 0.1f, tasks, progress);
}

void SdsMeshGeometry::build_boxes(const float& weight, SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const sds::ProgressTask task(progress, "update bbox and area", weight);
    update_bbox(tasks, progress);
}

void SdsMeshGeometry::build_patches(const bool& is_update, const CoreArray<unsigned int>& first_edges,
                                    SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const bool has_motion = point_cloud.has_velocities();
    {
        const sds::ProgressTask task(progress, "compute bezier corners", has_motion ? 0.1f : 0.2f);
        build_corners(point_cloud.get_positions(), first_edges, !is_update, arrays.bezier_corners, tasks, progress);
    }
    if (has_motion) {
        const sds::ProgressTask task(progress, "compute bezier corners motion vectors", 0.1f);
        build_corners(point_cloud.get_velocities(), first_edges, false, arrays.bezier_corner_motion_vectors, tasks,
                      progress);
    }
    bind_view();
    const sds::ProgressTask task(progress, "compute bezier tangents", 0.2f);
    SdsMeshBase::compute_bezier_tangents(bezier_mesh, base->get_edges(), arrays.tangent_infos, arrays.local_topologies,
                                         arrays.bezier_tangents.get_data(), tasks, progress, arrays.has_great_fans);
}

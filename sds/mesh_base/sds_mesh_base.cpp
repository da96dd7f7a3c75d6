#include "sds/mesh_base/sds_mesh_base.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "sds/common/polygon_offsets.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/control_opposites.h"
#include "sds/mesh_base/cosine_table.h"
#include "sds/mesh_base/task_chunks.h"

SdsMeshBase::SdsMeshBase() { sds::build_cosine_table(); }

SdsMeshBase::SdsMeshBase(const SdsMeshBase& other)
    : ResourceData(other),
      quad_indices(other.quad_indices),
      quad_shading_groups(other.quad_shading_groups),
      shading_group_names(other.shading_group_names),
      vertex_infos(other.vertex_infos),
      edges(other.edges),
      subdivision(other.subdivision ? std::make_shared<SubdivisionTopology>(*other.subdivision) : nullptr),
      refinement(other.refinement),
      control_cage(other.control_cage),
      topology_stamp(other.topology_stamp) {}

SdsMeshBase& SdsMeshBase::operator=(const SdsMeshBase& other) {
    if (this == &other) return *this;
    ResourceData::operator=(other);
    if (this != &other) topology_stamp = 0;  // until all arrays are there
    quad_indices = other.quad_indices;
    quad_shading_groups = other.quad_shading_groups;
    shading_group_names = other.shading_group_names;
    vertex_infos = other.vertex_infos;
    edges = other.edges;
    subdivision = other.subdivision;
    refinement = other.refinement;
    control_cage = other.control_cage;
    topology_stamp = other.topology_stamp;
    return *this;
}

SdsMeshBase::~SdsMeshBase() = default;

const CoreClassInfo& SdsMeshBase::get_class_info() const { return class_info(); }
const CoreClassInfo& SdsMeshBase::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("SdsMeshBase", &destroy_object<SdsMeshBase>, &ResourceData::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) SdsMeshBase; });
    return info;
}

size_t SdsMeshBase::get_memory_size() const {
    // The sum wraps at 32 bits.
    std::uint32_t size = static_cast<std::uint32_t>(sizeof(SdsMeshBase));
    size += 4u * (quad_indices.get_count() + quad_shading_groups.get_count());
    for (const CoreString& name : shading_group_names) size += name.get_count();
    size += vertex_infos.get_count();
    size += 4u * edges.opposite_edges.get_count();
    size += edges.quad_edge_flags.get_count();
    if (subdivision)
        size += 4u * (14u + 2u * subdivision->vertex_rings.get_count() + subdivision->ring_edges.get_count());
    if (control_cage) {
        const ControlCage& cage = *control_cage;
        size += static_cast<std::uint32_t>(sizeof(ControlCage));
        size += 4u * (cage.polygon_counts.get_count() + cage.polygon_indices.get_count());
        size += 4u * (cage.opposite_corners.get_count() + cage.edge_sharpness.get_count());
        size += 4u * cage.refinement.vertex_sharpness.get_count() + cage.refinement.holes.get_count();
    }
    return size;
}

void SdsMeshBase::set(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& polygon_indices,
                      const CoreBasicArray<unsigned int>& polygon_counts,
                      const CoreBasicArray<unsigned int>& polygon_shading_groups,
                      const CoreBasicArray<CoreString>& group_names, AppProgressBar* progress) {
    sds::progress_value(progress, 0.0f);
    static std::atomic<std::uint64_t> build_count{0};
    topology_stamp = 0;  // in case memory runs out or the bar cancels on the way
    control_cage.reset();

    const CoreArray<unsigned int> polygon_offsets = sds::polygon_offsets(polygon_counts);
    const bool all_quads =
        std::all_of(polygon_counts.begin(), polygon_counts.end(), [](unsigned int count) { return count == 4; });
    shading_group_names = group_names;

    if (all_quads) {
        subdivision.reset();
        import_quads(polygon_indices, polygon_counts, polygon_offsets, vertex_count, quad_indices, vertex_infos, edges,
                     progress);
        sds::copy_array(polygon_shading_groups, quad_shading_groups);
    } else {
        // A record that another base shares stays as it is for that base.
        if (!subdivision || subdivision.use_count() > 1) subdivision = std::make_shared<SubdivisionTopology>();
        subdivide(polygon_indices, polygon_counts, polygon_offsets, vertex_count, quad_indices, vertex_infos, edges,
                  *subdivision, progress);
        quad_shading_groups.resize(polygon_indices.get_count());
        for (unsigned int i = 0; i < polygon_shading_groups.get_count(); ++i)
            for (unsigned int j = 0; j < polygon_counts[i]; ++j)
                quad_shading_groups[polygon_offsets[i] + j] = polygon_shading_groups[i];
    }
    if (refinement != nullptr) keep_control_cage(vertex_count, polygon_indices, polygon_counts);
    topology_stamp = ++build_count;
    sds::progress_value(progress, 1.0f);
}

void SdsMeshBase::set_refinement(const SdsRefinement& settings) {
    refinement = settings.depth != 0 ? std::make_shared<const SdsRefinement>(settings) : nullptr;
}

const SdsRefinement& SdsMeshBase::get_refinement() const {
    static const SdsRefinement unrefined;
    return refinement ? *refinement : unrefined;
}

void SdsMeshBase::keep_control_cage(const unsigned int& vertex_count,
                                    const CoreBasicArray<unsigned int>& polygon_indices,
                                    const CoreBasicArray<unsigned int>& polygon_counts) {
    auto cage = std::make_shared<ControlCage>();
    cage->vertex_count = vertex_count;
    cage->polygon_counts = polygon_counts;
    cage->polygon_indices = polygon_indices;
    const unsigned int corner_count = polygon_indices.get_count();
    cage->opposite_corners = sds::control_opposites(quad_indices, edges, subdivision != nullptr);
    bool has_creases = false;
    for (unsigned int c = 0; c < corner_count; ++c) has_creases |= is_edge_crease(subdivision ? 4 * c : c);

    const auto has_one_per = [](unsigned int count, const auto& array) { return array.get_count() == count; };
    if (has_one_per(corner_count, refinement->edge_sharpness)) cage->edge_sharpness = refinement->edge_sharpness;
    if (has_creases) {
        if (cage->edge_sharpness.is_empty()) cage->edge_sharpness.assign(corner_count, 0.0f);
        for (unsigned int c = 0; c < corner_count; ++c)
            if (is_edge_crease(subdivision ? 4 * c : c)) cage->edge_sharpness[c] = 10.0f;
    }
    const SdsRefinement& from = *refinement;
    SdsRefinement& to = cage->refinement;
    to.depth = std::min(from.depth, SdsRefinement::max_depth);
    to.error = from.error;
    to.chaikin = from.chaikin;
    to.smooth_triangles = from.smooth_triangles;
    to.open_borders = from.open_borders;
    to.refine_maps = from.refine_maps;
    if (has_one_per(vertex_count, from.vertex_sharpness)) to.vertex_sharpness = from.vertex_sharpness;
    if (has_one_per(polygon_counts.get_count(), from.holes)) to.holes = from.holes;
    control_cage = std::move(cage);
}

unsigned int SdsMeshBase::get_tessellation_sample_count(const unsigned int& level) const {
    const unsigned int used = level == 0 ? 1 : level;
    return (1u << ((used - (subdivision ? 1u : 0u)) & 31u)) + 1u;
}

unsigned int SdsMeshBase::get_primitive_polygon_id(const unsigned int& q) const {
    if (!subdivision) return q;
    if (q < subdivision->quad_parents.get_count()) return subdivision->quad_parents[q];
    const unsigned int face_point = quad_indices[4 * size_t{q} + 2];
    return face_point == sds::none ? sds::none : face_point - subdivision->first_face_point;
}

const float* SdsMeshBase::get_cos_table() { return sds::cosine_table(); }

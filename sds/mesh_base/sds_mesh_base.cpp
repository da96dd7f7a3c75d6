#include "sds/mesh_base/sds_mesh_base.h"

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "sds/common/polygon_offsets.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/cosine_table.h"
#include "sds/mesh_base/step_source.h"
#include "sds/mesh_base/task_chunks.h"

namespace {

// Per half-edge, or empty when no quad has creases.
CoreArray<unsigned char> find_creases(const SdsMeshBase::EdgesTopology& edges) {
    const auto has_crease = [](unsigned char flags) { return (flags & 15u) != 0; };
    CoreArray<unsigned char> creases;
    if (std::none_of(edges.quad_edge_flags.begin(), edges.quad_edge_flags.end(), has_crease)) return creases;
    creases.resize(edges.opposite_edges.get_count());
    for (unsigned int e = 0; e < creases.get_count(); ++e) creases[e] = edges.is_crease(e);
    return creases;
}

bool has_only_quads(const CoreBasicArray<unsigned int>& polygon_counts) {
    std::atomic<bool> has_others{false};
    sds::for_each_part<unsigned int>(polygon_counts.get_count(), [&](unsigned int begin, unsigned int end) {
        if (!sds::has_only_quads(polygon_counts.get_data() + begin, end - begin)) has_others = true;
    });
    return !has_others;
}

CoreArray<unsigned int> get_quad_offsets(unsigned int quad_count) {
    CoreArray<unsigned int> offsets(quad_count);
    sds::for_each_part<unsigned int>(quad_count, [&offsets](unsigned int begin, unsigned int end) {
        for (unsigned int q = begin; q < end; ++q) offsets[q] = 4 * q;
    });
    return offsets;
}

}  // namespace

SdsMeshBase::SdsMeshBase() { sds::build_cosine_table(); }

// Copies have the step in arrays of their own, all but its record.
void SdsMeshBase::copy_step(const SdsMeshBase& other) {
    other.take_step();
    is_step_due = false;
    step_source.reset();
    quad_count = other.quad_count;
    quad_indices = other.quad_indices;
    quad_shading_groups = other.quad_shading_groups;
    if (other.step_source) {
        quad_shading_groups.resize(quad_count);
        for (unsigned int q = 0; q < quad_count; ++q) quad_shading_groups[q] = other.get_polygon_group(q);
    }
    shading_group_names = other.shading_group_names;
    vertex_infos = other.vertex_infos;
    edges = other.edges;
    refinement = other.refinement;
    control_cage = other.control_cage;
}

SdsMeshBase::SdsMeshBase(const SdsMeshBase& other) : ResourceData(other) {
    copy_step(other);
    if (other.subdivision) subdivision = std::make_shared<SubdivisionTopology>(*other.subdivision);
    topology_stamp = other.topology_stamp;
}

SdsMeshBase& SdsMeshBase::operator=(const SdsMeshBase& other) {
    if (this == &other) return *this;
    ResourceData::operator=(other);
    topology_stamp = 0;  // until all arrays are there
    copy_step(other);
    subdivision = other.subdivision;
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
    size += 4u * quad_shading_groups.get_count();
    for (const CoreString& name : shading_group_names) size += name.get_count();
    if (!is_step_due.load(std::memory_order_acquire)) {
        size += 4u * quad_indices.get_count();
        size += vertex_infos.get_count();
        size += 4u * edges.opposite_edges.get_count();
        size += edges.quad_edge_flags.get_count();
        if (subdivision)
            size += 4u * (14u + 2u * subdivision->vertex_rings.get_count() + subdivision->ring_edges.get_count());
    }
    if (step_source) size += static_cast<std::uint32_t>(step_source->get_memory_size());
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
    is_step_due = false;
    step_source.reset();
    control_cage.reset();
    quad_count = 0;

    const bool all_quads = has_only_quads(polygon_counts);
    const CoreArray<unsigned int> polygon_offsets =
        all_quads ? get_quad_offsets(polygon_counts.get_count()) : sds::polygon_offsets(polygon_counts);
    shading_group_names = group_names;

    if (all_quads) {
        subdivision.reset();
        import_quads(polygon_indices, polygon_counts, polygon_offsets, vertex_count, quad_indices, vertex_infos, edges,
                     progress);
        sds::copy_array(polygon_shading_groups, quad_shading_groups);
        quad_count = quad_indices.get_count() / 4;
        if (refinement != nullptr) {
            // A pair of a void quad is none already.
            keep_control_cage(vertex_count, polygon_indices, polygon_counts,
                              CoreArray<unsigned int>(edges.opposite_edges), find_creases(edges));
        }
    } else if (refinement != nullptr) {
        set_late(vertex_count, polygon_indices, polygon_counts, polygon_offsets, polygon_shading_groups, progress);
    } else {
        // A record that another base shares stays as it is for that base.
        if (!subdivision || subdivision.use_count() > 1) subdivision = std::make_shared<SubdivisionTopology>();
        subdivide(polygon_indices, polygon_counts, polygon_offsets, vertex_count, quad_indices, vertex_infos, edges,
                  *subdivision, progress);
        quad_shading_groups.resize(polygon_indices.get_count());
        for (unsigned int i = 0; i < polygon_shading_groups.get_count(); ++i)
            for (unsigned int j = 0; j < polygon_counts[i]; ++j)
                quad_shading_groups[polygon_offsets[i] + j] = polygon_shading_groups[i];
        quad_count = quad_indices.get_count() / 4;
    }
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
                                    const CoreBasicArray<unsigned int>& polygon_counts,
                                    CoreArray<unsigned int>&& opposite_corners,
                                    const CoreBasicArray<unsigned char>& creases) {
    auto cage = std::make_shared<ControlCage>();
    cage->vertex_count = vertex_count;
    cage->polygon_counts = polygon_counts;
    cage->polygon_indices = polygon_indices;
    cage->opposite_corners = std::move(opposite_corners);
    const unsigned int corner_count = polygon_indices.get_count();

    const auto has_one_per = [](unsigned int count, const auto& array) { return array.get_count() == count; };
    if (has_one_per(corner_count, refinement->edge_sharpness)) cage->edge_sharpness = refinement->edge_sharpness;
    if (!creases.is_empty()) {
        if (cage->edge_sharpness.is_empty()) cage->edge_sharpness.assign(corner_count, 0.0f);
        for (unsigned int c = 0; c < corner_count; ++c)
            if (creases[c] != 0) cage->edge_sharpness[c] = 10.0f;
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
    return (1u << ((used - (get_base_tessellation_level() ? 1u : 0u)) & 31u)) + 1u;
}

unsigned int SdsMeshBase::get_primitive_polygon_id(const unsigned int& q) const {
    if (step_source) return step_source->find_polygon(*control_cage, q).polygon;
    if (!subdivision) return q;
    if (q < subdivision->quad_parents.get_count()) return subdivision->quad_parents[q];
    const unsigned int face_point = quad_indices[4 * size_t{q} + 2];
    return face_point == sds::none ? sds::none : face_point - subdivision->first_face_point;
}

const float* SdsMeshBase::get_cos_table() { return sds::cosine_table(); }

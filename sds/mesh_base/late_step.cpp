// Polygons whose surface is refined, and the step that makes quads of them once somebody asks for quads.
#include <algorithm>
#include <cstring>

#include "qn_poly/poly_neighbourhood.h"
#include "sds/common/polygon_offsets.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/polygon_neighbors.h"
#include "sds/mesh_base/step_source.h"

using sds::none;

void SdsMeshBase::set_late(const unsigned int& vertex_count, const CoreBasicArray<unsigned int>& polygon_indices,
                           const CoreBasicArray<unsigned int>& polygon_counts,
                           const CoreBasicArray<unsigned int>& polygon_offsets,
                           const CoreBasicArray<unsigned int>& polygon_shading_groups, AppProgressBar* progress) {
    const unsigned int corner_count = polygon_indices.get_count();
    auto source = std::make_unique<StepSource>();
    CoreArray<unsigned int> opposites;
    {
        const sds::ProgressTask task(progress, "compute polygons neighbourhood", 1.0f);
        CoreArray<unsigned int> neighbour_edges;
        CoreArray<unsigned char> smooth;
        compute_polygons_neighbourhood(opposites, neighbour_edges, smooth, polygon_indices, polygon_counts,
                                       polygon_offsets, vertex_count, progress);
        const unsigned int* offsets = polygon_offsets.get_data();
        const unsigned int* slots = neighbour_edges.get_data();
        unsigned int* across = opposites.get_data();
        for (unsigned int c = 0; c < corner_count; ++c)
            if (across[c] != none) across[c] = offsets[across[c]] + slots[c];
        if (corner_count != 0 && std::memchr(smooth.get_data(), 0, corner_count) != nullptr) {
            source->creases.resize(corner_count);
            for (unsigned int c = 0; c < corner_count; ++c) source->creases[c] = smooth[c] == 0;
        }
    }
    source->polygon_groups = polygon_shading_groups;
    source->has_void = sds::has_none(polygon_indices);
    constexpr unsigned int block_size = StepSource::block_size;
    source->blocks.reserve(corner_count / block_size + 1);
    for (unsigned int p = 0; p < polygon_counts.get_count(); ++p)
        while (source->blocks.get_count() * block_size < polygon_offsets[p] + polygon_counts[p])
            source->blocks.add({p, polygon_offsets[p]});
    keep_control_cage(vertex_count, polygon_indices, polygon_counts, std::move(opposites), source->creases);
    quad_count = corner_count;
    quad_indices.clear();
    quad_shading_groups.clear();
    vertex_infos.clear();
    edges = {};
    subdivision.reset();
    step_source = std::move(source);
    is_step_due = true;
}

void SdsMeshBase::make_step() const {
    const SysThreadLockGuard guard(step_source->lock);
    if (!is_step_due.load(std::memory_order_relaxed)) return;
    const ControlCage& cage = *control_cage;
    const unsigned int corner_count = cage.polygon_indices.get_count();
    const CoreArray<unsigned int> offsets = sds::polygon_offsets(cage.polygon_counts);
    sds::PolygonNeighbors polygons{cage.polygon_indices, cage.polygon_counts, offsets, {}, {}, {}};
    CoreArray<unsigned int> corner_polygons(corner_count);
    for (unsigned int p = 0; p < offsets.get_count(); ++p)
        std::fill_n(corner_polygons.get_data() + offsets[p], cage.polygon_counts[p], p);
    polygons.neighbour_polygons.assign(corner_count, none);
    polygons.neighbour_edges.assign(corner_count, none);
    for (unsigned int c = 0; c < corner_count; ++c) {
        const unsigned int o = cage.opposite_corners[c];
        if (o == none) continue;
        polygons.neighbour_polygons[c] = corner_polygons[o];
        polygons.neighbour_edges[c] = o - offsets[corner_polygons[o]];
    }
    polygons.edge_smooth_flags.assign(corner_count, static_cast<unsigned char>(1));
    for (unsigned int c = 0; c < step_source->creases.get_count(); ++c)
        polygons.edge_smooth_flags[c] = step_source->creases[c] == 0;
    auto record = std::make_shared<SubdivisionTopology>();
    subdivide(polygons, cage.vertex_count, quad_indices, vertex_infos, edges, *record, nullptr);
    subdivision = std::move(record);
    is_step_due.store(false, std::memory_order_release);
}

const unsigned int& SdsMeshBase::get_polygon_group(const unsigned int& q) const {
    return step_source->polygon_groups[step_source->find_polygon(*control_cage, q).polygon];
}

bool SdsMeshBase::is_polygon_void(const unsigned int& q) const {
    if (!step_source->has_void) return false;
    const StepSource::Block polygon = step_source->find_polygon(*control_cage, q);
    const unsigned int* first = control_cage->polygon_indices.get_data() + polygon.first_corner;
    const unsigned int* end = first + control_cage->polygon_counts[polygon.polygon];
    return std::find(first, end, none) != end;
}

// Of a step's quad, as EdgesTopology has them: the halves of the polygon's edges are its edges 0 and 3.
unsigned int SdsMeshBase::get_step_flags(const unsigned int& q) const {
    constexpr unsigned int visible = 0x90;
    if (step_source->creases.is_empty()) return visible;
    const StepSource::Block polygon = step_source->find_polygon(*control_cage, q);
    const unsigned int count = control_cage->polygon_counts[polygon.polygon];
    const unsigned int behind = q == polygon.first_corner ? q + count - 1 : q - 1;
    return visible | (step_source->creases[q] != 0 ? 1u : 0u) | (step_source->creases[behind] != 0 ? 8u : 0u);
}

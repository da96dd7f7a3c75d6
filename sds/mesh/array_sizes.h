// The arrays that a surface holds, by name, for statistics and for estimates of memory.
#pragma once

#include "sds/common/array_bytes.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/mesh_maps/sds_mesh_maps.h"

namespace sds {

// What the size of an array is a multiple of.
enum class ArrayUnit : unsigned char {
    quad,
    vertex,
    tangent,
    map_point,  // of a UV map after the subdivision step
    patch,      // of a refined surface, and only roughly
    fixed,      // of no count
};

// Each calls visit(name, bytes, unit) once per array, empty ones too. Names live as long as the program.

template <class Visit>
void for_each_array(const SdsMeshBase& base, const Visit& visit) {
    using enum ArrayUnit;
    visit("quad indices", bytes_of(base.get_quad_indices()), quad);
    visit("opposite edges", bytes_of(base.get_edges().opposite_edges), quad);
    visit("edge flags", bytes_of(base.get_edges().quad_edge_flags), quad);
    visit("vertex infos", bytes_of(base.get_vertex_infos()), vertex);
    if (const SdsMeshBase::SubdivisionTopology* step = base.get_subdivision()) {
        visit("step: vertex rings", bytes_of(step->vertex_rings), vertex);
        visit("step: ring edges", bytes_of(step->ring_edges), quad);
        visit("step: quad parents", bytes_of(step->quad_parents), quad);
    }
    if (const SdsMeshBase::ControlCage* cage = base.get_control_cage())
        visit("control cage",
              bytes_of(cage->polygon_counts) + bytes_of(cage->polygon_indices) + bytes_of(cage->opposite_corners) +
                  bytes_of(cage->edge_sharpness) + bytes_of(cage->refinement.vertex_sharpness) +
                  bytes_of(cage->refinement.holes),
              patch);
}

template <class Visit>
void for_each_array(const SdsMeshGeometry& geometry, const Visit& visit) {
    using enum ArrayUnit;
    const size_t vertex_infos = bytes_of(geometry.get_vertex_infos());
    visit("vertices", bytes_of(geometry.get_vertices()), vertex);
    visit("motion vectors", bytes_of(geometry.get_motion_vectors()), vertex);
    visit("interpolated vertex infos", vertex_infos, vertex);
    visit("vertex fans", bytes_of(geometry.get_local_topologies()), quad);
    visit("tangent infos", bytes_of(geometry.get_tangent_infos()), quad);
    visit("patches", bytes_of(geometry.get_bezier_patches()), quad);
    visit("limit corners", bytes_of(geometry.get_bezier_corners()), vertex);
    visit("tangents", bytes_of(geometry.get_bezier_tangents_array()), tangent);
    if (geometry.is_refined()) {
        // All besides the vertices: patches, their places, and what updates are made from.
        const size_t others =
            sizeof(geometry) - sizeof(GeometryPointCloud) + geometry.get_point_cloud().get_memory_size() + vertex_infos;
        visit("refined patches", geometry.get_memory_size() - others, patch);
    }
}

template <class Visit>
void for_each_array(const SdsMeshMaps::SdsUvMap& map, const Visit& visit) {
    using enum ArrayUnit;
    visit("record", sizeof(map) + map.name.get_count(), fixed);
    visit("vertices", bytes_of(map.vertices), map_point);
    visit("vertex infos", bytes_of(map.vertex_infos), map_point);
    visit("limit corners", bytes_of(map.corners), map_point);
    visit("quad indices", bytes_of(map.quad_indices), quad);
    visit("opposite edges", bytes_of(map.edges.opposite_edges), quad);
    visit("edge flags", bytes_of(map.edges.quad_edge_flags), quad);
    visit("patch indices", bytes_of(map.patch_indices), quad);
    visit("patches", bytes_of(map.patches), quad);
    visit("refined", map.get_refined_memory_size(), patch);
}

}  // namespace sds

#include "model/surface_statistics.h"

#include "sds/common/array_bytes.h"
#include "sds/common/half_edge.h"
#include "sds/refinement/patch_places.h"

#include <algorithm>
#include <utility>

namespace sds_model {

namespace {

/// Calls visit(half_edge) once per edge of the quads.
template <class Visit>
void for_each_edge(const SdsMeshBase& base, const Visit& visit) {
    const auto& opposite = base.get_edges().opposite_edges;
    for (unsigned int e = 0; e < opposite.get_count(); ++e)
        if (opposite[e] == sds::none || e < opposite[e]) visit(e);
}

PatchClass classify_corner(const SdsMeshBase::VertexLocalTopology& fan, SdsMeshBase::VertexInfo info) {
    const unsigned int sharp = info.get_sharp_edge_count();
    if (fan.closed) return sharp == 0 && fan.valence == 4 ? PatchClass::regular : PatchClass::irregular;
    const bool is_straight = fan.valence == 2 && sharp == 2 && !info.is_kept();
    const bool is_corner = fan.valence == 1 && (info.is_kept() || sharp == 3);
    return is_straight || is_corner ? PatchClass::boundary : PatchClass::irregular;
}

/// Gathers the arrays of a surface.
class ArrayList {
public:
    using Unit = std::size_t ArraySize::*;

    template <class T>
    void add(const char* name, const CoreBasicArray<T>& array, Unit unit, std::size_t unit_count) {
        if (!array.is_empty()) put({name}, sds::bytes_of(array), unit, unit_count);
    }
    void add_uv_map(const SdsMeshMaps::SdsUvMap& map, std::size_t quads) {
        const std::size_t of_points =
            sds::bytes_of(map.vertices) + sds::bytes_of(map.vertex_infos) + sds::bytes_of(map.corners);
        const std::size_t of_quads = sds::bytes_of(map.quad_indices) + sds::bytes_of(map.edges.opposite_edges) +
                                     sds::bytes_of(map.edges.quad_edge_flags) + sds::bytes_of(map.patch_indices) +
                                     sds::bytes_of(map.patches);
        const std::size_t refined = map.get_refined_memory_size(), all = map.get_memory_size() - refined;
        ArraySize& size = put({"uv map " + map.name.to_std()}, all - of_points - of_quads, &ArraySize::fixed, 1);
        size.per_quad = of_quads / quads;
        if (map.vertex_count != 0) size.per_uv_point = of_points / map.vertex_count;
        size.bytes = all;
        add_refined(("uv map " + map.name.to_std() + ": refined").c_str(), refined);
    }
    void add_color_map(const SdsMeshMaps& maps, unsigned int m, std::size_t vertices) {
        put({"color map " + maps.get_color_map_name(m).to_std()},
            sds::bytes_of(maps.get_color_map_colors(m)) + sds::bytes_of(maps.get_color_map_indices(m)),
            &ArraySize::per_vertex, vertices);
    }

    void add_refined(const char* name, std::size_t bytes) {
        if (bytes != 0) put({name}, bytes, &ArraySize::fixed, 1).is_refined = true;
    }

    std::vector<ArraySize> sizes;

private:
    ArraySize& put(ArraySize size, std::size_t bytes, Unit unit, std::size_t unit_count) {
        size.bytes = bytes;
        size.*unit = bytes / unit_count;
        return sizes.emplace_back(std::move(size));
    }
};

}  // namespace

VertexClasses classify_vertices(const Surface& surface) {
    const SdsMeshBase& base = surface.get_base();
    const auto& infos = surface.get_geometry().get_vertex_infos();
    const auto& quads = base.get_quad_indices();
    enum : unsigned char { used = 1, on_border = 2 };
    std::vector<unsigned char> marks(infos.get_count(), 0);
    for (unsigned int e = 0; e < quads.get_count(); ++e) {
        const unsigned char mark = base.is_edge_border(e) ? used | on_border : used;
        marks[quads[e]] |= mark;
        marks[quads[sds::next_in_quad(e)]] |= mark;
    }
    VertexClasses classes;
    for (unsigned int v = 0; v < infos.get_count(); ++v) {
        if (marks[v] == 0) continue;
        const unsigned int sharp = infos[v].get_sharp_edge_count();
        if (infos[v].is_kept() || sharp == 3)
            ++classes.corner;
        else if ((marks[v] & on_border) != 0)
            ++classes.border;
        else
            ++(sharp == 0 ? classes.smooth : sharp == 1 ? classes.dart : classes.crease);
    }
    return classes;
}

std::vector<PatchClass> patch_classes(const Surface& surface) {
    const SdsMeshBase& base = surface.get_base();
    // Not the geometry's own fans: a bilinear one has trivial records.
    CoreArray<SdsMeshBase::VertexLocalTopology> fans(base.get_quad_indices().get_count());
    SdsMeshBase::analyse_vertices_local_topology(base.get_edges(), fans, false, nullptr);
    const auto& infos = surface.get_geometry().get_vertex_infos();
    std::vector<PatchClass> classes(base.get_primitive_count(), PatchClass::regular);
    for (unsigned int e = 0; e < fans.get_count(); ++e)
        classes[e / 4] = std::max(classes[e / 4], classify_corner(fans[e], infos[base.get_quad_indices()[e]]));
    return classes;
}

PatchClasses classify_patches(const Surface& surface) {
    PatchClasses counts;
    for (const PatchClass patch : patch_classes(surface))
        ++(patch == PatchClass::regular    ? counts.regular
           : patch == PatchClass::boundary ? counts.boundary
                                           : counts.irregular);
    return counts;
}

RefinementStatistics refinement_statistics(const Surface& surface) {
    const SdsMeshGeometry& geometry = surface.get_geometry();
    RefinementStatistics statistics;
    statistics.patches = geometry.get_patch_count();
    if (!geometry.is_refined()) {
        statistics.patch_levels[0] = statistics.patches;
        return statistics;
    }
    statistics.depth = surface.get_base().get_refinement().depth;
    for (unsigned int p = 0; p < statistics.patches; ++p) {
        const sds::RefinedPatch& patch = geometry.get_places().get_patch(p);
        ++statistics.patch_levels[patch.level()];
        if (patch.is_leaf()) ++statistics.leaves;
    }
    return statistics;
}

std::map<std::uint32_t, std::uint32_t> valence_histogram(const SdsMeshBase& base) {
    const auto& quads = base.get_quad_indices();
    std::vector<std::uint32_t> valences(base.get_vertex_infos().get_count(), 0);
    for_each_edge(base, [&](unsigned int e) {
        ++valences[quads[e]];
        ++valences[quads[sds::next_in_quad(e)]];
    });
    std::map<std::uint32_t, std::uint32_t> histogram;
    for (const std::uint32_t valence : valences)
        if (valence > 0) ++histogram[valence];
    return histogram;
}

std::vector<MapStatistics> uv_map_statistics(const Surface& surface) {
    const SdsMeshMaps& maps = surface.get_maps();
    std::vector<MapStatistics> list;
    for (unsigned int m = 0; m < maps.get_uv_map_count(); ++m) {
        const SdsMeshMaps::SdsUvMap& map = maps.get_uv_map(m);
        MapStatistics statistics{map.name.to_std(), map.vertex_count, 0, 0};
        for_each_edge(surface.get_base(), [&](unsigned int e) {
            if (!surface.get_base().is_edge_border(e) && map.edges.is_border(e)) ++statistics.seam_edges;
        });
        for (unsigned int q = 0; q < surface.get_base().get_primitive_count(); ++q)
            if (!maps.is_primitive_uv_mapped(q, m)) ++statistics.unmapped_quads;
        list.push_back(std::move(statistics));
    }
    return list;
}

std::vector<ArraySize> array_sizes(const Surface& surface) {
    const SdsMeshBase& base = surface.get_base();
    const SdsMeshGeometry& geometry = surface.get_geometry();
    const std::size_t quads = base.get_primitive_count(), vertices = base.get_vertex_infos().get_count();
    ArrayList list;
    const auto by_quad = [&](const char* name, const auto& array) {
        list.add(name, array, &ArraySize::per_quad, quads);
    };
    const auto by_vertex = [&](const char* name, const auto& array) {
        list.add(name, array, &ArraySize::per_vertex, vertices);
    };
    by_quad("quad indices", base.get_quad_indices());
    by_quad("opposite edges", base.get_edges().opposite_edges);
    by_quad("edge flags", base.get_edges().quad_edge_flags);
    by_vertex("vertex infos", base.get_vertex_infos());
    if (const auto* step = base.get_subdivision()) {
        by_vertex("step: vertex rings", step->vertex_rings);
        by_quad("step: ring edges", step->ring_edges);
        by_quad("step: quad parents", step->quad_parents);
    }
    by_vertex("vertices", geometry.get_vertices());
    by_vertex("motion vectors", geometry.get_motion_vectors());
    by_vertex("interpolated vertex infos", geometry.get_vertex_infos());
    by_quad("vertex fans", geometry.get_local_topologies());
    by_quad("tangent infos", geometry.get_tangent_infos());
    by_quad("patches", geometry.get_bezier_patches());
    by_vertex("limit corners", geometry.get_bezier_corners());
    const auto& tangents = geometry.get_bezier_tangents_array();
    list.add("tangents", tangents, &ArraySize::per_tangent, tangents.get_count());
    if (const auto* cage = base.get_control_cage())
        list.add_refined("control cage",
                         sds::bytes_of(cage->polygon_counts) + sds::bytes_of(cage->polygon_indices) +
                             sds::bytes_of(cage->opposite_corners) + sds::bytes_of(cage->edge_sharpness) +
                             sds::bytes_of(cage->refinement.vertex_sharpness) + sds::bytes_of(cage->refinement.holes));
    if (geometry.is_refined()) {
        // What the geometry holds besides its vertices: patches, their places, and what updates are made from.
        const std::size_t vertex_bytes = sds::bytes_of(geometry.get_vertex_infos());
        const std::size_t others =
            sizeof(geometry) - sizeof(GeometryPointCloud) + geometry.get_point_cloud().get_memory_size() + vertex_bytes;
        list.add_refined("refined patches", geometry.get_memory_size() - others);
    }
    const SdsMeshMaps& maps = surface.get_maps();
    for (unsigned int m = 0; m < maps.get_uv_map_count(); ++m) list.add_uv_map(maps.get_uv_map(m), quads);
    for (unsigned int m = 0; m < maps.get_color_map_count(); ++m) list.add_color_map(maps, m, vertices);
    return std::move(list.sizes);
}

}  // namespace sds_model

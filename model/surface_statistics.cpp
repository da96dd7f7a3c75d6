#include "model/surface_statistics.h"

#include "sds/common/half_edge.h"

namespace sds_model {

namespace {

/// Calls visit(half_edge) once per edge of the quads.
template <class Visit>
void for_each_edge(const SdsMeshBase& base, const Visit& visit) {
    const auto& opposite = base.get_edges().opposite_edges;
    for (unsigned int e = 0; e < opposite.get_count(); ++e)
        if (opposite[e] == sds::none || e < opposite[e]) visit(e);
}

enum class CornerClass { regular, boundary, irregular };

CornerClass classify_corner(const SdsMeshBase::VertexLocalTopology& fan, SdsMeshBase::VertexInfo info) {
    const unsigned int sharp = info.get_sharp_edge_count();
    if (fan.closed) return sharp == 0 && fan.valence == 4 ? CornerClass::regular : CornerClass::irregular;
    const bool is_straight = fan.valence == 2 && sharp == 2 && !info.is_kept();
    const bool is_corner = fan.valence == 1 && (info.is_kept() || sharp == 3);
    return is_straight || is_corner ? CornerClass::boundary : CornerClass::irregular;
}

template <class T>
void add_array(std::vector<ArraySize>& sizes, const char* name, const CoreBasicArray<T>& array) {
    if (!array.is_empty()) sizes.emplace_back(name, sizeof(T) * array.get_count());
}

void add_map_arrays(std::vector<ArraySize>& sizes, const SdsMeshMaps& maps) {
    for (unsigned int m = 0; m < maps.get_uv_map_count(); ++m) {
        const SdsMeshMaps::SdsUvMap& map = maps.get_uv_map(m);
        sizes.emplace_back("uv map " + map.name.to_std(), map.get_memory_size());
    }
    for (unsigned int m = 0; m < maps.get_color_map_count(); ++m)
        sizes.emplace_back("color map " + maps.get_color_map_name(m).to_std(),
                           4 * std::size_t{maps.get_color_map_colors(m).get_count()} +
                               4 * std::size_t{maps.get_color_map_indices(m).get_count()});
}

}  // namespace

VertexClasses classify_vertices(const Surface& surface) {
    const SdsMeshBase& base = surface.base();
    const auto& infos = surface.geometry().get_vertex_infos();
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

PatchClasses classify_patches(const Surface& surface) {
    const SdsMeshBase& base = surface.base();
    // Not the geometry's own fans: a bilinear one has trivial records.
    CoreArray<SdsMeshBase::VertexLocalTopology> fans(base.get_quad_indices().get_count());
    SdsMeshBase::analyse_vertices_local_topology(base.get_edges(), fans, false, nullptr);
    const auto& infos = surface.geometry().get_vertex_infos();
    PatchClasses classes;
    for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
        CornerClass worst = CornerClass::regular;
        for (unsigned int e = 4 * q; e < 4 * q + 4; ++e)
            worst = std::max(worst, classify_corner(fans[e], infos[base.get_quad_indices()[e]]));
        ++(worst == CornerClass::regular    ? classes.regular
           : worst == CornerClass::boundary ? classes.boundary
                                            : classes.irregular);
    }
    return classes;
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
    const SdsMeshMaps& maps = surface.maps();
    std::vector<MapStatistics> list;
    for (unsigned int m = 0; m < maps.get_uv_map_count(); ++m) {
        const SdsMeshMaps::SdsUvMap& map = maps.get_uv_map(m);
        MapStatistics statistics{map.name.to_std(), map.vertex_count, 0, 0};
        for_each_edge(surface.base(), [&](unsigned int e) {
            if (!surface.base().is_edge_border(e) && map.edges.is_border(e)) ++statistics.seam_edges;
        });
        for (unsigned int q = 0; q < surface.base().get_primitive_count(); ++q)
            if (!maps.is_primitive_uv_mapped(q, m)) ++statistics.unmapped_quads;
        list.push_back(std::move(statistics));
    }
    return list;
}

std::vector<ArraySize> array_sizes(const Surface& surface) {
    const SdsMeshBase& base = surface.base();
    const SdsMeshGeometry& geometry = surface.geometry();
    std::vector<ArraySize> sizes;
    add_array(sizes, "quad indices", base.get_quad_indices());
    add_array(sizes, "opposite edges", base.get_edges().opposite_edges);
    add_array(sizes, "edge flags", base.get_edges().quad_edge_flags);
    add_array(sizes, "vertex infos", base.get_vertex_infos());
    if (const auto* step = base.get_subdivision()) {
        add_array(sizes, "step: vertex rings", step->vertex_rings);
        add_array(sizes, "step: ring edges", step->ring_edges);
        add_array(sizes, "step: quad parents", step->quad_parents);
    }
    add_array(sizes, "vertices", geometry.get_vertices());
    add_array(sizes, "motion vectors", geometry.get_motion_vectors());
    add_array(sizes, "interpolated vertex infos", geometry.get_vertex_infos());
    add_array(sizes, "vertex fans", geometry.get_local_topologies());
    add_array(sizes, "tangent infos", geometry.get_tangent_infos());
    add_array(sizes, "patches", geometry.get_bezier_patches());
    add_array(sizes, "limit corners", geometry.get_bezier_corners());
    add_array(sizes, "tangents", geometry.get_bezier_tangents_array());
    add_map_arrays(sizes, surface.maps());
    return sizes;
}

}  // namespace sds_model

#include "model/surface_statistics.h"

#include "sds/common/half_edge.h"
#include "sds/mesh/array_sizes.h"
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

/// Gathers the arrays of a surface with these counts.
class ArrayList {
public:
    ArrayList(std::size_t quads, std::size_t vertices, std::size_t tangents)
        : m_quads(quads), m_vertices(vertices), m_tangents(tangents) {}

    void add(std::string name, std::size_t bytes, sds::ArrayUnit unit) {
        ArraySize size{std::move(name)};
        put(size, bytes, unit);
        finish(std::move(size));
    }
    /// The arrays of a map in one, but for those of its refined patches.
    void add_uv_map(const SdsMeshMaps::SdsUvMap& map) {
        ArraySize whole{"uv map " + map.name.to_std()}, refined{whole.name + ": refined"};
        sds::for_each_array(map, [&](const char*, std::size_t bytes, sds::ArrayUnit unit) {
            put(unit == sds::ArrayUnit::patch ? refined : whole, bytes, unit);
        });
        finish(std::move(whole), map.vertex_count);
        finish(std::move(refined));
    }

    std::vector<ArraySize> sizes;

private:
    static void put(ArraySize& size, std::size_t bytes, sds::ArrayUnit unit) {
        size.bytes += bytes;
        size.is_refined = unit == sds::ArrayUnit::patch;
        (unit == sds::ArrayUnit::quad        ? size.per_quad
         : unit == sds::ArrayUnit::vertex    ? size.per_vertex
         : unit == sds::ArrayUnit::tangent   ? size.per_tangent
         : unit == sds::ArrayUnit::map_point ? size.per_uv_point
                                             : size.fixed) += bytes;
    }
    /// Adds an array, with what one unit of it takes in place of what all do.
    void finish(ArraySize size, std::size_t uv_points = 0) {
        if (size.bytes == 0) return;
        for (const auto& [bytes, count] : {std::pair(&size.per_quad, m_quads),
                                           {&size.per_vertex, m_vertices},
                                           {&size.per_tangent, m_tangents},
                                           {&size.per_uv_point, uv_points}})
            *bytes /= std::max<std::size_t>(1, count);
        sizes.push_back(std::move(size));
    }

    std::size_t m_quads, m_vertices, m_tangents;
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
    ArrayList list(base.get_primitive_count(), base.get_vertex_infos().get_count(),
                   geometry.get_bezier_tangents_array().get_count());
    const auto add = [&list](const char* name, std::size_t bytes, sds::ArrayUnit unit) { list.add(name, bytes, unit); };
    sds::for_each_array(base, add);
    sds::for_each_array(geometry, add);
    std::stable_partition(list.sizes.begin(), list.sizes.end(), [](const ArraySize& size) { return !size.is_refined; });
    const SdsMeshMaps& maps = surface.get_maps();
    for (unsigned int m = 0; m < maps.get_uv_map_count(); ++m) list.add_uv_map(maps.get_uv_map(m));
    for (unsigned int m = 0; m < maps.get_color_map_count(); ++m)
        list.add("color map " + maps.get_color_map_name(m).to_std(),
                 sds::bytes_of(maps.get_color_map_colors(m)) + sds::bytes_of(maps.get_color_map_indices(m)),
                 sds::ArrayUnit::vertex);
    return std::move(list.sizes);
}

}  // namespace sds_model

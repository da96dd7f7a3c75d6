#include "sds/mesh_maps/sds_mesh_maps.h"

using sds::none;

void SdsMeshMaps::set_vertices_interpolation(const CoreArray<unsigned int>& quad_indices,
                                             const SdsMeshBase::EdgesTopology& map_edges,
                                             const SdsMeshBase::EdgesTopology& base_edges,
                                             const InterpolationMode& mode, CoreArray<SdsMeshBase::VertexInfo>& infos) {
    using Mode = InterpolationMode;
    using Rule = SdsMeshBase::VertexRule;
    const bool smooths = mode == Mode::smoothed_seam_corners_fixed || mode == Mode::smoothed_seams_fixed;
    const bool fixes_corners =
        mode == Mode::corners_and_seams_fixed || mode == Mode::corners_plus1 || mode == Mode::corners_plus2;
    SdsMeshBase::set_vertices_by_rule(quad_indices, map_edges,
                                      smooths         ? Rule::all_smoothed
                                      : fixes_corners ? Rule::corners_fixed
                                                      : static_cast<Rule>(mode),
                                      infos);
    if (mode == Mode::smoothed_seam_corners_fixed)
        set_discontinuities_corner_vertices_as_fixed(quad_indices, map_edges, base_edges, infos);
    if (mode == Mode::smoothed_seams_fixed || mode == Mode::corners_and_seams_fixed)
        set_discontinuities_border_vertices_as_fixed(quad_indices, map_edges, base_edges, infos);
}

void SdsMeshMaps::set_discontinuities_border_vertices_as_fixed(const CoreArray<unsigned int>& quad_indices,
                                                               const SdsMeshBase::EdgesTopology& map_edges,
                                                               const SdsMeshBase::EdgesTopology& base_edges,
                                                               CoreArray<SdsMeshBase::VertexInfo>& infos) {
    const auto is_seam = [&](unsigned int e) { return map_edges.is_border(e) && !base_edges.is_border(e); };
    for (unsigned int c = 0; c < quad_indices.get_count(); ++c)
        if (quad_indices[c] != none && (is_seam(c) || is_seam(sds::previous_in_quad(c))))
            infos[quad_indices[c]].set_fixed(true);
}

void SdsMeshMaps::set_discontinuities_corner_vertices_as_fixed(const CoreArray<unsigned int>& quad_indices,
                                                               const SdsMeshBase::EdgesTopology& map_edges,
                                                               const SdsMeshBase::EdgesTopology& base_edges,
                                                               CoreArray<SdsMeshBase::VertexInfo>& infos) {
    for (unsigned int c = 0; c < quad_indices.get_count(); ++c) {
        if (quad_indices[c] == none) continue;
        const unsigned int p = sds::previous_in_quad(c);
        const bool map_corner = map_edges.is_border(c) && map_edges.is_border(p);
        const bool mesh_corner = base_edges.is_border(c) && base_edges.is_border(p);
        if (map_corner && !mesh_corner) infos[quad_indices[c]].set_fixed(true);
    }
}

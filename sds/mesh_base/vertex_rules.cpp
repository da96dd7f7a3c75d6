#include "sds/mesh_base/sds_mesh_base.h"

using sds::none;

void SdsMeshBase::set_all_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices, const EdgesTopology&,
                                            CoreArray<VertexInfo>& vertex_infos) {
    for (const unsigned int v : quad_indices)
        if (v != none) vertex_infos[v].set_fixed(true);
}

void SdsMeshBase::set_all_vertices_as_smoothed(const CoreBasicArray<unsigned int>& quad_indices, const EdgesTopology&,
                                               CoreArray<VertexInfo>& vertex_infos) {
    for (const unsigned int v : quad_indices)
        if (v != none) vertex_infos[v].set_fixed(false);
}

void SdsMeshBase::set_border_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices,
                                               const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos) {
    set_all_vertices_as_smoothed(quad_indices, edges, vertex_infos);
    for (unsigned int e = 0; e < quad_indices.get_count(); ++e) {
        const unsigned int v = quad_indices[e];
        if (v != none && (edges.is_border(e) || edges.is_border(sds::previous_in_quad(e))))
            vertex_infos[v].set_fixed(true);
    }
}

void SdsMeshBase::set_corner_vertices_as_fixed(const CoreBasicArray<unsigned int>& quad_indices,
                                               const EdgesTopology& edges, CoreArray<VertexInfo>& vertex_infos) {
    // One pass, on purpose: where quads touch at a vertex only, that with the highest number decides for all. While
    // nothing is fixed, quads without borders have nothing to clear.
    unsigned char bits = 0;
    for (const VertexInfo& info : vertex_infos) bits |= info.bits;
    unsigned int e = 0;
    // In local variables: stores of bytes may change whatever is read through a reference.
    const unsigned int* const indices = quad_indices.get_data();
    const unsigned int* const opposite = edges.opposite_edges.get_data();
    VertexInfo* const infos = vertex_infos.get_data();
    const unsigned int edge_count = quad_indices.get_count();
    const auto has_border = [opposite](unsigned int h) {
        return opposite[h] == none || opposite[h + 1] == none || opposite[h + 2] == none || opposite[h + 3] == none;
    };
    if ((bits & VertexInfo::fixed_bit) == 0) {
        while (e < edge_count && !has_border(e)) e += 4;
    }
    for (; e < edge_count; e += 4) {
        if (!has_border(e) && !sds::is_void_quad(indices + e)) {
            for (unsigned int h = e; h < e + 4; ++h) infos[indices[h]].set_fixed(false);
            continue;
        }
        bool is_after_border = edges.is_border(e + 3);
        for (unsigned int h = e; h < e + 4; ++h) {
            const bool is_border = edges.is_border(h);
            if (const unsigned int v = quad_indices[h]; v != none)
                vertex_infos[v].set_fixed(is_border && is_after_border);
            is_after_border = is_border;
        }
    }
}

void SdsMeshBase::set_vertices_by_rule(const CoreBasicArray<unsigned int>& quad_indices, const EdgesTopology& edges,
                                       const VertexRule& rule, CoreArray<VertexInfo>& vertex_infos) {
    switch (rule) {
        case VertexRule::all_fixed:
            set_all_vertices_as_fixed(quad_indices, edges, vertex_infos);
            break;
        case VertexRule::corners_fixed:
            set_corner_vertices_as_fixed(quad_indices, edges, vertex_infos);
            break;
        case VertexRule::all_smoothed:
            set_all_vertices_as_smoothed(quad_indices, edges, vertex_infos);
            break;
        case VertexRule::borders_fixed:
            set_border_vertices_as_fixed(quad_indices, edges, vertex_infos);
            break;
        default:
            break;
    }
}

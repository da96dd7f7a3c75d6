// Color maps: linear subdivision in 8 bits, bilinear look-up.
#include <algorithm>

#include "sds/common/progress.h"
#include "sds/mesh_base/position_rules.h"
#include "sds/mesh_maps/control_polygons.h"

using sds::none;

namespace {

using Color8 = GMathVec4<unsigned char>;

struct ColorSum {
    float c[4] = {};

    void add(const Color8& color) {
        for (unsigned int i = 0; i < 4; ++i) c[i] += static_cast<float>(color[i]);
    }
    // Truncated towards zero, at most 255.
    Color8 divided_by(float count) const {
        Color8 color;
        for (unsigned int i = 0; i < 4; ++i) color[i] = static_cast<unsigned char>(std::min(c[i] / count, 255.0f));
        return color;
    }
};

}  // namespace

void SdsMeshMaps::compute_subdivision_colors(const CoreBasicArray<Color8>& colors,
                                             const SdsMeshBase::TopologyContext& context,
                                             CoreArray<Color8>& subdivided_colors, AppProgressBar* progress) {
    const SdsMeshBase::SubdivisionTopology& subdivision = *context.subdivision;
    const CoreBasicArray<unsigned int>& quad_indices = *context.quad_indices;
    const unsigned int vertex_count = subdivision.vertex_rings.get_count();
    sds::progress_steps(progress, vertex_count);

    for (unsigned int w = subdivision.first_face_point; w < vertex_count; ++w) {
        ColorSum sum;
        unsigned int count = 0;
        for (const unsigned int h : sds::Ring(subdivision, w)) {
            const unsigned int u = quad_indices[h - 2];
            if (u == none) continue;
            sum.add(colors[u]);
            ++count;
        }
        if (count != 0) subdivided_colors[w] = sum.divided_by(static_cast<float>(count));
        sds::progress_step(progress, w + 1);
    }
    for (unsigned int w = subdivision.first_edge_point; w < subdivision.first_face_point; ++w) {
        const sds::Ring ring(subdivision, w);
        subdivided_colors[w] = {0, 0, 0, 0};
        if (ring.count != 0) {
            const unsigned int e = sds::corner_of(ring.edges[0]) == 1 || ring.count < 2 ? ring.edges[0] : ring.edges[1];
            const unsigned int h = context.edges->opposite_edges[e];
            if (h != none) {
                ColorSum sum;
                sum.add(colors[quad_indices[h - 2]]);
                sum.add(colors[quad_indices[e - 1]]);
                subdivided_colors[w] = sum.divided_by(2.0f);
            }
        }
        sds::progress_step(progress, w + 1);
    }
    for (unsigned int w = 0; w < subdivision.first_edge_point; ++w) {
        subdivided_colors[w] = colors[w];
        sds::progress_step(progress, w + 1);
    }
}

void SdsMeshMaps::set_color_map(const GeometryColorMap& source, const ControlPolygons& polygons, float share,
                                SdsColorMap& map, AppProgressBar* progress) const {
    map.name = source.name;
    if (!base->get_base_tessellation_level()) {
        map.colors = source.colors;
        map.indices = source.indices;
        return;
    }
    SdsMeshBase::TopologyContext context;
    if (source.indices.is_empty()) {
        const sds::ProgressTask task(progress, "compute subdivision colors", share);
        context.quad_indices = &base->get_quad_indices();
        context.edges = &base->get_edges();
        context.subdivision = base->get_subdivision();
        map.colors.assign(base->get_vertex_infos().get_count(), {0, 0, 0, 0});
        compute_subdivision_colors(source.colors, context, map.colors, progress);
        return;
    }
    SdsMeshBase::SubdivisionTopology subdivision;
    SdsMeshBase::EdgesTopology edges;
    CoreArray<SdsMeshBase::VertexInfo> vertex_infos;
    {
        const sds::ProgressTask task(progress, "subdivide", share * 0.5f);
        SdsMeshBase::subdivide(source.indices, polygons.counts, polygons.offsets, source.colors.get_count(),
                               map.indices, vertex_infos, edges, subdivision, progress);
    }
    const sds::ProgressTask task(progress, "compute subdivision colors", share * 0.5f);
    context.quad_indices = &map.indices;
    context.edges = &edges;
    context.subdivision = &subdivision;
    map.colors.assign(vertex_infos.get_count(), {0, 0, 0, 0});
    compute_subdivision_colors(source.colors, context, map.colors, progress);
}

void SdsMeshMaps::compute_fragment_color(const CtxEval&, const GeometryFragment& fragment,
                                         const unsigned int& color_map, GMathVec4<float>& color) const {
    const SdsColorMap& map = color_maps[color_map];
    const unsigned int* indices = map.indices.is_empty() ? base->get_quad_indices(fragment.primitive)
                                                         : map.indices.get_data() + 4 * size_t{fragment.primitive};
    constexpr float one_255th = 0.003921569f;
    static constexpr Color8 unmapped(0, 0, 0, 0);
    const auto corner = [&](unsigned int k) -> const Color8& {
        return indices[k] == none ? unmapped : map.colors[indices[k]];
    };
    const auto u = static_cast<float>(fragment.u);
    const auto v = static_cast<float>(fragment.v);
    const auto u1 = static_cast<float>(1.0 - fragment.u);
    const auto v1 = static_cast<float>(1.0 - fragment.v);
    for (unsigned int i = 0; i < 4; ++i) {
        const float bottom = static_cast<float>(corner(0)[i]) * u1 + static_cast<float>(corner(1)[i]) * u;
        const float top = static_cast<float>(corner(3)[i]) * u1 + static_cast<float>(corner(2)[i]) * u;
        color[i] = (bottom * v1 + top * v) * one_255th;
    }
}

#include "sds/refinement/refined_chart.h"

#include <algorithm>

namespace sds {

namespace {

// A value is as sharp as the sharpest vertex it is used at.
void add_sharp_vertices(const Chart& chart, CoreArray<float>& sharpness) {
    const CoreArray<float>& of_vertices = chart.cage.refinement.vertex_sharpness;
    if (of_vertices.is_empty()) return;
    if (sharpness.is_empty()) sharpness.assign(chart.value_count, 0.0f);
    for (unsigned int c = 0; c < chart.indices.get_count(); ++c) {
        const unsigned int value = chart.indices[c];
        const unsigned int vertex = chart.cage.polygon_indices[c];
        if (value != none && vertex != none) sharpness[value] = std::max(sharpness[value], of_vertices[vertex]);
    }
}

}  // namespace

RefinementOptions get_refinement_options(const SdsRefinement& settings) {
    RefinementOptions options;
    options.depth = settings.depth;
    options.error = static_cast<double>(settings.error);
    options.chaikin = settings.chaikin;
    options.smooth_triangles = settings.smooth_triangles;
    return options;
}

void refine_chart(const Chart& chart, BorderRule border_rule, CoreArray<float> fixed,
                  const CoreBasicArray<GMathVec3<float>>& points, RefinedTopology& topology, AppProgressBar* progress) {
    add_sharp_vertices(chart, fixed);
    RefinementCage view = chart.chart_view();
    view.edge_sharpness = chart.cage.edge_sharpness;
    view.vertex_sharpness = fixed;
    RefinementOptions options = get_refinement_options(chart.cage.refinement);
    options.border_rule = border_rule;
    topology.build(view, options, points, progress);
}

}  // namespace sds

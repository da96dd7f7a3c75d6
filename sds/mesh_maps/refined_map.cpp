#include "sds/mesh_maps/refined_map.h"

#include "sds/mesh_base/control_opposites.h"
#include "sds/refinement/face_varying_rules.h"
#include "sds/refinement/patch_values.h"
#include "sds/refinement/refined_chart.h"
#include "sds/refinement/sharpness_rules.h"

using sds::none;
using Vec3d = GMathVec3<double>;

namespace {

using Mode = SdsMeshMaps::InterpolationMode;

sds::FaceVaryingRule get_rule(Mode mode) {
    switch (mode) {
        case Mode::corners_fixed:
        case Mode::corners_and_seams_fixed:
            return sds::FaceVaryingRule::corners_only;
        case Mode::corners_plus1:
            return sds::FaceVaryingRule::corners_plus1;
        case Mode::corners_plus2:
            return sds::FaceVaryingRule::corners_plus2;
        case Mode::borders_fixed:
            return sds::FaceVaryingRule::boundaries;
        default:
            return sds::FaceVaryingRule::all_smooth;
    }
}

// Modes that tell seams from borders of the mesh: the values at seams, or only at their corners.
void add_fixed_seams(const sds::Chart& chart, bool only_corners, CoreArray<float>& fixed) {
    unsigned int begin = 0;
    for (const unsigned int count : chart.cage.polygon_counts) {
        for (unsigned int j = 0; j < count; ++j) {
            const unsigned int edges[2] = {begin + j, begin + (j == 0 ? count : j) - 1};
            const unsigned int value = chart.indices[begin + j];
            if (value == none) continue;
            const auto is_border = [&](unsigned int e) { return chart.opposite_corners[e] == none; };
            const auto is_seam = [&](unsigned int e) { return is_border(e) && chart.cage.opposite_corners[e] != none; };
            const bool is_any = is_seam(edges[0]) || is_seam(edges[1]);
            if (is_any && (!only_corners || (is_border(edges[0]) && is_border(edges[1]))))
                fixed[value] = sds::infinite_sharpness;
        }
        begin += count;
    }
}

}  // namespace

void SdsMeshMaps::refine_uv_map(const GeometryUvMap& source, SdsUvMap& map, AppProgressBar* progress) const {
    const CoreArray<unsigned int> opposites =
        sds::control_opposites(map.quad_indices, map.edges, base->get_base_tessellation_level());
    const sds::Chart chart{*base->get_control_cage(), source.vertices.get_count(), source.indices, opposites};
    const sds::FaceVaryingRule rule = get_rule(mode);
    CoreArray<float> fixed = sds::chart_vertex_sharpness(chart.mesh_view(), chart.chart_view(), rule);
    if (mode == Mode::smoothed_seam_corners_fixed) add_fixed_seams(chart, true, fixed);
    if (mode == Mode::smoothed_seams_fixed || mode == Mode::corners_and_seams_fixed)
        add_fixed_seams(chart, false, fixed);
    auto refined = std::make_shared<RefinedMap>();
    // Values that stay say all that a border rule would: an edge between two of them is straight.
    sds::refine_chart(chart, sds::BorderRule::edge_only, std::move(fixed), source.vertices, refined->topology,
                      progress);

    refined->controls.resize(16 * refined->get_patch_count());
    CoreArray<Vec3d> values(source.vertices.get_count());
    for (unsigned int i = 0; i < values.get_count(); ++i) values[i] = Vec3d(source.vertices[i]);
    sds::compute_patch_values(
        refined->topology, values,
        [&](unsigned int patch, const Vec3d* controls) {
            Vec3f* out = refined->controls.get_data() + 16 * size_t{patch};
            for (unsigned int i = 0; i < 16; ++i) out[i] = Vec3f(controls[i]);
        },
        progress);
    refined->topology.drop_levels();
    map.patch_indices.clear();
    map.patches.clear();
    map.corners.clear();
    map.refined = std::move(refined);
    map.bind_controls();
}

// At a control vertex there are as many quads as polygons, and an edge point has at most two values of two quads each:
// the quads have the values that the polygons have.
void SdsMeshMaps::set_junction_vertices_as_fixed(SdsUvMap& map) const {
    const CoreArray<unsigned int> counts(map.quad_indices.get_count() / 4, 4u);
    const sds::RefinementCage mesh{base->get_vertex_infos().get_count(),
                                   counts,
                                   base->get_quad_indices(),
                                   base->get_edges().opposite_edges,
                                   {},
                                   {},
                                   {}};
    const sds::RefinementCage chart{
        map.vertex_infos.get_count(), counts, map.quad_indices, map.edges.opposite_edges, {}, {}, {}};
    const CoreArray<float> fixed = sds::chart_vertex_sharpness(mesh, chart, get_rule(mode));
    for (unsigned int v = 0; v < fixed.get_count(); ++v)
        if (fixed[v] > 0.0f) map.vertex_infos[v].set_fixed(true);
}

#include "oracles/uv_errors.h"

#include <algorithm>

#include "qn_ctx/ctx_eval.h"

namespace sds_test {

namespace {

constexpr unsigned int steps = 8;

double range_of(const CoreArray<Vec3f>& points) {
    double range = 0.0;
    for (unsigned int axis = 0; axis < 2; ++axis) {
        const auto less = [axis](const Vec3f& a, const Vec3f& b) { return a[axis] < b[axis]; };
        const auto [low, high] = std::minmax_element(points.begin(), points.end(), less);
        range = std::max(range, static_cast<double>((*high)[axis]) - static_cast<double>((*low)[axis]));
    }
    return range;
}

}  // namespace

const char* name_of(UvMode mode) {
    static constexpr const char* names[] = {"all_fixed",
                                            "corners_fixed",
                                            "all_smoothed",
                                            "borders_fixed",
                                            "smoothed_seam_corners_fixed",
                                            "smoothed_seams_fixed",
                                            "corners_and_seams_fixed",
                                            "corners_plus1",
                                            "corners_plus2"};
    return names[static_cast<unsigned int>(mode)];
}

UvErrors measure_uvs(const BuiltSurface& surface, const OpenSubdivOracle& oracle) {
    static const CtxShader at_rest;
    const CtxEval ctx(at_rest);
    const SdsMeshMaps::SdsUvMap& map = surface.maps.get_uv_map(0);
    const double unit = 1.0 / range_of(map.vertices);

    // Regularity is that of the map, whose seams are borders, except in a linear map: there every patch is exact.
    const bool linear = surface.maps.get_interpolation_mode() == UvMode::all_fixed;
    CoreArray<SdsMeshBase::VertexLocalTopology> fans(map.quad_indices.get_count());
    SdsMeshBase::analyse_vertices_local_topology(map.edges, fans, false, nullptr);
    const PatchClasses map_classes =
        classify_patches({&map.quad_indices, &map.vertex_infos, fans.get_data(), nullptr, &map.edges, nullptr});
    const PatchClasses mesh_classes = classify_patches(surface.context());

    std::vector<double> regular, corners, other;
    for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
        if (!surface.maps.is_primitive_uv_mapped(q, 0)) continue;
        const bool is_regular = linear || (map_classes.regular[q] != 0 && mesh_classes.regular[q] != 0);
        for (unsigned int j = 0; j <= steps; ++j)
            for (unsigned int i = 0; i <= steps; ++i) {
                GeometryFragment fragment;
                fragment.primitive = q;
                fragment.u = i / double{steps};
                fragment.v = j / double{steps};
                Vec3d uvw, du, dv;
                surface.maps.compute_fragment_uvw(ctx, fragment, 0, uvw, du, dv);
                const double error = (uvw - oracle.evaluate_uv(q, fragment.u, fragment.v).position).length() * unit;
                (is_regular ? regular : other).push_back(error);
                const bool at_corner = i % steps == 0 && j % steps == 0;
                const unsigned int k = j == 0 ? (i == 0 ? 0 : 1) : (i == 0 ? 3 : 2);
                if (at_corner && map_classes.near_dart[map.quad_indices[4 * size_t{q} + k]] == 0)
                    corners.push_back(error);
            }
    }
    return {summarize(regular), summarize(corners), summarize(other)};
}

}  // namespace sds_test

#include "oracles/refined_surface.h"

#include <algorithm>
#include <cmath>

#include "qn_poly/poly_neighbourhood.h"
#include "sds/common/polygon_offsets.h"

namespace sds_test {

TaggedCage tag_cage(const ZooMesh& mesh) {
    TaggedCage cage;
    cage.mesh = mesh;
    for (const unsigned char crease : mesh.corner_creases) cage.edge_sharpness.push_back(crease != 0 ? 10.0f : 0.0f);
    cage.edge_sharpness.resize(mesh.indices.size(), 0.0f);
    return cage;
}

void sharpen(TaggedCage& cage, const std::vector<unsigned int>& path, float sharpness) {
    const CageAdjacency adjacency(cage.mesh);
    for (unsigned int c = 0; c < adjacency.start.size(); ++c)
        for (size_t i = 0; i + 1 < path.size(); ++i)
            if (std::minmax(adjacency.start[c], adjacency.end[c]) == std::minmax(path[i], path[i + 1]))
                cage.edge_sharpness[c] = sharpness;
}

SdsRefinement refinement_of(const TaggedCage& cage, unsigned int depth) {
    SdsRefinement refinement;
    refinement.depth = depth;
    refinement.chaikin = cage.chaikin;
    refinement.smooth_triangles = cage.smooth_triangles;
    refinement.open_borders = cage.boundary == OpenSubdivBoundary::none;
    refinement.edge_sharpness = to_core_array(cage.edge_sharpness);
    refinement.vertex_sharpness = to_core_array(cage.vertex_sharpness);
    refinement.holes = to_core_array(cage.holes);
    return refinement;
}

ZooMesh make_cut_torus() {
    ZooMesh mesh = make_torus(9, 7);
    mesh.name = "torus of quads and two triangles";
    const std::vector<unsigned int> quad(mesh.indices.begin(), mesh.indices.begin() + 4);
    const std::vector<unsigned int> triangles{quad[0], quad[1], quad[2], quad[0], quad[2], quad[3]};
    mesh.indices.erase(mesh.indices.begin(), mesh.indices.begin() + 4);
    mesh.indices.insert(mesh.indices.begin(), triangles.begin(), triangles.end());
    mesh.counts.erase(mesh.counts.begin());
    mesh.counts.insert(mesh.counts.begin(), {3, 3});
    mesh.corner_creases.assign(mesh.indices.size(), 0);
    mesh.uv_points = mesh.positions;
    mesh.uv_indices = mesh.indices;
    mesh.groups = find_groups(mesh);
    return mesh;
}

void build_topology(const TaggedCage& cage, unsigned int depth, sds::RefinedTopology& topology, double error,
                    bool may_have_siblings) {
    const CoreArray<unsigned int> counts = to_core_array(cage.mesh.counts);
    const CoreArray<unsigned int> indices = to_core_array(cage.mesh.indices);
    const CoreArray<unsigned int> offsets = sds::polygon_offsets(counts);
    const auto vertex_count = static_cast<unsigned int>(cage.mesh.positions.size());
    CoreArray<unsigned int> polygons, slots;
    CoreArray<unsigned char> smooth;
    compute_polygons_neighbourhood(polygons, slots, smooth, indices, counts, offsets, vertex_count, nullptr);
    const CoreArray<unsigned int> opposites = sds::opposite_corners(polygons, slots, offsets);
    const CoreArray<float> edge_sharpness = to_core_array(cage.edge_sharpness);
    const CoreArray<float> vertex_sharpness = to_core_array(cage.vertex_sharpness);
    const CoreArray<unsigned char> holes = to_core_array(cage.holes);
    sds::RefinementOptions options;
    options.depth = depth;
    options.may_have_siblings = may_have_siblings;
    options.error = error;
    options.chaikin = cage.chaikin;
    options.smooth_triangles = cage.smooth_triangles;
    options.infinite_from = 10.0f;
    options.border_rule = cage.boundary == OpenSubdivBoundary::edge_only ? sds::BorderRule::edge_only
                          : cage.boundary == OpenSubdivBoundary::none    ? sds::BorderRule::open
                                                                         : sds::BorderRule::edge_and_corner;
    topology.build({vertex_count, counts, indices, opposites, edge_sharpness, vertex_sharpness, holes}, options,
                   to_core_array(cage.mesh.positions));
}

RefinedSurface::RefinedSurface(const TaggedCage& cage, unsigned int depth, double error)
    : diagonal(cage.mesh.get_diagonal()) {
    build_topology(cage, depth, topology, error);
    const CoreArray<Vec3f> positions = to_core_array(cage.mesh.positions);
    patches.build(topology, positions, sds::NetStorage::all);
    controls.resize(16 * size_t{get_patch_count()});
    std::vector<Vec3d> flat_nets(24 * size_t{get_patch_count()});
    sds::compute_exact_patches(topology, positions, controls.data(), flat_nets.data());
    for (unsigned int p = 0; p < get_patch_count(); ++p) {
        NetsD patch_nets(controls.data() + 16 * size_t{p});
        std::copy_n(flat_nets.data() + 24 * size_t{p}, 12, &patch_nets.u[0][0]);
        std::copy_n(flat_nets.data() + 24 * size_t{p} + 12, 12, &patch_nets.v[0][0]);
        nets.push_back(patch_nets);
    }
}

unsigned int RefinedSurface::get_support_count() const {
    unsigned int count = 0;
    for (unsigned int i = 0; i < topology.get_level_count(); ++i) {
        const sds::RefinementLevel& level = topology.get_level(i);
        count += level.face_count - level.candidate_count;
    }
    return count;
}

SurfacePoint RefinedSurface::evaluate(unsigned int patch, double s, double t) const {
    const double scale = static_cast<double>(topology.get_places().get_patch(patch).derivative_scale());
    SurfacePoint point = evaluate_nets(nets[patch], s, t);
    point.position = sds::evaluate_patch(controls.data() + 16 * size_t{patch}, sds::CubicBasis<double>(s),
                                         sds::CubicBasis<double>(t));
    point.du *= scale;
    point.dv *= scale;
    return point;
}

RefinedErrors measure_refined(const RefinedSurface& surface, const OpenSubdivOracle& oracle, unsigned int steps) {
    std::vector<double> grid;
    for (unsigned int i = 0; i <= steps; ++i) grid.push_back(i / static_cast<double>(steps));
    RefinedErrors errors;
    std::vector<std::pair<double, double>> normals;
    double area = 0.0;
    const auto raise = [](double& worst, double value) {
        if (!(value <= worst) && !std::isnan(worst)) worst = value;
    };
    for (unsigned int p = 0; p < surface.get_patch_count(); ++p) {
        const sds::RefinedPatch& place = surface.topology.get_places().get_patch(p);
        for (const double s : grid)
            for (const double t : grid) {
                const sds::QuadPoint at = surface.topology.get_places().find_quad(p, s, t);
                SurfacePoint point = surface.evaluate(p, s, t);
                const SurfacePoint limit = oracle.evaluate(at.quad, at.u, at.v);
                const Vec3d gap = point.position - limit.position;
                const double position = gap.length() / surface.diagonal;
                const Vec3d normal = limit.normal_direction();
                const double length = normal.length();
                const double angle = angle_between(point.normal_direction(), normal);
                const double side = 1.0 / static_cast<double>(place.derivative_scale());
                area += side * side;
                errors.mean_position += position * side * side;
                // Where the limit's derivatives are parallel it has no normal to compare with.
                const bool has_normal = std::isfinite(angle) && length > 1e-6 * limit.du.length() * limit.dv.length();
                if (has_normal) normals.emplace_back(angle, side * side);
                if (place.is_leaf()) {
                    raise(errors.leaf_position, position);
                    if (has_normal) raise(errors.leaf_distance, std::fabs(gap.dot(normal)) / length / surface.diagonal);
                } else {
                    raise(errors.regular, position);
                    if (has_normal) raise(errors.regular_normal, angle);
                    const Vec3f* rounded = surface.patches.get_controls() + 16 * size_t{p};
                    Vec3d wide[16];
                    for (unsigned int i = 0; i < 16; ++i) wide[i] = Vec3d(rounded[i]);
                    raise(errors.regular_single,
                          (sds::evaluate_patch(wide, sds::CubicBasis<double>(s), sds::CubicBasis<double>(t)) -
                           limit.position)
                                  .length() /
                              surface.diagonal);
                }
            }
    }
    errors.mean_position /= area;
    std::sort(normals.begin(), normals.end());
    double sum = 0.0, weighted = 0.0;
    for (const auto& [angle, weight] : normals) {
        weighted += angle * weight;
        if ((sum += weight) <= 0.99 * area) errors.normals.percentile99 = angle;
        errors.normals.worst = angle;
    }
    errors.normals.mean = weighted / area;
    return errors;
}

}  // namespace sds_test

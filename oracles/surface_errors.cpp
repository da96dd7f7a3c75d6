#include "oracles/surface_errors.h"

#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"

namespace sds_test {

namespace {

constexpr unsigned int steps = 8;
constexpr double degrees = 57.295779513082320877;

template <class Visit>
void for_grid(Visit&& visit) {
    for (unsigned int j = 0; j <= steps; ++j)
        for (unsigned int i = 0; i <= steps; ++i) visit(i / double{steps}, j / double{steps});
}

// NaN counts as larger than anything.
bool raise(double& worst, double value) {
    if (value <= worst) return false;
    worst = value;
    return true;
}

double largest_coordinate(const ZooMesh& cage) {
    double largest = 0.0;
    for (const Vec3f& p : cage.positions)
        for (unsigned int i = 0; i < 3; ++i) largest = std::max(largest, std::fabs(static_cast<double>(p[i])));
    return largest;
}

// A corner whose tangents are not the patch's own by rule: an open fan of one quad, whose tangents lean to the
// diagonal, or one between sharp edges that meet at a right angle or less, where the guard against folds may act.
bool has_turned_tangents(const BuiltSurface& surface, unsigned int quad) {
    const auto& indices = surface.base.get_quad_indices();
    const auto& vertices = surface.geometry.get_vertices();
    for (unsigned int e = 4 * quad; e < 4 * quad + 4; ++e) {
        const SdsMeshBase::VertexLocalTopology& fan = surface.geometry.get_local_topologies()[e];
        if (fan.closed) continue;
        const Vec3f& vertex = vertices[indices[e]];
        const Vec3f a = vertices[indices[sds::next_in_quad(fan.last_edge)]] - vertex;
        const Vec3f b = vertices[indices[sds::previous_in_quad(fan.first_edge)]] - vertex;
        if (fan.valence == 1 || a.dot(b) >= 0.0f) return true;
    }
    return false;
}

}  // namespace

ErrorSummary summarize(std::vector<double>& errors) {
    ErrorSummary summary;
    summary.count = errors.size();
    if (errors.empty()) return summary;
    double sum = 0.0;
    for (const double e : errors) sum += e;
    summary.mean = sum / static_cast<double>(errors.size());
    const size_t rank = (errors.size() - 1) * 99 / 100;
    std::nth_element(errors.begin(), errors.begin() + static_cast<std::ptrdiff_t>(rank), errors.end());
    summary.percentile99 = errors[rank];
    for (const double e : errors) raise(summary.worst, e);
    errors.clear();
    return summary;
}

double angle_between(const Vec3d& a, const Vec3d& b) {
    const double la = a.length();
    const double lb = b.length();
    if (!(la > 0.0) || !(lb > 0.0)) return std::nan("");
    const Vec3d x = a * (1.0 / la);
    const Vec3d y = b * (1.0 / lb);
    return std::atan2(x.cross(y).length(), x.dot(y)) * degrees;
}

GeometrySample sample_at(const SdsMeshGeometry& geometry, unsigned int quad, double u, double v) {
    static const CtxShader at_rest;
    GeometryFragment fragment;
    fragment.primitive = quad;
    fragment.u = u;
    fragment.v = v;
    GeometrySample sample;
    geometry.compute_fragment_sample(CtxEval(at_rest), fragment, sample);
    return sample;
}

PatchPlace place_on_edge(unsigned int k, double t) {
    switch (k) {
        case 0:
            return {t, 0.0};
        case 1:
            return {1.0, t};
        case 2:
            return {1.0 - t, 1.0};
        default:
            return {0.0, 1.0 - t};
    }
}

PositionErrors measure_positions(const ZooMesh& cage, const BuiltSurface& surface, const DoubleSurface& twin,
                                 const OpenSubdivOracle& oracle) {
    const PatchClasses classes = classify_patches(surface.context(), find_exceptions(cage));
    const double unit = 1.0 / surface.get_diagonal();
    std::vector<double> regular, regular_double, corners, corners_double, other;
    for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
        for_grid([&](double u, double v) {
            const Vec3d limit = oracle.evaluate(q, u, v).position;
            const Vec3d single = sample_at(surface.geometry, q, u, v).get_geometric_position();
            const double error = (single - limit).length() * unit;
            (classes.regular[q] != 0 ? regular : other).push_back(error);
            if (classes.regular[q] != 0)
                regular_double.push_back((twin.evaluate(q, u, v).position - limit).length() * unit);
        });
        Vec3f controls[16];
        Vec3d controls_double[16];
        surface.geometry.get_bezier_controls(q, controls);
        twin.get_controls(q, controls_double);
        for (unsigned int k = 0; k < 4; ++k) {
            if (classes.near_dart[surface.base.get_quad_indices(q)[k]] != 0) continue;
            const PatchPlace place = place_on_edge(k, 0.0);
            const Vec3d limit = oracle.evaluate(q, place.u, place.v).position;
            corners.push_back((Vec3d(controls[sds::corner_control(k)]) - limit).length() * unit);
            corners_double.push_back((controls_double[sds::corner_control(k)] - limit).length() * unit);
        }
    }
    return {summarize(regular), summarize(regular_double), summarize(corners), summarize(corners_double),
            summarize(other)};
}

double angle_tolerance(double floor, double largest_coordinate, const SurfacePoint& point) {
    constexpr double rounding = 8.0 * 0x1p-24;
    const double u = point.du.length();
    const double v = point.dv.length();
    const double sine = point.normal_direction().length() / (u * v);
    return std::max(floor, rounding * largest_coordinate * (1.0 / u + 1.0 / v) / sine * degrees);
}

NormalErrors measure_normals(const ZooMesh& cage, const BuiltSurface& surface, const OpenSubdivOracle& oracle) {
    const PatchClasses classes = classify_patches(surface.context(), find_exceptions(cage));
    const double scale = largest_coordinate(cage);
    NormalErrors errors;
    std::vector<double> interior, sharp, other;
    for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
        const bool is_interior = classes.interior[q] != 0;
        const bool is_sharp = !is_interior && classes.regular[q] != 0 && !has_turned_tangents(surface, q);
        for_grid([&](double u, double v) {
            const SurfacePoint limit = oracle.evaluate(q, u, v);
            const Vec3d direction = limit.normal_direction();
            // Parallel derivatives have no normal to compare with.
            if (!(direction.length() > 1e-6 * limit.du.length() * limit.dv.length())) return;
            const double error = angle_between(sample_at(surface.geometry, q, u, v).get_smoothing_normal(), direction);
            if (!is_interior && !is_sharp) {
                other.push_back(error);
                return;
            }
            AngleErrors& group = is_interior ? errors.interior : errors.sharp;
            (is_interior ? interior : sharp).push_back(error);
            raise(group.worst_ratio, error / angle_tolerance(normal_floor, scale, limit));
        });
    }
    errors.interior.degrees = summarize(interior);
    errors.sharp.degrees = summarize(sharp);
    errors.other = summarize(other);
    return errors;
}

TangentGaps measure_tangent_gaps(const ZooMesh& cage, const BuiltSurface& surface, const DoubleSurface& twin) {
    const SdsMeshBase::EdgesTopology& edges = surface.base.get_edges();
    const auto& indices = surface.base.get_quad_indices();
    const std::vector<unsigned int> fans = count_fans(CageAdjacency(cage), cage.positions.size());
    const auto is_bow_tie = [&fans](unsigned int v) { return v < fans.size() && fans[v] > 1; };
    const double scale = largest_coordinate(cage);
    TangentGaps gaps;
    std::vector<double> single, exact;
    const auto is_plane = [](const SurfacePoint& p) {
        return p.du.length() > 0.0 && p.dv.length() > 0.0 &&
               p.normal_direction().length() > 1e-6 * p.du.length() * p.dv.length();
    };
    for (unsigned int e = 0; e < indices.get_count(); ++e) {
        if (edges.is_sharp(e) || edges.opposite_edges[e] < e) continue;
        const unsigned int o = edges.opposite_edges[e];
        if (indices[o] != indices[sds::next_in_quad(e)] || indices[e] != indices[sds::next_in_quad(o)]) continue;
        if (is_bow_tie(indices[e]) || is_bow_tie(indices[o])) continue;
        const NetsD here = twin.get_nets(sds::quad_of(e));
        const NetsD there = twin.get_nets(sds::quad_of(o));
        for (unsigned int i = 0; i <= steps; ++i) {
            const double t = i / double{steps};
            const PatchPlace a = place_on_edge(sds::corner_of(e), t);
            const PatchPlace b = place_on_edge(sds::corner_of(o), 1.0 - t);
            const SurfacePoint pa = evaluate_nets(here, a.u, a.v);
            const SurfacePoint pb = evaluate_nets(there, b.u, b.v);
            if (!is_plane(pa) || !is_plane(pb)) {
                ++gaps.degenerate;
                continue;
            }
            exact.push_back(angle_between(pa.normal_direction(), pb.normal_direction()));
            single.push_back(
                angle_between(sample_at(surface.geometry, sds::quad_of(e), a.u, a.v).get_smoothing_normal(),
                              sample_at(surface.geometry, sds::quad_of(o), b.u, b.v).get_smoothing_normal()));
            const double tolerance =
                std::max(angle_tolerance(gap_floor, scale, pa), angle_tolerance(gap_floor, scale, pb));
            if (raise(gaps.single.worst_ratio, single.back() / tolerance)) gaps.worst_half_edge = e;
        }
    }
    gaps.single.degrees = summarize(single);
    gaps.twin = summarize(exact);
    return gaps;
}

ErrorSummary measure_derivatives(const BuiltSurface& surface, const DoubleSurface& twin) {
    // Central differences of a cubic are off by its third derivative times h^2 / 6; h balances that with rounding.
    constexpr double h = 1e-5;
    const double unit = 1.0 / surface.get_diagonal();
    std::vector<double> errors;
    for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
        if ((surface.geometry.get_tangent_infos()[q].irregular & 0xFFu) != 0) continue;
        Vec3d controls[16];
        twin.get_controls(q, controls);
        const auto position = [&](double u, double v) {
            return sds::evaluate_patch(controls, sds::CubicBasis<double>(u), sds::CubicBasis<double>(v));
        };
        for_grid([&](double u, double v) {
            const GeometrySample sample = sample_at(surface.geometry, q, u, v);
            const Vec3d du = (position(u + h, v) - position(u - h, v)) * (0.5 / h);
            const Vec3d dv = (position(u, v + h) - position(u, v - h)) * (0.5 / h);
            errors.push_back((sample.get_geometric_dpdu() - du).length() * unit);
            errors.push_back((sample.get_geometric_dpdv() - dv).length() * unit);
        });
    }
    return summarize(errors);
}

}  // namespace sds_test

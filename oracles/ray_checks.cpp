#include "oracles/ray_checks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <numbers>
#include <random>

#include "qn_sys/sys_thread.h"

namespace sds_test {

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr unsigned int none = 0xFFFFFFFF;

using Random = std::mt19937_64;

double unit(Random& random) { return std::uniform_real_distribution<double>(0.0, 1.0)(random); }

unsigned int below(Random& random, unsigned int count) {
    return std::uniform_int_distribution<unsigned int>(0, count - 1)(random);
}

Vec3d random_direction(Random& random) {
    const double z = 2.0 * unit(random) - 1.0;
    const double around = 2.0 * std::numbers::pi * unit(random);
    const double r = std::sqrt(std::max(0.0, 1.0 - z * z));
    return {r * std::cos(around), r * std::sin(around), z};
}

Vec3d random_in(const BoxTree::Box& box, Random& random) {
    Vec3d point;
    for (unsigned int axis = 0; axis < 3; ++axis)
        point[axis] = box.get_min()[axis] + unit(random) * (box.get_max()[axis] - box.get_min()[axis]);
    return point;
}

// How far rounding of the kernels' input may move a ray.
double get_nudge(const RayOracle& oracle) {
    const BoxTree::Box& box = oracle.get_bbox();
    return 1e-6 * oracle.get_diagonal() + 6e-8 * std::max(box.get_min().length(), box.get_max().length());
}

// True when the distance found is the oracle's for some ray up to two nudges beside this one, or lies between those of
// such rays.
bool holds_for_a_neighbor(const RayOracle& oracle, const GeometryRay& ray, double found, double tolerance) {
    Vec3d axis{0, 0, 0};
    axis[std::fabs(ray.direction[0]) < 0.5 * ray.direction.length() ? 0 : 1] = 1.0;
    Vec3d across = ray.direction.cross(axis);
    across *= 1.0 / across.length();
    const Vec3d second = across.cross(ray.direction) * (1.0 / ray.direction.length());
    double low = infinity, high = -infinity;
    for (const double nudge : {0.25 * get_nudge(oracle), get_nudge(oracle), 2.0 * get_nudge(oracle)})
        for (unsigned int k = 0; k < 8; ++k) {
            const double a = k * std::numbers::pi / 4.0 + 0.1;
            const Vec3d origin = ray.origin + (across * std::cos(a) + second * std::sin(a)) * nudge;
            const Crossing c = oracle.find_nearest(origin, ray.direction, ray.tnear, infinity);
            if (c.t == found || std::fabs(c.t - found) <= tolerance) return true;
            low = std::min(low, c.t);
            high = std::max(high, c.t);
        }
    return low < found && found < high;
}

// Runs body(chunk, random, rays in the chunk, worker) over all rays, chunks on all threads, and adds up the results.
template <class Result, class Body>
Result run_chunks(std::uint64_t ray_count, Body&& body) {
    constexpr std::uint64_t chunk_size = 1024;
    Result total;
    std::mutex mutex;
    sys_parallel_for(static_cast<unsigned int>((ray_count + chunk_size - 1) / chunk_size),
                     [&](unsigned int chunk, unsigned int worker) {
                         Random random(chunk);
                         const Result part = body(random, std::min(chunk_size, ray_count - chunk * chunk_size), worker);
                         const std::lock_guard lock(mutex);
                         total += part;
                     });
    return total;
}

std::vector<BoxTree::Box> patch_boxes(const SdsMesh& mesh, const CtxShader& shader, double time) {
    const CtxEval eval(shader);
    std::vector<BoxTree::Box> boxes(mesh.get_primitive_count());
    for (unsigned int i = 0; i < boxes.size(); ++i) mesh.compute_primitive_bbox_at(eval, i, time, boxes[i]);
    return boxes;
}

}  // namespace

PatchTracer::PatchTracer(const SdsMesh& mesh, const RayOracle& oracle, KernelFamily family)
    : PatchTracer(mesh, oracle, CtxShader(), 0.0) {
    m_data.kernel_family = family;
    m_data.has_motion_blur = false;
}

PatchTracer::PatchTracer(const SdsMesh& mesh, const RayOracle& oracle, const CtxShader& frame, double time)
    : m_mesh(mesh), m_tree(patch_boxes(mesh, frame, time), get_nudge(oracle)), m_shader(frame) {
    m_data.has_motion_blur = true;
    for (unsigned int i = 0; i < sys_max_worker_count(); ++i) m_threads.push_back(std::make_unique<CtxThread>());
}

void PatchTracer::trace(GeometryRay& ray, unsigned int worker) const {
    const CtxEval eval(m_shader, m_threads[worker].get());
    GeometryRaytraceCtx rays(&ray, 1, m_data);
    m_tree.trace(ray.origin, ray.direction, ray.tnear, ray.tfar, [&](unsigned int primitive) {
        m_mesh.intersect_primitive(eval, primitive, rays);
        return ray.is_finished ? -infinity : ray.tfar;
    });
}

HitAgreement& HitAgreement::operator+=(const HitAgreement& other) {
    rays += other.rays;
    hits += other.hits;
    other_primitive += other.other_primitive;
    silhouettes += other.silhouettes;
    wrong += other.wrong;
    worst_t = std::max(worst_t, other.worst_t);
    worst_uv = std::max(worst_uv, other.worst_uv);
    uv_beyond += other.uv_beyond;
    return *this;
}

HitAgreement compare_hits(const RayOracle& oracle, const TraceFunction& trace, std::uint64_t ray_count,
                          double tolerance, const FaultReport& report) {
    const double diagonal = oracle.get_diagonal();
    std::mutex mutex;
    return run_chunks<HitAgreement>(ray_count, [&](Random& random, std::uint64_t count, unsigned int worker) {
        HitAgreement result;
        for (std::uint64_t i = 0; i < count; ++i) {
            const Vec3d target = random_in(oracle.get_bbox(), random);
            GeometryRay ray;
            ray.direction = random_direction(random);
            // Not from the target itself, which lies on the surface where that fills its box's plane.
            const double distance = i % 2 == 0 ? 0.02 + 0.2 * unit(random) : 2.0 + 2.0 * unit(random);
            ray.origin = target - ray.direction * (distance * diagonal);
            const Crossing expected = oracle.find_nearest(ray.origin, ray.direction, 0.0, infinity);
            trace(ray, worker);
            ++result.rays;
            const bool is_hit = ray.hit.primitive != none;
            const double t = is_hit ? ray.hit.t : infinity;
            result.hits += is_hit ? 1 : 0;
            if (!is_hit && expected.primitive == none) continue;
            const double scale = diagonal + std::fabs(std::isfinite(t) ? t : expected.t);
            const double error = std::fabs(t - expected.t) / scale;
            if (!(error <= tolerance)) {
                if (holds_for_a_neighbor(oracle, ray, t, tolerance * scale)) {
                    ++result.silhouettes;
                } else {
                    ++result.wrong;
                    if (std::isfinite(error)) result.worst_t = std::max(result.worst_t, error);
                    if (report) {
                        const std::lock_guard lock(mutex);
                        report(ray, expected);
                    }
                }
                continue;
            }
            result.worst_t = std::max(result.worst_t, error);
            if (ray.hit.primitive != expected.primitive) {
                ++result.other_primitive;
            } else if (expected.cosine > 0.1) {
                const double uv = std::max(std::fabs(ray.hit.u - expected.u), std::fabs(ray.hit.v - expected.v));
                result.worst_uv = std::max(result.worst_uv, uv);
                result.uv_beyond += uv > 1e-4 ? 1 : 0;
            }
        }
        return result;
    });
}

namespace {

struct Candidate {
    Vec3d point;
    double clearance;
};

// Distances of the crossings along a line, sorted, double ones once.
std::vector<double> crossing_distances(const RayOracle& oracle, const Vec3d& origin, const Vec3d& direction,
                                       double near) {
    std::vector<Crossing> crossings;
    oracle.find_all(origin, direction, near, infinity, crossings);
    std::vector<double> distances;
    for (const Crossing& c : crossings) distances.push_back(c.t);
    std::sort(distances.begin(), distances.end());
    const double same = 1e-8 * oracle.get_diagonal();
    distances.erase(std::unique(distances.begin(), distances.end(), [&](double a, double b) { return b - a < same; }),
                    distances.end());
    return distances;
}

// The least distance to the surface in a few directions; 0 when not all of them cross it an odd number of times.
double get_clearance(const RayOracle& oracle, const Vec3d& point, Random& random) {
    double clearance = infinity;
    for (unsigned int i = 0; i < 30; ++i) {
        const std::vector<double> distances = crossing_distances(oracle, point, random_direction(random), 0.0);
        if (distances.size() % 2 == 0) return 0.0;
        clearance = std::min(clearance, distances.front());
    }
    return clearance;
}

}  // namespace

std::vector<Vec3d> find_inside_points(const RayOracle& oracle, unsigned int count) {
    Random random(7);
    std::vector<Candidate> candidates;
    for (unsigned int attempt = 0; attempt < 40 * count && candidates.size() < 4 * size_t{count}; ++attempt) {
        const Vec3d target = random_in(oracle.get_bbox(), random);
        const Vec3d direction = random_direction(random);
        const Vec3d origin = target - direction * (2.0 * oracle.get_diagonal());
        const std::vector<double> t = crossing_distances(oracle, origin, direction, 0.0);
        if (t.empty() || t.size() % 2 != 0) continue;
        size_t widest = 0;
        for (size_t i = 2; i < t.size(); i += 2)
            if (t[i + 1] - t[i] > t[widest + 1] - t[widest]) widest = i;
        const Vec3d point = origin + direction * (0.5 * (t[widest] + t[widest + 1]));
        const double clearance = get_clearance(oracle, point, random);
        if (clearance > 4.0 * get_nudge(oracle)) candidates.push_back({point, clearance});
    }
    if (candidates.size() < count) return {};
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate& a, const Candidate& b) { return a.clearance > b.clearance; });
    std::vector<Vec3d> points;
    for (unsigned int i = 0; i < count; ++i) points.push_back(candidates[i].point);
    return points;
}

const char* name_of(Aim aim) {
    constexpr const char* names[] = {"surface", "patch corners", "edge middles",   "cell corners",
                                     "lines",   "T-edges",       "ends of T-edges"};
    return names[static_cast<unsigned int>(aim)];
}

HoleCounts& HoleCounts::operator+=(const HoleCounts& other) {
    rays += other.rays;
    lost += other.lost;
    late += other.late;
    grazing += other.grazing;
    return *this;
}

namespace {

Vec3d pick_target(const RayOracle& oracle, const std::vector<TEdge>& t_edges, Aim aim, Random& random) {
    if (!t_edges.empty()) {
        const TEdge& edge = t_edges[below(random, static_cast<unsigned int>(t_edges.size()))];
        const double s = aim == Aim::t_ends ? 0.25 * below(random, 5) : unit(random);
        return oracle.point(edge.primitive, edge.begin[0] + s * (edge.end[0] - edge.begin[0]),
                            edge.begin[1] + s * (edge.end[1] - edge.begin[1]));
    }
    const unsigned int patch = below(random, oracle.get_patch_count());
    const unsigned int n = oracle.is_limit() ? 8 : oracle.get_cells_per_side(patch);
    const double whole[2] = {static_cast<double>(below(random, n + 1)) / n,
                             static_cast<double>(below(random, n + 1)) / n};
    const unsigned int turn = below(random, 2);
    double uv[2] = {0.0, 0.0};
    switch (aim) {
        case Aim::surface:
            uv[0] = unit(random);
            uv[1] = unit(random);
            break;
        case Aim::patch_corners:
            uv[0] = below(random, 2);
            uv[1] = below(random, 2);
            break;
        case Aim::edge_middles:
            uv[turn] = 0.5;
            uv[1 - turn] = below(random, 2);
            break;
        case Aim::cell_corners:
            uv[0] = whole[0];
            uv[1] = whole[1];
            break;
        default:
            uv[turn] = whole[turn];
            uv[1 - turn] = unit(random);
            break;
    }
    return oracle.point(patch, uv[0], uv[1]);
}

}  // namespace

HoleCounts count_holes(const RayOracle& oracle, const TraceFunction& trace, const std::vector<Vec3d>& inside_points,
                       Aim aim, double diagonals, std::uint64_t ray_count, const FaultReport& report) {
    const double slack = 1e-5 * oracle.get_diagonal() + 4.0 * get_nudge(oracle);
    const bool is_at_t_edges = aim == Aim::t_edges || aim == Aim::t_ends;
    const std::vector<TEdge> t_edges = is_at_t_edges ? oracle.find_t_edges() : std::vector<TEdge>();
    std::mutex mutex;
    return run_chunks<HoleCounts>(ray_count, [&](Random& random, std::uint64_t count, unsigned int worker) {
        HoleCounts result;
        for (std::uint64_t i = 0; i < count; ++i) {
            const Vec3d inside = inside_points[below(random, static_cast<unsigned int>(inside_points.size()))];
            const Vec3d target = pick_target(oracle, t_edges, aim, random);
            // The surface is met at t = 1 at the latest.
            GeometryRay ray;
            ray.origin = inside;
            ray.direction = target - inside;
            if (diagonals > 0.0) {
                const Vec3d outwards = ray.direction * (1.0 / ray.direction.length());
                ray.origin = inside + outwards * ((0.5 + diagonals) * oracle.get_diagonal());
                ray.direction = inside - ray.origin;
            }
            trace(ray, worker);
            ++result.rays;
            const double tolerance = slack / ray.direction.length();
            const double t = ray.hit.primitive != none ? ray.hit.t : infinity;
            if (t <= 1.0 + tolerance) continue;
            const Crossing expected = oracle.find_nearest(ray.origin, ray.direction, 0.0, infinity);
            if (t <= expected.t + tolerance && expected.primitive != none) continue;
            if (std::isfinite(t) && holds_for_a_neighbor(oracle, ray, t, tolerance)) {
                ++result.grazing;
                continue;
            }
            ++(std::isfinite(t) ? result.late : result.lost);
            if (report) {
                const std::lock_guard lock(mutex);
                report(ray, expected);
            }
        }
        return result;
    });
}

ZooMesh moved(const ZooMesh& cage, const Vec3d& center, double radius) {
    BoxTree::Box box = BoxTree::Box::empty();
    for (const Vec3f& p : cage.positions) box.grow(Vec3d(p));
    const double scale = 2.0 * radius / box.get_diagonal();
    ZooMesh out = cage;
    for (Vec3f& p : out.positions) p = Vec3f((Vec3d(p) - box.get_center()) * scale + center);
    return out;
}

}  // namespace sds_test

// Prints how rays meet the surface, mesh by mesh, as Markdown tables: flat cells and limit patches against
// double-precision oracles, and rays that slip through closed surfaces.
//
//     rays [--rays N] [--checks cells,limit,holes,far,moving,refined] [--kernels fast,reference,scene]
//          [--levels 0123456] [--depths 123456] [--verbose] [CAGE...]
//
// N rays a line of a table (100,000 by default). Depths are those of the refined surfaces, digits like levels. CAGE is
// the last part of a cage's name; levels are digits. --verbose lists the rays at fault on the standard error stream.
// Exit status 1 when there are any.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

#include "oracles/moving_holes.h"
#include "qn_sys/sys_thread.h"
#include "render/scene.h"

using namespace sds_test;

namespace {

struct Options {
    std::uint64_t rays = 100000;
    std::string checks = "cells,limit,holes,far,moving,refined";
    std::string kernels = "fast,reference,scene";
    std::string levels = "0123456";
    std::string depths = "123456";
    bool verbose = false;
    std::vector<std::string> cages;

    bool wants_level(unsigned int level) const {
        return levels.find(static_cast<char>('0' + level)) != std::string::npos;
    }
    bool wants_depth(unsigned int depth) const {
        return depths.find(static_cast<char>('0' + depth)) != std::string::npos;
    }
    bool wants_check(const char* name) const { return checks.find(name) != std::string::npos; }
};

Options read_options(int argc, char** argv) {
    Options options;
    const auto value = [&](int& i) {
        if (i + 1 == argc) throw std::runtime_error(std::string(argv[i]) + " needs a value");
        return std::string(argv[++i]);
    };
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--rays")
            options.rays = std::stoull(value(i));
        else if (argument == "--checks")
            options.checks = value(i);
        else if (argument == "--kernels")
            options.kernels = value(i);
        else if (argument == "--levels")
            options.levels = value(i);
        else if (argument == "--depths")
            options.depths = value(i);
        else if (argument == "--verbose")
            options.verbose = true;
        else if (argument.starts_with("-"))
            throw std::runtime_error("unknown option " + argument);
        else
            options.cages.push_back(argument);
    }
    if (options.cages.empty())
        options.cages = {"bishop", "car",    "pawn", "cube",  "torus", "toroidal_tet",
                         "body",   "turned", "knot", "seams", "sheet"};
    return options;
}

// Files before the procedural cages of the same name.
const ZooMesh* find_cage(const std::string& name) {
    for (const ZooMesh& cage : cages_on_disk())
        if (cage.name == name || cage.name.ends_with("/" + name)) return &cage;
    for (const ZooMesh& cage : mesh_zoo())
        if (cage.name == name) return &cage;
    return nullptr;
}

// A surface at one level with its oracle and a way to trace it.
class Subject {
public:
    Subject(const ZooMesh& cage, unsigned int level, const std::string& kernels, unsigned int depth = 0)
        : m_surface(cage, make_options(level, depth)), m_oracle(m_surface.mesh) {
        if (kernels == "scene") {
            m_scene.add(m_surface.mesh);
            m_scene.commit();
            for (unsigned int i = 0; i < sys_max_worker_count(); ++i)
                m_threads.push_back(std::make_unique<sds_render::RenderThread>(m_scene.get_shader_ctx()));
        } else {
            m_tracer.emplace(m_surface.mesh, m_oracle, kernels == "fast" ? fast_kernels : reference_kernels);
        }
    }

    const RayOracle& oracle() const { return m_oracle; }
    TraceFunction tracer() const {
        return [this](GeometryRay& ray, unsigned int worker) {
            if (m_tracer)
                m_tracer->trace(ray, worker);
            else
                m_scene.intersect(ray, *m_threads[worker]);
        };
    }

private:
    static BuiltSurface::Options make_options(unsigned int level, unsigned int depth) {
        BuiltSurface::Options options;
        options.level = level;
        options.refinement.depth = depth;
        return options;
    }

    BuiltSurface m_surface;
    RayOracle m_oracle;
    std::optional<PatchTracer> m_tracer;
    sds_render::Scene m_scene;
    std::vector<std::unique_ptr<sds_render::RenderThread>> m_threads;
};

class Report {
public:
    explicit Report(const Options& options) : m_options(options) {
        for (size_t at = 0; at < options.kernels.size();) {
            const size_t end = std::min(options.kernels.find(',', at), options.kernels.size());
            m_kernels.push_back(options.kernels.substr(at, end - at));
            at = end + 1;
        }
        for (const std::string& name : options.cages) {
            const ZooMesh* cage = find_cage(name);
            if (cage == nullptr) throw std::runtime_error("no cage named " + name);
            m_cages.push_back(cage);
        }
    }

    std::uint64_t fault_count() const { return m_faults; }

    void print_agreement(bool is_limit) {
        std::printf(is_limit ? "## Limit surface\n\nAgainst a double-precision solve on the patches; distances within "
                               "2e-6 of (diagonal + distance).\n\n"
                             : "## Flat cells\n\nAgainst brute force over the cells in double precision; distances "
                               "within 1e-5 of (diagonal + distance).\n\n");
        std::printf(
            "| cage | level | kernels | rays | hits | by a shared edge | silhouettes | wrong | worst t | worst "
            "(u, v) | (u, v) > 1e-4 |\n|---|--:|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
        for (const ZooMesh* cage : m_cages)
            for (unsigned int level = is_limit ? 0 : 1; level <= (is_limit ? 0u : 5u); ++level)
                for (const std::string& kernels : m_kernels) {
                    if (!m_options.wants_level(level)) continue;
                    const Subject subject(*cage, level, kernels);
                    const HitAgreement a =
                        compare_hits(subject.oracle(), subject.tracer(), m_options.rays, is_limit ? 2e-6 : 1e-5,
                                     get_fault_report(*cage, level, kernels));
                    std::printf("| %s | %u | %s | %zu | %zu | %zu | %zu | %zu | %.1e | %.1e | %zu |\n",
                                cage->name.c_str(), level, kernels.c_str(), a.rays, a.hits, a.other_primitive,
                                a.silhouettes, a.wrong, a.worst_t, a.worst_uv, a.uv_beyond);
                    std::fflush(stdout);
                    m_faults += a.wrong;
                }
        std::printf("\n");
    }

    void print_holes(bool is_far) {
        std::printf(is_far ? "## Holes at (148376, 1234, -223423), radius 2\n\n" : "## Holes\n\n");
        std::printf(
            "Closed cages, rays lost / late / grazing. From inside and from 1, 10 and 1000 diagonals away, aimed at "
            "random points and exactly at corners, edge middles and lines.\n\n"
            "| cage | level | kernels | rays | inside | 1 | 10 | 1000 |\n|---|--:|---|--:|--:|--:|--:|--:|\n");
        HoleCounts all;
        for (const ZooMesh* cage : m_cages) {
            if (!is_solid(*cage)) continue;
            const ZooMesh placed = is_far ? moved(*cage, {148376, 1234, -223423}, 2.0) : *cage;
            for (unsigned int level = 0; level <= 6; ++level)
                for (const std::string& kernels : m_kernels)
                    if (m_options.wants_level(level)) all += print_hole_line(placed, level, kernels);
        }
        std::printf("| all | | | %zu | %zu / %zu / %zu | | | |\n\n", all.rays, all.lost, all.late, all.grazing);
    }

    void print_moving_holes() {
        constexpr unsigned int time_count = 4;
        std::printf(
            "## Holes in moving surfaces\n\n"
            "The same aims and distances at %u times a line; rays lost / late / grazing.\n\n"
            "| cage | motion | level | rays | fast | scene |\n|---|---|--:|--:|--:|--:|\n",
            time_count);
        HoleCounts all;
        for (const ZooMesh* cage : m_cages) {
            if (!is_solid(*cage)) continue;
            for (const CageMotion motion : all_cage_motions)
                for (unsigned int level = 0; level <= 6; ++level) {
                    if (!m_options.wants_level(level)) continue;
                    const std::uint64_t per_aim = m_options.rays / (time_count * 4 * 2 * std::size(all_aims));
                    const MovingHoles holes =
                        count_moving_holes(*cage, motion, level, time_count, std::max<std::uint64_t>(1, per_aim),
                                           get_fault_report(*cage, level, name_of(motion)));
                    const HoleCounts &fast = holes.fast, &scene = holes.scene;
                    std::printf("| %s | %s | %u | %zu | %zu / %zu / %zu | %zu / %zu / %zu |\n", cage->name.c_str(),
                                name_of(motion), level, holes.total().rays, fast.lost, fast.late, fast.grazing,
                                scene.lost, scene.late, scene.grazing);
                    std::fflush(stdout);
                    all += holes.total();
                }
        }
        std::printf("| all | | | %zu | %zu / %zu / %zu | |\n\n", all.rays, all.lost, all.late, all.grazing);
        m_faults += all.lost + all.late;
    }

    void print_refined() {
        std::printf(
            "## Refined surfaces\n\n"
            "Closed cages refined to a depth. Holes: rays lost / late / grazing from inside and from 1, 10 and 1000 "
            "diagonals\naway, near the origin and, at (148376, 1234, -223423) with radius 2, far from it; T-edges, "
            "which several smaller\npatches share, and their ends are among the aims. Hits: against the "
            "double-precision oracle, wrong ones and the worst\ndistance, as a share of (diagonal + distance).\n\n"
            "| cage | depth | level | kernels | T-edges | rays | holes | far | moving | hits | wrong | worst t |\n"
            "|---|--:|--:|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
        std::uint64_t rays = 0;
        for (const ZooMesh* cage : m_cages) {
            if (!is_solid(*cage)) continue;
            for (unsigned int depth = 1; depth <= 6; ++depth)
                for (unsigned int level = 0; level <= 4; ++level)
                    for (const std::string& kernels : m_kernels)
                        if (m_options.wants_depth(depth) && m_options.wants_level(level))
                            rays += print_refined_line(*cage, depth, level, kernels);
        }
        std::printf("| all | | | | | %zu | | | | | | |\n\n", static_cast<size_t>(rays));
    }

private:
    static bool is_solid(const ZooMesh& cage) {
        return cage.is_in(closed) && !cage.is_in(nonmanifold_edge | nonmanifold_vertex);
    }

    FaultReport get_fault_report(const ZooMesh& cage, unsigned int level, const std::string& what) const {
        if (!m_options.verbose) return {};
        return [&cage, level, what](const GeometryRay& ray, const Crossing& expected) {
            std::fprintf(stderr,
                         "%s level %u %s: origin %.17g %.17g %.17g direction %.17g %.17g %.17g: patch %d (%.9g, %.9g) "
                         "t %.9g, expected %d (%.9g, %.9g) t %.9g cosine %.2g\n",
                         cage.name.c_str(), level, what.c_str(), ray.origin[0], ray.origin[1], ray.origin[2],
                         ray.direction[0], ray.direction[1], ray.direction[2], static_cast<int>(ray.hit.primitive),
                         ray.hit.u, ray.hit.v, ray.hit.t, static_cast<int>(expected.primitive), expected.u, expected.v,
                         expected.t, expected.cosine);
        };
    }

    HoleCounts print_hole_line(const ZooMesh& cage, unsigned int level, const std::string& kernels) {
        const Subject subject(cage, level, kernels);
        const std::vector<Vec3d> inside = find_inside_points(subject.oracle(), 16);
        if (inside.empty()) {
            std::printf("| %s | %u | %s | no inside | | | | |\n", cage.name.c_str(), level, kernels.c_str());
            return {};
        }
        HoleCounts line;
        std::printf("| %s | %u | %s | %zu |", cage.name.c_str(), level, kernels.c_str(), m_options.rays);
        for (const double diagonals : {0.0, 1.0, 10.0, 1000.0}) {
            HoleCounts all;
            for (const Aim aim : all_aims) {
                all += count_holes(subject.oracle(), subject.tracer(), inside, aim, diagonals,
                                   m_options.rays / (4 * std::size(all_aims)),
                                   get_fault_report(cage, level, kernels + ", aimed at " + name_of(aim)));
            }
            std::printf(" %zu / %zu / %zu |", all.lost, all.late, all.grazing);
            line += all;
        }
        m_faults += line.lost + line.late;
        std::printf("\n");
        std::fflush(stdout);
        return line;
    }

    HoleCounts count_refined_holes(const Subject& subject, std::uint64_t rays, const FaultReport& report) {
        HoleCounts all;
        const std::vector<Vec3d> inside = find_inside_points(subject.oracle(), 16);
        if (inside.empty()) return all;
        for (const double diagonals : {0.0, 1.0, 10.0, 1000.0})
            for (const Aim aim : refined_aims)
                all += count_holes(subject.oracle(), subject.tracer(), inside, aim, diagonals,
                                   std::max<std::uint64_t>(1, rays / (4 * std::size(refined_aims))), report);
        return all;
    }

    // Returns the number of rays. Surfaces in motion are traced by both ways of their own, once per level.
    std::uint64_t print_refined_line(const ZooMesh& cage, unsigned int depth, unsigned int level,
                                     const std::string& kernels) {
        const FaultReport report = get_fault_report(cage, level, kernels + ", depth " + std::to_string(depth));
        const Subject subject(cage, level, kernels, depth);
        const HoleCounts near = count_refined_holes(subject, m_options.rays, report);
        const HoleCounts far = count_refined_holes(
            Subject(moved(cage, {148376, 1234, -223423}, 2.0), level, kernels, depth), m_options.rays, report);
        HoleCounts moving;
        if (kernels == m_kernels.front())
            for (const CageMotion motion : all_cage_motions)
                moving += count_moving_holes(
                              cage, motion, level, 2,
                              std::max<std::uint64_t>(1, m_options.rays / (2 * 4 * 2 * 3 * std::size(refined_aims))),
                              report, depth)
                              .total();
        const double tolerance = level != 0 ? 1e-5 : kernels == "reference" ? 1e-4 : 2e-6;
        const HitAgreement hits =
            compare_hits(subject.oracle(), subject.tracer(), m_options.rays / 4, tolerance, report);
        const std::uint64_t rays = near.rays + far.rays + moving.rays + hits.rays;
        std::printf("| %s | %u | %u | %s | %zu | %zu | %zu / %zu / %zu | %zu / %zu / %zu | ", cage.name.c_str(), depth,
                    level, kernels.c_str(), subject.oracle().find_t_edges().size(), static_cast<size_t>(rays),
                    near.lost, near.late, near.grazing, far.lost, far.late, far.grazing);
        if (moving.rays != 0)
            std::printf("%zu / %zu / %zu |", moving.lost, moving.late, moving.grazing);
        else
            std::printf("- |");
        std::printf(" %zu | %zu | %.1e |\n", hits.hits, hits.wrong, hits.worst_t);
        std::fflush(stdout);
        // Far away the reference kernels' leaves are as large as the hits' tolerance: late is not lost.
        m_faults += hits.wrong + moving.lost + moving.late + near.lost + near.late + far.lost +
                    (kernels == "reference" ? 0 : far.late);
        return rays;
    }

    const Options& m_options;
    std::vector<const ZooMesh*> m_cages;
    std::vector<std::string> m_kernels;
    std::uint64_t m_faults = 0;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = read_options(argc, argv);
        Report report(options);
        std::printf("# Rays\n\nPrinted by `rays --rays %zu`.\n\n", static_cast<size_t>(options.rays));
        if (options.wants_check("cells")) report.print_agreement(false);
        if (options.wants_check("limit")) report.print_agreement(true);
        if (options.wants_check("holes")) report.print_holes(false);
        if (options.wants_check("far")) report.print_holes(true);
        if (options.wants_check("moving")) report.print_moving_holes();
        if (options.wants_check("refined")) report.print_refined();
        return report.fault_count() == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "rays: %s\n", error.what());
        return 2;
    }
}

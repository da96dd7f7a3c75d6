// Prints how rays meet the surface, mesh by mesh, as Markdown tables: flat cells and limit patches against
// double-precision oracles, and rays that slip through closed surfaces.
//
//     rays [--rays N] [--checks cells,limit,holes,far,moving] [--kernels fast,reference,scene] [--levels 0123456]
//          [--verbose] [CAGE...]
//
// N rays a line of a table (100,000 by default). CAGE is the last part of a cage's name; levels are digits. --verbose
// lists the rays at fault on the standard error stream. Exit status 1 when there are any.
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
    std::string checks = "cells,limit,holes,far,moving";
    std::string kernels = "fast,reference,scene";
    std::string levels = "0123456";
    bool verbose = false;
    std::vector<std::string> cages;

    bool wants_level(unsigned int level) const {
        return levels.find(static_cast<char>('0' + level)) != std::string::npos;
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
    Subject(const ZooMesh& cage, unsigned int level, const std::string& kernels)
        : m_surface(cage, make_options(level)), m_oracle(m_surface.geometry, get_splits(level)) {
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
    static BuiltSurface::Options make_options(unsigned int level) {
        BuiltSurface::Options options;
        options.level = level;
        return options;
    }
    unsigned int get_splits(unsigned int level) const {
        if (level == 0) return RayOracle::limit_surface;
        return level - (m_surface.base.get_base_tessellation_level() ? 1u : 0u);
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
        for (const ZooMesh* cage : m_cages) {
            if (!is_solid(*cage)) continue;
            const ZooMesh placed = is_far ? moved(*cage, {148376, 1234, -223423}, 2.0) : *cage;
            for (unsigned int level = 0; level <= 6; ++level)
                for (const std::string& kernels : m_kernels)
                    if (m_options.wants_level(level)) print_hole_line(placed, level, kernels);
        }
        std::printf("\n");
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

    void print_hole_line(const ZooMesh& cage, unsigned int level, const std::string& kernels) {
        const Subject subject(cage, level, kernels);
        const std::vector<Vec3d> inside = find_inside_points(subject.oracle(), 16);
        if (inside.empty()) {
            std::printf("| %s | %u | %s | no inside | | | | |\n", cage.name.c_str(), level, kernels.c_str());
            return;
        }
        std::printf("| %s | %u | %s | %zu |", cage.name.c_str(), level, kernels.c_str(), m_options.rays);
        for (const double diagonals : {0.0, 1.0, 10.0, 1000.0}) {
            HoleCounts all;
            for (const Aim aim : all_aims) {
                all += count_holes(subject.oracle(), subject.tracer(), inside, aim, diagonals,
                                   m_options.rays / (4 * std::size(all_aims)),
                                   get_fault_report(cage, level, kernels + ", aimed at " + name_of(aim)));
            }
            std::printf(" %zu / %zu / %zu |", all.lost, all.late, all.grazing);
            m_faults += all.lost + all.late;
        }
        std::printf("\n");
        std::fflush(stdout);
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
        return report.fault_count() == 0 ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "rays: %s\n", error.what());
        return 2;
    }
}

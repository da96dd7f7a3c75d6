// Rays on one thread: fixed levels against Embree's tessellation of the same density, the limit surface against its
// finest.
#include <cmath>
#include <memory>

#include "bench/support/embree_surface.h"
#include "bench/support/ray_sets.h"
#include "bench/support/session.h"

namespace sds_bench {

namespace {

struct Pairing {
    unsigned int level;  // 0: the limit surface
    float rate;
};

// Both sides' scenes of one cage at one density, ours with either kernel family.
class Match {
public:
    Match(Session& session, const HostCage& cage, const OurSurface& surface, const Pairing& pairing)
        : m_session(session),
          m_cage(cage),
          m_pairing(pairing),
          m_fast(surface.make_mesh(pairing.level)),
          m_reference(m_fast),
          m_theirs(cage, pairing.rate) {
        m_fast_scene.add(m_fast);
        m_fast_scene.commit();
        m_reference_scene.add(m_reference);
        m_reference_scene.commit();
        m_thread = std::make_unique<sds_render::RenderThread>(m_fast_scene.get_shader_ctx());
    }

    const sds_render::Scene& get_scene() const { return m_fast_scene; }

    void bench_single(const std::string& what, const RaySet& rays, std::optional<Floor> floor) {
        check(what, rays);
        time(what + ", single", rays, &trace_single, &EmbreeSurface::trace_single, floor);
    }
    void bench_packets(const std::string& what, const RaySet& rays, std::optional<Floor> floor) {
        check_packets(what, rays);
        time(what + ", packets of 8", rays, &trace_packets, &EmbreeSurface::trace_packets, floor);
    }
    void bench_occlusion(const std::string& what, const RaySet& rays) {
        time(what + ", occlusion", rays, &trace_occlusion, &EmbreeSurface::trace_occlusion, std::nullopt);
    }

private:
    using OurTrace = TraceResult (*)(const sds_render::Scene&, sds_render::RenderThread&, const RaySet&, size_t,
                                     size_t);
    using TheirTrace = TraceResult (EmbreeSurface::*)(const RaySet&, size_t, size_t) const;

    std::string get_name() const {
        return m_pairing.level == 0 ? "adaptive" : "level " + std::to_string(m_pairing.level);
    }

    void check(const std::string& what, const RaySet& rays) {
        const double diagonal = m_cage.get_diagonal();
        const std::vector<double> fast = find_distances(m_fast_scene, *m_thread, rays);
        const AnswerDifference theirs = compare_distances(fast, m_theirs.find_distances(rays), 0.01 * diagonal);
        add_check(what + " against Embree", theirs,
                  theirs.hit_share < 0.005 && theirs.median_depth < 1e-3 * diagonal && theirs.outliers < 0.02);
        // The reference family ends at a small box and takes its center, which grazing rays see far along themselves.
        const AnswerDifference reference =
            compare_distances(fast, find_distances(m_reference_scene, *m_thread, rays), 1e-4 * diagonal);
        add_check(what + ", kernel families", reference, reference.hit_share < 1e-4 && reference.outliers < 1e-3);
    }

    // Rays in packets find what they find alone.
    void check_packets(const std::string& what, const RaySet& rays) {
        const TraceResult alone = trace_single(m_fast_scene, *m_thread, rays, 0, rays.size());
        const TraceResult together = trace_packets(m_fast_scene, *m_thread, rays, 0, rays.size());
        const double hits = static_cast<double>(together.hits) - static_cast<double>(alone.hits);
        const double distance = together.distance / alone.distance - 1.0;
        m_session.report.add(
            Check{get_name() + " on " + m_cage.name + ", " + what + ", packets against single rays",
                  std::fabs(hits) <= 1e-4 * static_cast<double>(rays.size()) && std::fabs(distance) < 1e-4,
                  to_text(hits) + " more hits, distances differ by " + to_text(1e6 * distance) + " ppm"});
    }

    void add_check(const std::string& what, const AnswerDifference& difference, bool is_good) {
        m_session.report.add(Check{get_name() + " on " + m_cage.name + ", " + what, is_good,
                                   "hits differ by " + to_text(1e6 * difference.hit_share) + " ppm; depth: median " +
                                       to_text(1e6 * difference.median_depth / m_cage.get_diagonal()) +
                                       " millionths of the diagonal, " + to_text(1e6 * difference.outliers) +
                                       " ppm beyond the tolerance"});
    }

    void time(const std::string& what, const RaySet& rays, OurTrace our_trace, TheirTrace their_trace,
              std::optional<Floor> floor) {
        const auto ours = [&](const sds_render::Scene& scene) {
            return Job{[&] { keep(our_trace(scene, *m_thread, rays, 0, rays.size()).hits); }};
        };
        const Job theirs{[&] { keep((m_theirs.*their_trace)(rays, 0, rays.size()).hits); }};
        const auto times = run_interleaved({ours(m_fast_scene), ours(m_reference_scene), theirs},
                                           m_session.get_budget(0.7), Clock::thread_cpu);
        const double amount = 1e-6 * static_cast<double>(rays.size());
        const std::string opponent = "Embree " + std::to_string(static_cast<int>(m_pairing.rate));
        Row row = make_rate_row("rays", get_name() + ", " + what, m_cage.name, "Mray/s", amount, times[0], opponent,
                                times[2]);
        row.floor = floor;
        m_session.report.add(row);
        m_session.report.add(make_rate_row("rays", get_name() + ", " + what + ", reference kernels", m_cage.name,
                                           "Mray/s", amount, times[1]));
    }

    Session& m_session;
    const HostCage& m_cage;
    Pairing m_pairing;
    SdsMesh m_fast;
    ReferenceMesh m_reference;
    EmbreeSurface m_theirs;
    sds_render::Scene m_fast_scene, m_reference_scene;
    std::unique_ptr<sds_render::RenderThread> m_thread;
};

struct Floors {
    std::optional<Floor> random, primary, packets;
};

Floors get_floors(const std::string& cage, unsigned int level) {
    if (cage == "car" && level == 3) return {Floor{1.0}, Floor{0.9}, Floor{0.85}};
    if (cage == "28k" && level == 3) return {Floor{1.92}, Floor{1.4}, Floor{1.55}};
    if (cage == "car" && level == 0) return {Floor{1.5}, Floor{1.05}, std::nullopt};
    if (cage == "28k" && level == 0) return {Floor{2.0}, Floor{1.2}, std::nullopt};
    return {};
}

void bench_pairing(Session& session, const HostCage& cage, const OurSurface& surface, const Pairing& pairing) {
    Match match(session, cage, surface, pairing);
    const unsigned int side = session.is_full ? 512 : 256;
    const RaySet primary = make_primary_rays(match.get_scene(), side);
    const RaySet random = make_random_rays(match.get_scene().get_bbox(), side * side);
    const Floors floors = get_floors(cage.name, pairing.level);
    match.bench_single("primary", primary, floors.primary);
    match.bench_single("random", random, floors.random);
    match.bench_packets("primary", primary, floors.packets);
    match.bench_occlusion("random", random);
    if (session.is_full) {
        match.bench_packets("random", random, std::nullopt);
        match.bench_occlusion("primary", primary);
    }
}

// A cage that turns during the shutter, every ray at a time of its own. Ranges of rays share a time, so that packets
// have no place here.
void bench_turning(Session& session, const HostCage& still) {
    const HostCage cage = still.make_moving();
    OurSurface surface;
    surface.build(cage);
    const EmbreeSurface theirs(cage, 8.0f);
    for (const unsigned int level : {3u, 0u}) {
        const SdsMesh mesh = surface.make_mesh(level);
        sds_render::Scene scene({0.0, 1.0});
        scene.add(mesh);
        scene.commit();
        sds_render::RenderThread thread(scene.get_shader_ctx());
        const unsigned int side = session.is_full ? 384 : 192;
        const RaySet rays = make_moving_rays(make_primary_rays(scene, side));
        const auto times = run_interleaved({{[&] { keep(trace_single(scene, thread, rays, 0, rays.size()).hits); }},
                                            {[&] { keep(theirs.trace_single(rays, 0, rays.size()).hits); }}},
                                           session.get_budget(0.5), Clock::thread_cpu);
        session.report.add(make_rate_row("moving rays", level == 0 ? "adaptive, primary" : "level 3, primary",
                                         still.name, "Mray/s", 1e-6 * static_cast<double>(rays.size()), times[0],
                                         "Embree 8", times[1]));
        const AnswerDifference difference = compare_distances(find_distances(scene, thread, rays),
                                                              theirs.find_distances(rays), 0.01 * cage.get_diagonal());
        session.report.add(Check{"moving rays on " + cage.name + ", level " + std::to_string(level),
                                 difference.hit_share < 0.005 && difference.outliers < 0.02,
                                 "hits differ by " + to_text(1e6 * difference.hit_share) + " ppm"});
    }
}

}  // namespace

void bench_rays(Session& session) {
    std::vector<std::string> names{"car", "28k"};
    std::vector<Pairing> pairings{{3, 8.0f}, {0, 32.0f}};
    if (session.is_full) {
        names = {"car", "bishop", "28k", "1M"};
        pairings = {{2, 4.0f}, {3, 8.0f}, {4, 16.0f}, {5, 32.0f}, {0, 32.0f}};
    }
    for (const std::string& name : names) {
        session.for_cage("rays", name, [&](const HostCage& cage) {
            run_alone([&] {
                OurSurface surface;
                surface.build(cage);
                for (const Pairing& pairing : pairings) {
                    // Embree's grids of a million quads fit the memory of a usual machine up to rate 8.
                    if (name == "1M" && pairing.rate > 8.0f) continue;
                    bench_pairing(session, cage, surface, pairing);
                }
            });
        });
    }
}

void bench_moving_rays(Session& session) {
    if (!session.is_full && session.filter.empty()) return;
    for (const char* name : {"car", "28k"})
        session.for_cage("moving", name,
                         [&](const HostCage& cage) { run_alone([&] { bench_turning(session, cage); }); });
}

}  // namespace sds_bench

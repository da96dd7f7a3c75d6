// Two threads against one, by the clock on the wall. Other processes on the machine show here, so that the fastest of
// the rounds counts.
#include <memory>

#include "bench/support/counters.h"
#include "bench/support/ray_sets.h"
#include "bench/support/session.h"

namespace sds_bench {

namespace {

constexpr unsigned int thread_count = 2;

void add_row(Session& session, const std::string& work, const std::string& cage, const std::string& unit, double amount,
             const std::vector<Timings>& times, double floor) {
    session.report.add(Row{"threads", work + ", two threads against one", cage, unit, amount / times[1].fastest(),
                           times[1].spread(), "one thread", amount / times[0].fastest(),
                           times[0].fastest() / times[1].fastest(), Floor{floor}});
}

void bench_threaded_build(Session& session, const HostCage& cage) {
    std::unique_ptr<OurSurface> surface;
    std::vector<std::unique_ptr<SysThreadArena>> arenas;
    std::vector<Job> jobs;
    for (const unsigned int count : {1u, thread_count}) {
        arenas.push_back(std::make_unique<SysThreadArena>(count));
        jobs.push_back({[&, arena = arenas.back().get()] {
                            arena->execute([&] {
                                surface = std::make_unique<OurSurface>();
                                surface->build(cage);
                            });
                        },
                        [&] { surface.reset(); }});
    }
    give_back_freed_memory();  // of making the cage
    const auto times = run_interleaved(jobs, session.get_budget(4.0), Clock::wall);
    add_row(session, "build", cage.name, "Mfaces/s", 1e-6 * cage.get_polygon_count(), times, 1.85);
}

void bench_threaded_rays(Session& session, const HostCage& cage, unsigned int level) {
    OurSurface surface;
    surface.build(cage);
    const SdsMesh mesh = surface.make_mesh(level);
    sds_render::Scene scene;
    scene.add(mesh);
    scene.commit();
    const RaySet rays = make_random_rays(scene.get_bbox(), session.is_full ? 400000 : 150000);
    constexpr size_t chunk = 2048;
    const auto chunks = static_cast<unsigned int>((rays.size() + chunk - 1) / chunk);
    std::vector<std::unique_ptr<SysThreadArena>> arenas;
    std::vector<std::unique_ptr<sds_render::RenderThread>> threads;
    std::vector<Job> jobs;
    for (const unsigned int count : {1u, thread_count}) {
        arenas.push_back(std::make_unique<SysThreadArena>(count));
        arenas.back()->execute([&] {
            while (threads.size() < sys_max_worker_count())
                threads.push_back(std::make_unique<sds_render::RenderThread>(scene.get_shader_ctx()));
        });
        jobs.push_back({[&, arena = arenas.back().get()] {
            arena->execute([&] {
                sys_parallel_for(chunks, [&](unsigned int i, unsigned int worker) {
                    const size_t begin = i * chunk;
                    keep(trace_single(scene, *threads[worker], rays, begin, std::min(begin + chunk, rays.size())).hits);
                });
            });
        }});
    }
    const auto times = run_interleaved(jobs, session.get_budget(1.5), Clock::wall);
    add_row(session, level == 0 ? "adaptive, random" : "level " + std::to_string(level) + ", random", cage.name,
            "Mray/s", 1e-6 * static_cast<double>(rays.size()), times, 1.9);
}

}  // namespace

void bench_threads(Session& session) {
    session.for_cage("threads", "1M", [&](const HostCage& cage) { bench_threaded_build(session, cage); });
    session.for_cage("threads", "28k", [&](const HostCage& cage) {
        for (const unsigned int level : {3u, 0u}) bench_threaded_rays(session, cage, level);
    });
}

}  // namespace sds_bench

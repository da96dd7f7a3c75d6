// Building a surface on one thread: faces per second beside OpenSubdiv, with a hierarchy beside Embree, new positions
// on a fixed topology, and where our own time goes.
#include <sys/resource.h>

#include <algorithm>
#include <memory>
#include <random>

#include "bench/support/embree_surface.h"
#include "bench/support/session.h"
#include "bench/support/stage_times.h"
#include "qn_core/core_memory.h"
#include "render/scene.h"

namespace sds_bench {

namespace {

// Our limit positions against OpenSubdiv's: most places are regular and agree closely, the rest within a few per cent.
void check_positions(Session& session, const HostCage& cage, const OurSurface& ours, TheirSurface& theirs) {
    theirs.make_map();
    std::mt19937 random(7);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<double> errors;
    const double diagonal = cage.get_diagonal();
    for (unsigned int i = 0; i < 20000; ++i) {
        const unsigned int quad = static_cast<unsigned int>(random()) % ours.base.get_primitive_count();
        const float u = unit(random), v = unit(random);
        GeometrySample sample;
        const CtxShader shader;
        ours.geometry.compute_fragment_sample(CtxEval(shader), {quad, u, v, 0.0, 0.0}, sample);
        const Vec3d difference = sample.get_geometric_position() - Vec3d(theirs.evaluate(quad, u, v).position);
        errors.push_back(difference.length() / diagonal);
    }
    const double worst = *std::max_element(errors.begin(), errors.end());
    const double median = median_of(errors);
    session.report.add(Check{
        "limit positions on " + cage.name + " against OpenSubdiv", median < 1e-5 && worst < 0.03,
        "median " + to_text(1e6 * median) + " and worst " + to_text(1e6 * worst) + " millionths of the diagonal"});
}

void add_stage_table(Session& session, const HostCage& cage) {
    std::vector<std::pair<std::string, double>> sums;
    constexpr unsigned int rounds = 5;
    double total = 0.0;
    for (unsigned int round = 0; round < rounds; ++round) {
        StageTimes stages;
        OurSurface surface;
        const double begin = get_seconds(Clock::thread_cpu);
        surface.build(cage, &stages);
        total += get_seconds(Clock::thread_cpu) - begin;
        if (sums.empty()) sums.resize(stages.get_stages().size());
        for (size_t i = 0; i < sums.size(); ++i) {
            sums[i].first = stages.get_stages()[i].first;
            sums[i].second += stages.get_stages()[i].second;
        }
    }
    const double scale = 1e9 / rounds / cage.get_polygon_count();
    Table table{"Build of " + cage.name + " by stage, ns per face", {"stage", "ns", "share"}, {}};
    for (const auto& [label, seconds] : sums)
        table.rows.push_back({label, to_text(scale * seconds), to_text(100 * seconds / total) + " %"});
    table.rows.push_back({"whole build, with what no task covers", to_text(scale * total), "100 %"});
    session.report.add(table);
}

void bench_against_opensubdiv(Session& session, const HostCage& cage, std::optional<Floor> floor) {
    const OpenSubdivCage their_cage = make_opensubdiv_cage(cage);
    std::unique_ptr<OurSurface> ours;
    std::unique_ptr<TheirSurface> theirs;
    const Job our_job{[&] {
                          ours = std::make_unique<OurSurface>();
                          ours->build(cage);
                      },
                      [&] { ours.reset(); }};
    const Job their_job{[&] { theirs = std::make_unique<TheirSurface>(their_cage); }, [&] { theirs.reset(); }};
    const SmallPages pages;
    const double amount = 1e-6 * cage.get_polygon_count();
    auto times = run_interleaved({our_job, their_job}, session.get_budget(2.0), Clock::thread_cpu);
    Row row = make_rate_row("build", "topology, patches, positions", cage.name, "Mfaces/s", amount, times[0],
                            "OpenSubdiv", times[1]);
    our_job.run();
    row.bytes = ours->get_build_bytes(cage) / cage.get_polygon_count();
    row.floor = floor;
    session.report.add(row);
    ours.reset();

    // As the first build of a process finds it.
    const Job fresh_job{our_job.run, [&] {
                            ours.reset();
                            CoreMemory::release_kept();
                        }};
    times = run_interleaved({fresh_job, their_job}, session.get_budget(1.0), Clock::thread_cpu);
    Row fresh = make_rate_row("build", "the same, nothing kept from builds before", cage.name, "Mfaces/s", amount,
                              times[0], "OpenSubdiv", times[1]);
    fresh.bytes = row.bytes;
    session.report.add(fresh);

    our_job.run();
    their_job.run();
    check_positions(session, cage, *ours, *theirs);
    theirs->make_stencils();
    const auto updates =
        run_interleaved({{[&] {
                             ours->geometry.set(ours->base, cage.positions, cage.motion,
                                                SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
                         }},
                         {[&] { theirs->update_positions(); }}},
                        session.get_budget(0.5), Clock::thread_cpu);
    row = make_rate_row("build", "new positions, same topology", cage.name, "Mfaces/s", amount, updates[0],
                        "OpenSubdiv", updates[1]);
    row.bytes = ours->get_update_bytes() / cage.get_polygon_count();
    session.report.add(row);
}

void bench_against_embree(Session& session, const HostCage& cage) {
    struct Ours {
        OurSurface surface;
        SdsMesh mesh;
        sds_render::Scene scene;
    };
    std::unique_ptr<Ours> ours;
    std::unique_ptr<EmbreeSurface> theirs;
    const Job our_job{[&] {
                          ours = std::make_unique<Ours>();
                          ours->surface.build(cage);
                          ours->mesh = ours->surface.make_mesh(3);
                          ours->scene.add(ours->mesh);
                          ours->scene.commit();
                      },
                      [&] { ours.reset(); }};
    const Job their_job{[&] { theirs = std::make_unique<EmbreeSurface>(cage, 8.0f); }, [&] { theirs.reset(); }};
    const SmallPages pages;
    // Its builders may leave the calling thread, so that the whole process counts.
    const auto times = run_interleaved({our_job, their_job}, session.get_budget(2.0), Clock::process_cpu);
    Row row = make_rate_row("build", "with hierarchy, against rate 8", cage.name, "Mfaces/s",
                            1e-6 * cage.get_polygon_count(), times[0], "Embree", times[1]);
    row.floor = Floor{cage.name == "28k" ? 6.0 : 5.0};
    session.report.add(row);
}

std::optional<Floor> get_build_floor(const std::string& cage) {
    if (cage == "car") return Floor{12.0};
    if (cage == "bishop") return Floor{3.5};
    if (cage == "28k") return Floor{4.5};
    if (cage == "100k") return Floor{4.0};
    return std::nullopt;
}

// The bytes that the arrays of a large surface take, and the process with them at most.
void add_size_row(Session& session, const HostCage& cage) {
    OurSurface surface;
    surface.build(cage);
    const double quads = surface.base.get_primitive_count();
    Row row{"scaling", "arrays, no maps; ratio is the bytes", cage.name, "B/quad",
            static_cast<double>(surface.base.get_memory_size() + surface.geometry.get_memory_size()) / quads};
    row.ratio = row.ours;
    row.floor = Floor{210.0, true};
    session.report.add(row);
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    session.report.add(Row{"scaling", "the process at most, with the cage", cage.name, "B/quad",
                           1024.0 * static_cast<double>(usage.ru_maxrss) / quads});
}

// Seconds per million quads from small to large: the algorithm is linear, what grows is the share of cache misses.
void measure_scaling(Session& session) {
    struct Point {
        std::string name;
        double seconds;  // per million quads
    };
    std::vector<Point> points;
    std::vector<std::string> names{"10k", "100k"};
    if (session.is_full)
        names.insert(names.end(), {"1M", "10M"});
    else
        names.push_back("1M");
    for (const std::string& name : names) {
        const HostCage* cage = session.cages.find(name);
        if (cage == nullptr) continue;
        Budget budget = session.get_budget(1.0);
        budget.min_rounds = 2;
        run_alone([&] {
            std::unique_ptr<OurSurface> surface;
            const auto times = run_interleaved({{[&] {
                                                     surface = std::make_unique<OurSurface>();
                                                     surface->build(*cage);
                                                 },
                                                 [&] {
                                                     surface.reset();
                                                     give_back_freed_memory();
                                                 }}},
                                               budget, Clock::thread_cpu);
            points.push_back({name, 1e6 * times[0].median() / cage->get_polygon_count()});
            Row row{"scaling",        "build, per million quads; ratio to 100k", name, "s", points.back().seconds,
                    times[0].spread()};
            const auto reference =
                std::find_if(points.begin(), points.end(), [](const Point& p) { return p.name == "100k"; });
            if (reference != points.end() && name != "100k") {
                row.ratio = points.back().seconds / reference->seconds;
                row.floor = Floor{1.3, true};
            }
            session.report.add(row);
            if (name == "10M") add_size_row(session, *cage);
        });
        if (name == "10M") session.cages.drop(name);
    }
}

}  // namespace

void bench_build(Session& session) {
    for (const char* name : {"car", "bishop", "28k", "100k", "figure"})
        session.for_cage("build", name, [&](const HostCage& cage) {
            run_alone([&] {
                bench_against_opensubdiv(session, cage, get_build_floor(name));
                add_stage_table(session, cage);
            });
        });
    for (const char* name : {"car", "28k", "figure"})
        session.for_cage("build", name,
                         [&](const HostCage& cage) { run_alone([&] { bench_against_embree(session, cage); }); });
}

void bench_scaling(Session& session) {
    if (session.wants("scaling")) session.run_apart([&] { measure_scaling(session); });
}

}  // namespace sds_bench

// Refined surfaces: built beside OpenSubdiv's adaptive refinement and Embree's tessellation, bytes that patches take,
// and rays beside the same cage that is not refined.
#include <memory>

#include "bench/support/embree_surface.h"
#include "bench/support/ray_sets.h"
#include "bench/support/session.h"
#include "render/scene.h"

namespace sds_bench {

namespace {

struct Scene {
    OurSurface surface;
    SdsMesh mesh;
    sds_render::Scene scene;

    Scene(const HostCage& cage, unsigned int depth, unsigned int level) {
        surface.build(cage, depth);
        mesh = surface.make_mesh(level);
        scene.add(mesh);
        scene.commit();
    }
};

std::string at_depth(unsigned int depth) { return "depth " + std::to_string(depth); }

void bench_against_opensubdiv(Session& session, const HostCage& cage, unsigned int depth, unsigned int isolation,
                              std::optional<Floor> floor) {
    const OpenSubdivCage their_cage = make_opensubdiv_cage(cage);
    TheirSurface::Options options;
    options.level = isolation;
    std::unique_ptr<OurSurface> ours;
    std::unique_ptr<TheirSurface> theirs;
    const auto times = run_interleaved(
        {{[&] {
              ours = std::make_unique<OurSurface>();
              ours->build(cage, depth);
          },
          [&] { ours.reset(); }},
         {[&] { theirs = std::make_unique<TheirSurface>(their_cage, options); }, [&] { theirs.reset(); }}},
        session.get_budget(2.0), Clock::thread_cpu);
    Row row =
        make_rate_row("refined", at_depth(depth) + ", topology, patches, positions", cage.name, "Mfaces/s",
                      1e-6 * cage.get_polygon_count(), times[0], "OpenSubdiv " + std::to_string(isolation), times[1]);
    row.floor = floor;
    session.report.add(row);
}

void bench_against_embree(Session& session, const HostCage& cage, unsigned int depth, std::optional<Floor> floor) {
    std::unique_ptr<OurSurface> ours;
    std::unique_ptr<Scene> scene;
    std::unique_ptr<EmbreeSurface> theirs;
    // Its builders may leave the calling thread, so that the whole process counts.
    const auto times =
        run_interleaved({{[&] {
                              ours = std::make_unique<OurSurface>();
                              ours->build(cage, depth);
                          },
                          [&] { ours.reset(); }},
                         {[&] { scene = std::make_unique<Scene>(cage, depth, 3); }, [&] { scene.reset(); }},
                         {[&] { theirs = std::make_unique<EmbreeSurface>(cage, 8.0f); }, [&] { theirs.reset(); }}},
                        session.get_budget(2.0), Clock::process_cpu);
    const double faces = 1e-6 * cage.get_polygon_count();
    Row row = make_rate_row("refined", at_depth(depth) + ", without hierarchy, against rate 8", cage.name, "Mfaces/s",
                            faces, times[0], "Embree", times[2]);
    row.floor = floor;
    session.report.add(row);
    session.report.add(make_rate_row("refined", at_depth(depth) + ", with hierarchy, against rate 8", cage.name,
                                     "Mfaces/s", faces, times[1], "Embree", times[2]));
}

// What patches, their places and nets take; and all that base and geometry hold.
void bench_bytes(Session& session, const HostCage& cage, unsigned int depth, bool is_by_patch, double floor) {
    OurSurface surface;
    surface.build(cage, depth);
    const SdsMeshGeometry& geometry = surface.geometry;
    const auto patches = static_cast<double>(geometry.get_patch_count());
    const double count = is_by_patch ? patches : cage.get_polygon_count();
    const std::string unit = is_by_patch ? "B/patch" : "B/face";
    const auto vertex_bytes =
        static_cast<double>(geometry.get_vertices().get_count()) * sizeof(Vec3f) +
        static_cast<double>(geometry.get_vertex_infos().get_count()) * sizeof(SdsMeshBase::VertexInfo);
    Row row{"refined", at_depth(depth) + ", arrays of the patches; ratio is the bytes", cage.name, unit,
            (static_cast<double>(geometry.get_memory_size()) - vertex_bytes) / count};
    row.ratio = row.ours;
    row.floor = Floor{floor, true};
    session.report.add(row);
    const auto all = static_cast<double>(surface.base.get_memory_size() + geometry.get_memory_size());
    session.report.add(Row{"refined", at_depth(depth) + ", base and geometry", cage.name, unit, all / count});
}

void bench_rays_against_depth_0(Session& session, const HostCage& cage, unsigned int depth) {
    give_back_freed_memory();  // of the builds
    for (const unsigned int level : {0u, 3u}) {
        const Scene refined(cage, depth, level), plain(cage, 0, level);
        sds_render::RenderThread refined_thread(refined.scene.get_shader_ctx());
        sds_render::RenderThread plain_thread(plain.scene.get_shader_ctx());
        const unsigned int side = session.is_full ? 512 : 256;
        for (const bool is_primary : {true, false}) {
            const RaySet rays = is_primary ? make_primary_rays(plain.scene, side)
                                           : make_random_rays(plain.scene.get_bbox(), side * side);
            const auto trace = [&rays](const Scene& scene, sds_render::RenderThread& thread) {
                keep(trace_single(scene.scene, thread, rays, 0, rays.size()).hits);
            };
            const auto times =
                run_interleaved({{[&] { trace(refined, refined_thread); }}, {[&] { trace(plain, plain_thread); }}},
                                session.get_budget(0.7), Clock::thread_cpu);
            Row row = make_rate_row("refined",
                                    at_depth(depth) + (level == 0 ? ", adaptive, " : ", level 3, ") +
                                        (is_primary ? "primary" : "random") + " rays",
                                    cage.name, "Mray/s", 1e-6 * static_cast<double>(rays.size()), times[0], "depth 0",
                                    times[1]);
            row.floor = Floor{0.9};
            session.report.add(row);
            const AnswerDifference difference =
                compare_distances(find_distances(refined.scene, refined_thread, rays),
                                  find_distances(plain.scene, plain_thread, rays), 0.05 * cage.get_diagonal());
            session.report.add(Check{row.work + " on " + cage.name + " against depth 0",
                                     // A surface of six patches is half a per cent of its size off at depth 0.
                                     difference.hit_share < 0.05 && difference.outliers < 0.02,
                                     "hits differ by " + to_text(1e6 * difference.hit_share) + " ppm, " +
                                         to_text(1e6 * difference.outliers) +
                                         " ppm beyond a twentieth of the diagonal"});
        }
    }
}

}  // namespace

void bench_refined(Session& session) {
    const auto run = [&session](const char* name, const auto& work) {
        session.for_cage("refined", name, [&](const HostCage& cage) { run_alone([&] { work(cage); }); });
    };
    run("car", [&](const HostCage& car) { bench_against_opensubdiv(session, car, 2, 2, Floor{3.0}); });
    run("car", [&](const HostCage& car) { bench_against_embree(session, car, 2, Floor{20.0}); });
    run("car", [&](const HostCage& car) {
        bench_bytes(session, car, 2, true, 330.0);
        bench_bytes(session, car.make_distant(), 2, true, 600.0);
    });
    // Quads of a cage with other polygons are at depth 0 after the first step.
    run("28k", [&](const HostCage& quads) {
        bench_against_opensubdiv(session, quads.make_mixed(), 1, 1, Floor{5.0});
        bench_bytes(session, quads.make_mixed(), 1, false, 300.0);
    });
    run("28k",
        [&](const HostCage& quads) { bench_against_opensubdiv(session, quads.make_mixed(), 1, 2, std::nullopt); });
    for (const char* name : {"car", "cube", "knot"})
        run(name, [&](const HostCage& cage) { bench_rays_against_depth_0(session, cage, 2); });
}

}  // namespace sds_bench

// A frame of an animation: new positions on a fixed topology, boxes, and a hierarchy that follows, beside Embree's
// buffer update and commit, and beside a full build of ours.
#include <memory>

#include "bench/support/embree_surface.h"
#include "bench/support/session.h"
#include "render/scene.h"

namespace sds_bench {

namespace {

// A surface in a scene.
struct Shot {
    OurSurface surface;
    SdsMesh mesh;
    sds_render::Scene scene;

    Shot(const HostCage& cage, sds_render::HierarchyUse use) {
        surface.build(cage);
        mesh = surface.make_mesh(3);
        scene.add(mesh);
        scene.commit(use);
    }
    void update(const HostCage& cage) {
        surface.geometry.set(surface.base, cage.positions, cage.motion,
                             SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
        scene.update();
    }
};

// The cage in another pose: turned by its motion vectors.
HostCage make_pose(const HostCage& cage) {
    HostCage pose = cage;
    const HostCage moving = cage.make_moving();
    for (size_t i = 0; i < pose.positions.get_count(); ++i) pose.positions[i] += moving.motion[i];
    return pose;
}

void check_hits(Session& session, const HostCage& cage, const Shot& followed) {
    // Built for the same use: the hierarchy of a still surface has kernels of its own, which round at rims.
    const Shot fresh(cage, sds_render::HierarchyUse::refitted);
    const RaySet rays = make_random_rays(fresh.scene.get_bbox(), 20000);
    sds_render::RenderThread thread(fresh.scene.get_shader_ctx());
    const TraceResult expected = trace_single(fresh.scene, thread, rays, 0, rays.size());
    const TraceResult found = trace_single(followed.scene, thread, rays, 0, rays.size());
    session.report.add(Check{"hits on " + cage.name + " after a frame, beside a new build",
                             found.hits == expected.hits && found.distance == expected.distance,
                             std::to_string(found.hits) + " hits, to the bit"});
}

void bench_frames(Session& session, const HostCage& cage) {
    const HostCage poses[2] = {cage, make_pose(cage)};
    const SmallPages pages;
    Shot followed(cage, sds_render::HierarchyUse::refitted);
    EmbreeSurface theirs(cage, 8.0f);
    std::unique_ptr<Shot> built;
    unsigned int frame = 0, their_frame = 0;
    // Its builders may leave the calling thread, so that the whole process counts.
    const auto times = run_interleaved(
        {{[&] { followed.update(poses[++frame % 2]); }},
         {[&] { built = std::make_unique<Shot>(cage, sds_render::HierarchyUse::still); }, [&] { built.reset(); }},
         {[&] { theirs.set_positions(poses[++their_frame % 2].positions); }}},
        session.get_budget(1.5), Clock::process_cpu);
    const double amount = 1e-6 * cage.get_polygon_count();
    const double bytes = followed.surface.get_update_bytes() / cage.get_polygon_count();
    Row row = make_rate_row("animation", "new positions and hierarchy, against rate 8", cage.name, "Mfaces/s", amount,
                            times[0], "Embree", times[2]);
    row.bytes = bytes;
    row.floor = Floor{10.0};
    session.report.add(row);
    row = make_rate_row("animation", "new positions and hierarchy, against a full build", cage.name, "Mfaces/s", amount,
                        times[0], "full build", times[1]);
    row.bytes = bytes;
    row.floor = Floor{2.5};
    session.report.add(row);
    check_hits(session, poses[frame % 2], followed);
}

}  // namespace

void bench_animation(Session& session) {
    for (const char* name : {"car", "bishop", "28k", "figure"})
        session.for_cage("animation", name,
                         [&](const HostCage& cage) { run_alone([&] { bench_frames(session, cage); }); });
}

}  // namespace sds_bench

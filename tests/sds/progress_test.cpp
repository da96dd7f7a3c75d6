// What every build tells a progress bar, call by call, against progress.txt beside this file.
#include <gtest/gtest.h>

#include <cstdio>

#include "qn_sys/sys_thread.h"
#include "support/recorders.h"
#include "support/scratch_folder.h"
#include "surface_checks.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;

// A line for each task: label and weight below those around it, steps announced, made and the last one's number,
// increments, where they count, and their sum.
std::string describe(const RecordingProgress& bar, bool counts_increments = true) {
    std::string text = "values";
    char line[200];
    for (const float value : bar.values) text += " " + std::to_string(static_cast<int>(value));
    for (const RecordingProgress::Task& task : bar.tasks) {
        std::snprintf(line, sizeof line, "\n%*s%s %g", static_cast<int>(2 * task.depth), "", task.label.c_str(),
                      static_cast<double>(task.weight));
        text += line;
        if (task.step_count + task.steps != 0)
            text += " steps " + std::to_string(task.step_count) + " " + std::to_string(task.steps) + " " +
                    std::to_string(task.last_step);
        if (task.increments == 0) continue;
        std::snprintf(line, sizeof line, " increments %u %.4g", counts_increments ? task.increments.load() : 0,
                      task.shares.load());
        text += line;
    }
    EXPECT_EQ(bar.open, 0u);
    return text + "\n\n";
}

TEST(Progress, IsToldAsKept) {
    const ZooMesh torus = make_torus(20, 10);
    const struct {
        const char* name;
        const ZooMesh& cage;
        Mode mode;
        bool moves;
        unsigned int threads;
        unsigned int depth = 0;
    } cases[] = {
        {"quads", zoo_mesh("cube_uv_islands"), Mode::corners_fixed, false, 1},
        {"polygons that move", zoo_mesh("prism7_uvs"), Mode::all_smoothed, true, 1},
        {"linear", zoo_mesh("tetrahedron"), Mode::all_fixed, true, 1},
        {"linear quads", zoo_mesh("lone_quad"), Mode::all_fixed, false, 8},
        {"unknown mode", zoo_mesh("lone_triangle"), Mode(17), false, 8},
        {"one thread", torus, Mode::corners_fixed, false, 1},
        {"four threads", torus, Mode::corners_fixed, true, 4},
        {"refined", zoo_mesh("prism7_uvs"), Mode::corners_fixed, false, 1, 2},
        {"refined that moves", zoo_mesh("prism7_uvs"), Mode::corners_fixed, true, 1, 2},
        {"nothing", ZooMesh(), Mode::corners_fixed, false, 1},
    };
    std::string found;
    for (const auto& each : cases)
        SysThreadArena(each.threads).execute([&] {
            RecordingProgress bar, first, again;
            BuiltSurface::Options options{.mode = each.mode, .progress = &bar};
            options.refinement.depth = each.depth;
            if (each.moves) options.motion_vectors = each.cage.positions;
            const BuiltSurface surface(each.cage, options);
            found += std::string("# ") + each.name + "\n" + describe(bar);
            // What a second build finds done is told as what the first one does.
            SdsMeshGeometry geometry;
            for (RecordingProgress* twice : {&first, &again})
                geometry.set(surface.base, to_core_array(each.cage.positions), {}, each.mode, twice);
            EXPECT_EQ(describe(again, false), describe(first, false)) << each.name;
        });
    for (const char* name : {"cube_uv_islands", "prism7_uvs"})
        for (const bool is_indexed : {false, true}) {
            const ZooMesh& cage = zoo_mesh(name);
            const BuiltSurface surface(cage);
            const CoreArray<unsigned int> indices = to_core_array(cage.indices), none;
            const GeometryUvMap uv{"uv", to_core_array(cage.uv_points), to_core_array(cage.uv_indices)};
            const CoreArray<GMathVec4<unsigned char>> colors(static_cast<unsigned int>(cage.positions.size()));
            RecordingProgress bar;
            SdsMeshMaps().set(surface.base, to_core_array(cage.counts), CoreArray<GeometryUvMap>(2, uv),
                              CoreArray<GeometryColorMap>(1, {"paint", colors, is_indexed ? indices : none}),
                              SdsMeshMaps::InterpolationMode::corners_fixed, &bar);
            found += std::string("# maps of ") + name + (is_indexed ? ", indexed\n" : "\n") + describe(bar);
        }
    EXPECT_EQ(found, ScratchFolder::read(QN_SOURCE_DIR "/tests/sds/progress.txt"));
}

}  // namespace

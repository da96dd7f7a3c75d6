// Exports against each other and against plain arithmetic on the patches.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "exported_patches.h"
#include "io/obj/read_obj.h"
#include "io/obj/write_obj.h"

namespace sds_cli {
namespace {

// A tessellation, after its corners and the samples of the same places were compared with the patches.
ControlCage export_all(const ScratchFolder& folder, const std::string& mesh, std::size_t quads, const char* level,
                       std::size_t cells) {
    const ExportedPatches patches(folder, mesh, {"--isolation", "0"});
    EXPECT_EQ(patches.count(), quads);
    EXPECT_SUCCESS(
        run_sds(folder, {"export", mesh, "--tessellation", folder.path("t.obj"), "--level", level, "--samples",
                         std::to_string(cells), folder.path("s.npy"), "--isolation", "0", "--quiet"}));
    const std::size_t side = cells + 1;
    const std::vector<double> samples = read_doubles(folder.path("s.npy"), {quads, side, side, 15});
    for (std::size_t i = 0; i < samples.size() / 15; ++i)
        patches.expect_sample(i / (side * side), static_cast<double>(i % side) / static_cast<double>(cells),
                              static_cast<double>(i / side % side) / static_cast<double>(cells), &samples[15 * i], 0);
    // Faces come quad by quad and row by row: each corner is the sample of the same place.
    const ControlCage cage = read_obj(folder.path("t.obj")).cage.value();
    EXPECT_EQ(cage.get_polygon_count(), quads * cells * cells);
    for (std::size_t face = 0; face < cage.get_polygon_count(); ++face) {
        const std::size_t q = face / (cells * cells), j = face / cells % cells, i = face % cells;
        const std::size_t places[4] = {j * side + i, j * side + i + 1, (j + 1) * side + i + 1, (j + 1) * side + i};
        for (std::size_t k = 0; k < 4; ++k)
            for (std::size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(
                    static_cast<double>(cage.positions[3 * std::size_t{cage.polygon_indices[4 * face + k]} + c]),
                    samples[(q * side * side + places[k]) * 15 + c], 1e-6);
    }
    return cage;
}

std::size_t edge_count(const ControlCage& cage) {
    std::set<std::pair<std::uint32_t, std::uint32_t>> edges;
    for (std::size_t face = 0; face < cage.get_polygon_count(); ++face)
        for (std::size_t k = 0; k < 4; ++k) {
            const std::uint32_t a = cage.polygon_indices[4 * face + k],
                                b = cage.polygon_indices[4 * face + (k + 1) % 4];
            edges.insert(std::minmax(a, b));
        }
    return edges.size();
}

using Export = InFolder;

TEST_F(Export, PatchesSamplesAndCellsAgree) {
    // Welded: a closed surface of 6 x 64 quads is a sphere, V - E + F = 2 with two faces on every edge.
    const ControlCage closed = export_all(folder, cube, 6, "3", 8);
    EXPECT_EQ(edge_count(closed), 6u * 64 * 2);
    EXPECT_EQ(closed.get_vertex_count(), 6u * 64 + 2);
    // The step counts as a level. A disc: V - E + F = 1.
    const ControlCage stepped = export_all(folder, sheet, 15, "3", 4);
    EXPECT_EQ(stepped.get_vertex_count() + stepped.get_polygon_count(), edge_count(stepped) + 1);
    // Two quads that run along their edge the same way have patches that part there: they share its ends only.
    const std::string mesh =
        folder.write("a.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0.5\nv 0 1 0\nv 1 1.5 0\nv 2 1 0.2\nf 1 2 5 4\nf 2 5 6 3\n");
    EXPECT_EQ(export_all(folder, mesh, 2, "2", 4).get_vertex_count(), 2u * 25 - 2);
}

TEST_F(Export, UvsFollowTheMapAndUnmappedQuadsAreNaN) {
    const std::string mesh = folder.write(
        "a.obj", std::string(sheet_obj) + "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nv 4 0 0\nv 4 1 0\nf 3/1 10/2 11/3 7/4\n");
    const SdsRun run = run_sds(folder, {"export", mesh, "--uv", "2", folder.path("uv.npy"), "--uv-interpolation",
                                        "all_fixed", "--tessellation", folder.path("t.obj"), "--level", "2"});
    EXPECT_SUCCESS(run);
    const std::size_t quads = 19;
    const std::vector<double> uvs = read_doubles(folder.path("uv.npy"), {quads, 3, 3, 9});
    for (std::size_t i = 0; i < 15u * 81; ++i) ASSERT_TRUE(std::isnan(uvs[i])) << i;
    // A linear map of a square: its corner quads are the square's quarters, d/du and d/dv half of its sides.
    const Vec3 corners[4] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    for (std::size_t k = 0; k < 4; ++k) {
        const double* row = &uvs[(15 + k) * 81];
        const Vec3 &corner = corners[k], &next = corners[(k + 1) % 4], &last = corners[(k + 3) % 4];
        for (unsigned int c = 0; c < 3; ++c) {
            EXPECT_NEAR(row[c], corner[c], 1e-6);
            EXPECT_NEAR(row[3 + c], 0.5 * (next[c] - corner[c]), 1e-6);
            EXPECT_NEAR(row[6 + c], 0.5 * (last[c] - corner[c]), 1e-6);
            EXPECT_NEAR(row[9 * 8 + c], c < 2 ? 0.5 : 0.0, 1e-6) << "the middle of the square";
        }
    }
    // In the tessellation the four quads share their UV points, the others have none.
    const ControlCage cage = read_obj(folder.path("t.obj")).cage.value();
    EXPECT_EQ(cage.get_uv_count(), 25u);
    for (std::size_t corner = 0; corner < cage.get_corner_count(); ++corner)
        EXPECT_EQ(cage.uv_indices[corner] == unmapped_corner, corner < 15u * 16) << corner;
}

TEST_F(Export, SecondMapIsTheOtherFile) {
    std::string text = cube_obj;
    text.replace(text.find("vt 1 0"), 6, "vt 3 0");
    const std::string other = folder.write("wide.obj", text);
    const auto largest_u = [&](const char* map) {
        EXPECT_SUCCESS(run_sds(folder, {"export", cube, "--uv-map", other, "--uv", "1", folder.path("uv.npy"), "--map",
                                        map, "--uv-interpolation", "all_fixed"}));
        double largest = 0.0;
        const auto uvs = read_doubles(folder.path("uv.npy"), {6, 2, 2, 9});
        for (std::size_t i = 0; i < uvs.size(); i += 9) largest = std::max(largest, uvs[i]);
        return largest;
    };
    EXPECT_EQ(largest_u("0"), 1.0);
    EXPECT_EQ(largest_u("1"), 3.0);
}

TEST_F(Export, TimesGiveTheMeshOfThatTime) {
    const std::string rest = folder.write("a.obj", sheet_obj);
    const std::string b = folder.write("b.obj", moved(sheet_obj, 0.5, 1.5)),
                      c = folder.write("c.obj", moved(sheet_obj, 2.0, 3.0));
    const auto patches_of = [&](const std::string& mesh, const std::vector<std::string>& more) {
        EXPECT_SUCCESS(run_sds(folder, {"export", mesh, "--patches", folder.path("p.npy"), "--quiet"}, more));
        return std::get<std::vector<float>>(read_npy(folder.path("p.npy")).values);
    };
    const auto at_b = patches_of(b, {}), at_c = patches_of(c, {});
    const auto expect_near = [](const std::vector<float>& p, const std::vector<float>& from,
                                const std::vector<float>& to, float share) {
        ASSERT_EQ(p.size(), from.size());
        for (std::size_t i = 0; i < p.size(); ++i) ASSERT_NEAR(p[i], from[i] + (to[i] - from[i]) * share, 2e-6f) << i;
    };
    const auto at = [&](const char* time) {
        return patches_of(rest, {"--time-samples", rest, b, c, "--times", "0", "1", "3", "--time", time});
    };
    EXPECT_EQ(at("1"), at_b);
    EXPECT_EQ(at("9"), at_c) << "clamped";
    expect_near(at("1.5"), at_b, at_c, 0.25f);
    expect_near(patches_of(rest, {"--motion", b, "--time", "0.5"}), patches_of(rest, {}), at_b, 0.5f);
    // Evenly over [0, 1] without times.
    expect_near(patches_of(rest, {"--time-samples", rest, b, c, "--time", "0.75"}), at_b, at_c, 0.5f);
}

TEST_F(Export, SizesAreForeseen) {
    for (const std::string& mesh : {cube, std::string(QN_SOURCE_DIR "/assets/body.obj")}) {
        const std::string out = folder.path("t.obj");
        EXPECT_SUCCESS(run_sds(folder, {"export", mesh, "--tessellation", out, "--level", "5", "--quiet"}));
        const ControlCage cells = read_obj(out).cage.value();
        const auto size = static_cast<double>(std::filesystem::file_size(out));
        const auto foreseen = static_cast<double>(estimate_obj_size(cells.get_polygon_count(), cells.has_uvs()));
        EXPECT_NEAR(foreseen, size, 0.3 * size) << mesh;
    }
}

}  // namespace
}  // namespace sds_cli

// Hits and selections against brute force over the exported cells.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "io/obj/read_obj.h"
#include "qn_gmath/gmath_vec.h"
#include "sds_process.h"

namespace sds_cli {
namespace {

using Vec3 = GMathVec3<double>;

struct Cells {
    std::vector<Vec3> points;
    std::vector<std::array<std::uint32_t, 4>> faces;
    std::size_t per_quad = 0;
};

Cells cells_of(const ScratchFolder& folder, const std::string& mesh, unsigned int level, std::size_t quads) {
    EXPECT_SUCCESS(run_sds(
        folder, {"export", mesh, "--tessellation", folder.path("t.obj"), "--level", std::to_string(level), "--quiet"}));
    const ControlCage cage = read_obj(folder.path("t.obj")).cage.value();
    Cells cells;
    for (std::size_t i = 0; i < cage.get_vertex_count(); ++i)
        cells.points.push_back(
            Vec3(GMathVec3<float>(cage.positions[3 * i], cage.positions[3 * i + 1], cage.positions[3 * i + 2])));
    for (std::size_t f = 0; f < cage.get_polygon_count(); ++f) {
        const std::uint32_t* face = &cage.polygon_indices[4 * f];
        cells.faces.push_back({face[0], face[1], face[2], face[3]});
    }
    cells.per_quad = cells.faces.size() / quads;
    return cells;
}

using Intersect = InFolder;

TEST_F(Intersect, FlatCellsAreThoseOfTheExport) {
    const Cells cells = cells_of(folder, sheet, 3, 15);
    std::vector<double> rays;
    std::vector<Vec3> targets;
    // From a little above two places of each face, one on each side of its first diagonal.
    for (const auto& [a, b, c, d] : cells.faces)
        for (const std::uint32_t third : {b, d}) {
            const auto& p = cells.points;
            targets.push_back(p[a] * 0.5 + p[c] * 0.3 + p[third] * 0.2);
            Vec3 up = (p[c] - p[a]).cross(p[d] - p[b]);
            up *= 0.1 / up.length();
            const Vec3 origin = targets.back() + up;
            rays.insert(rays.end(), {origin[0], origin[1], origin[2], -up[0], -up[1], -up[2], 0.0, INFINITY});
        }
    rays.insert(rays.end(), {5, 5, 5, 1, 0, 0, 0, INFINITY});
    write_doubles(folder.path("rays.npy"), rays, 8);
    EXPECT_SUCCESS(run_sds(folder, {"intersect", sheet, "--level", "3", "--rays", folder.path("rays.npy"), "--hits",
                                    folder.path("hits.npy"), "--samples", "--threads", "2"}));
    const std::size_t count = targets.size();
    const std::vector<double> hits = read_doubles(folder.path("hits.npy"), {count + 1, 19});
    for (std::size_t i = 0; i < count; ++i) {
        const double* hit = &hits[19 * i];
        ASSERT_EQ(hit[0], static_cast<double>(i / 2 / cells.per_quad)) << i;
        ASSERT_NEAR(hit[3], 1.0, 2e-5) << i;
        ASSERT_LT((targets[i] - Vec3{hit[4], hit[5], hit[6]}).length(), 5e-6) << i;
    }
    EXPECT_EQ(hits[19 * count], -1.0);
    EXPECT_TRUE(std::isinf(hits[19 * count + 3]) && std::isnan(hits[19 * count + 4]));
}

TEST_F(Intersect, RaysWithoutAHit) {
    write_doubles(folder.path("rays.npy"), {0,         0, 5, 0, 0, -1, 0, 10,  // meets the cube
                                            5,         5, 5, 1, 0, 0,  0, 10,  // beside it
                                            5,         0, 0, 0, 0, 0,  0, 10,  // no direction
                                            0.0 / 0.0, 0, 0, 0, 0, 1,  0, 10,  // not finite
                                            0,         0, 5, 0, 0, -1, 0, 1},  // too short
                  8);
    const SdsRun run =
        run_sds(folder, {"intersect", cube, "--rays", folder.path("rays.npy"), "--hits", folder.path("h.npy")});
    EXPECT_SUCCESS(run);
    EXPECT_THAT(run.err, testing::HasSubstr("ray 2 is not finite or has no direction, hits nothing; 2 cases"));
    const std::vector<double> hits = read_doubles(folder.path("h.npy"), {5, 4});
    for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(hits[4 * i] >= 0.0, i == 0) << i;
}

TEST_F(Intersect, RaysAreSpelledInSeveralWays) {
    const std::vector<double> rays{0.125, 0.25, 9, 0, 0, -1, 0, INFINITY, 0.5, 0.25, -9, 0, 0, 2, 0, INFINITY};
    const auto hits_of = [&](const std::string& file) {
        EXPECT_SUCCESS(run_sds(folder, {"intersect", cube, "--rays", file, "--hits", folder.path("h.npy")}));
        return read_doubles(folder.path("h.npy"), {2, 4});
    };
    write_doubles(folder.path("r.npy"), rays, 8);
    const std::vector<double> expected = hits_of(folder.path("r.npy"));
    EXPECT_GE(std::min(expected[0], expected[4]), 0.0);
    const std::size_t shape[] = {2, 8};
    write_npy<float>(folder.path("f.npy"), shape, std::vector<float>(rays.begin(), rays.end()));
    EXPECT_EQ(hits_of(folder.path("f.npy")), expected);
    EXPECT_EQ(
        hits_of(folder.write("r.csv", "# ox, oy, oz, dx, dy, dz\r\n0.125,0.25,9,0,0,-1\r\n+0.5, 0.25,-9, 0,0,2e0")),
        expected);
    EXPECT_EQ(hits_of(folder.write("r.txt", "0.125 .25 9\t0 0 -1 0 inf # down\n\n0.5 0.25 -9 0 0 2 0 inf\n")),
              expected);
}

// A cube that moves by 4 along x in a unit of time, hit by rays that wait for it.
TEST_F(Intersect, RaysMeetTheSurfaceOfTheirTime) {
    const std::string next = folder.write("next.obj", moved(cube_obj, 4.0));
    std::vector<double> rays;
    for (const double time : {0.0, 0.25, 0.5, 1.0})
        for (const double x : {0.0, 1.0, 2.0, 4.0}) rays.insert(rays.end(), {x, 0.1, 5, 0, 0, -1, 0, 100, time});
    write_doubles(folder.path("rays.npy"), rays, 9);
    for (const std::vector<std::string>& motion :
         {std::vector<std::string>{"--motion", next}, {"--time-samples", cube, next}}) {
        for (const char* level : {"0", "4"}) {
            EXPECT_SUCCESS(run_sds(folder,
                                   {"intersect", cube, "--level", level, "--rays", folder.path("rays.npy"), "--hits",
                                    folder.path("h.npy")},
                                   motion));
            const std::vector<double> hits = read_doubles(folder.path("h.npy"), {16, 4});
            for (std::size_t i = 0; i < 16; ++i) {
                const bool is_centered = rays[9 * i] == 4.0 * rays[9 * i + 8];
                const bool is_near = std::fabs(rays[9 * i] - 4.0 * rays[9 * i + 8]) < 0.5;
                EXPECT_EQ(hits[4 * i] >= 0.0, is_near) << i;
                if (is_centered) {
                    EXPECT_NEAR(hits[4 * i + 3], hits[3], 1e-5) << i;
                }
            }
        }
    }
}

std::vector<unsigned int> selected(const ScratchFolder& folder, const std::string& mesh, const std::string& frustum,
                                   const char* mode, const char* level) {
    const SdsRun run = run_sds(folder, {"select", mesh, "--frustum", folder.write("f.json", frustum), "--mode", mode,
                                        "--level", level, "--json", "--quiet"});
    EXPECT_SUCCESS(run);
    return nlohmann::json::parse(run.out)["selected"].get<std::vector<unsigned int>>();
}

using Select = InFolder;

TEST_F(Select, HalfSpacesSelectWhatTheirCellsSay) {
    const std::size_t quads = 15;
    const Cells cells = cells_of(folder, sheet, 3, quads);
    for (const double x : {-0.6, 0.1, 0.8, 1.7, 5.0, -5.0}) {
        const std::string plane = "[1, 0, 0, " + std::to_string(-x) + "]";
        std::vector<unsigned int> touching, inside;
        for (unsigned int q = 0; q < quads; ++q) {
            std::size_t in = 0, all = 0;
            for (std::size_t f = q * cells.per_quad; f < (q + 1) * cells.per_quad; ++f)
                for (const std::uint32_t v : cells.faces[f]) {
                    in += cells.points[v][0] >= x ? 1 : 0;
                    ++all;
                }
            if (in > 0) touching.push_back(q);
            if (in == all) inside.push_back(q);
        }
        for (const std::string& frustum :
             {"{\"sides\": [" + plane + "]}", "{\"near\": " + plane + "}", "{\"far\": " + plane + "}"}) {
            EXPECT_EQ(selected(folder, sheet, frustum, "touch", "3"), touching) << x << frustum;
            EXPECT_EQ(selected(folder, sheet, frustum, "inside", "3"), inside) << x << frustum;
        }
    }
    EXPECT_EQ(selected(folder, sheet, "{}", "inside", "0").size(), quads);
    const SdsRun plain =
        run_sds(folder, {"select", sheet, "--frustum", folder.path("f.json"), "--mode", "touch", "--quiet"});
    EXPECT_EQ(std::count(plain.out.begin(), plain.out.end(), '\n'), 15);
}

}  // namespace
}  // namespace sds_cli

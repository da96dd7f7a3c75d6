// Refined surfaces as users see them: by the quads of depth 0 and (u, v) on them, whatever the patches are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>

#include "exported_patches.h"
#include "io/obj/read_obj.h"
#include "oracles/built_surface.h"
#include "oracles/mesh_zoo.h"

namespace sds_cli {
namespace {

using Json = nlohmann::json;
using Jet = ExportedPatches::Jet;

const std::string all_tags =
    "t crease 5/1/0 4 5 6 7 4 2.5\nt crease 2/1/0 0 1 0.75\nt crease 2/1/0 1 2 inf\nt corner 1/1/0 3 1.5\n"
    "t hole 1/0/0 1\n";

using Isolation = InFolder;

TEST_F(Isolation, PatchesOfTaggedCagesAreTheModules) {
    const std::string mesh = folder.write("tagged.obj", std::string(cube_obj) + all_tags);
    std::vector<std::vector<unsigned int>> faces{{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4},
                                                 {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}};
    const sds_test::ZooMesh cage = sds_test::make_mesh(
        {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1}, {-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}}, faces);
    for (const unsigned int depth : {1u, 3u}) {
        sds_test::BuiltSurface::Options options;
        options.refinement.depth = depth;
        options.refinement.vertex_sharpness.assign(8, 0.0f);
        options.refinement.vertex_sharpness[3] = 1.5f;
        options.refinement.holes.assign(6, 0);
        options.refinement.holes[1] = 1;
        options.refinement.edge_sharpness.assign(24, 0.0f);
        for (unsigned int q = 0; q < 6; ++q)
            for (unsigned int k = 0; k < 4; ++k) {
                const auto [a, b] = std::minmax(faces[q][k], faces[q][(k + 1) % 4]);
                const bool is_ring = a >= 4;
                options.refinement.edge_sharpness[4 * q + k] = is_ring            ? 2.5f
                                                               : a == 0 && b == 1 ? 0.75f
                                                               : a == 1 && b == 2 ? 10.0f
                                                                                  : 0.0f;
            }
        const sds_test::BuiltSurface surface(cage, options);
        const std::vector<std::string> flags{"--isolation", std::to_string(depth)};
        const ExportedPatches patches(folder, mesh, flags);
        ASSERT_EQ(patches.count(), surface.mesh.get_primitive_count());
        for (unsigned int p = 0; p < patches.count(); ++p) {
            GMathVec3<float> controls[16];
            surface.geometry.get_bezier_controls(p, controls);
            for (unsigned int i = 0; i < 48; ++i)
                ASSERT_EQ(patches.controls(p)[i], controls[i / 3][i % 3]) << "patch " << p;
        }

        EXPECT_SUCCESS(run_sds(folder, {"export", mesh, "--quiet", "--samples", "5", folder.path("s.npy")}, flags));
        const std::vector<double> rows = read_doubles(folder.path("s.npy"), {6, 6, 6, 15});
        for (std::size_t i = 0; i < rows.size() / 15; ++i) {
            const double u = static_cast<double>(i % 6) / 5.0, v = static_cast<double>(i / 6 % 6) / 5.0;
            patches.expect_sample(i / 36, u, v, &rows[15 * i], static_cast<int>(depth));
        }

        // Four cells a side, welded, none on the hole.
        EXPECT_SUCCESS(run_sds(
            folder, {"export", mesh, "--quiet", "--tessellation", folder.path("t.obj"), "--level", "2"}, flags));
        const ControlCage cells = read_obj(folder.path("t.obj")).cage.value();
        ASSERT_EQ(cells.get_polygon_count(), 5u * 16);
        EXPECT_EQ(cells.get_vertex_count(), 5u * 16 + 9) << "a disk";
        for (std::size_t f = 0; f < 5 * 16; ++f) {
            const std::size_t quad = f / 16 + (f < 16 ? 0 : 1);
            Jet jet;
            ASSERT_TRUE(
                patches.evaluate(quad, 0.25 * static_cast<double>(f % 4), 0.25 * static_cast<double>(f / 4 % 4), jet));
            const float* xyz = &cells.positions[3 * std::size_t{cells.polygon_indices[4 * f]}];
            EXPECT_LT((jet.value - Vec3(xyz[0], xyz[1], xyz[2])).length(), 1e-6) << "face " << f;
        }
    }
    const SdsRun plain = run_sds(folder, {"info", mesh, "--json", "--isolation", "0"});
    EXPECT_SUCCESS(plain);
    std::vector<std::string> codes;
    const Json findings = Json::parse(plain.out)["findings"];
    for (const Json& finding : findings) codes.push_back(finding["code"]);
    EXPECT_THAT(codes, testing::UnorderedElementsAre("fractional_sharpness", "unkept_corner", "unkept_hole"));
}

// Flags say what tags of a file say, and an orientation turns the normals only.
TEST_F(Isolation, FlagsStandForTags) {
    const std::string creases = "t crease 5/1/0 4 5 6 7 4 2.5\nt crease 2/1/0 4 0 1.5\n";
    const std::string mixed = std::string(cube_obj) + "v 0 0 3\nf 5 6 9\n" + creases;
    const std::string base = folder.write("base.obj", mixed);
    const std::string tagged =
        folder.write("tagged.obj", mixed + "t creasemethod 0/0/1 chaikin\nt smoothtriangles 0/0/1 smooth\n");
    const auto sample = [&](const std::string& mesh, const std::vector<std::string>& flags) {
        EXPECT_SUCCESS(run_sds(folder, {"export", mesh, "--quiet", "--samples", "2", folder.path("s.npy")}, flags));
        return std::get<std::vector<double>>(read_npy(folder.path("s.npy")).values);
    };
    const std::vector<double> plain = sample(base, {}), expected = sample(tagged, {});
    EXPECT_NE(plain, expected);
    EXPECT_EQ(sample(base, {"--crease-method", "chaikin", "--triangle-rule", "smooth"}), expected);

    // Rows of 15 numbers at 3 x 3 places; u and v change places about the first corner, which stays.
    const std::string quads = folder.write("quads.obj", std::string(cube_obj) + creases);
    const std::vector<double> right = sample(quads, {}), left = sample(quads, {"--orientation", "leftHanded"});
    ASSERT_EQ(right.size(), left.size());
    for (std::size_t row = 0; row < right.size() / 15; ++row) {
        const std::size_t i = row % 3, j = row / 3 % 3, mirrored = row - i - 3 * j + 3 * i + j;
        const double *a = &right[15 * row], *b = &left[15 * mirrored];
        for (unsigned int c = 0; c < 3; ++c) {
            EXPECT_NEAR(a[c], b[c], 1e-6);
            EXPECT_NEAR(a[12 + c], -b[12 + c], 1e-5);
        }
    }
    const SdsRun refused = run_sds(folder, {"info", base, "--isolation", "0", "--crease-method", "chaikin"});
    EXPECT_EQ(refused.code, 2);
    EXPECT_THAT(refused.err, testing::HasSubstr("--isolation"));
}

// A sheet of quads with a triangulated one among them: patches of level -1 in every orientation, and smaller ones.
TEST_F(Isolation, HitsAreOnTheQuads) {
    const std::string mesh = folder.write("mixed.obj", grid_obj(7, 17));
    std::mt19937 random(7);
    std::uniform_real_distribution<double> along(0.3, 5.7);
    std::vector<double> rays;
    for (int i = 0; i < 500; ++i)
        for (const double value :
             {along(random), along(random), 9.0, 0.0, 0.0, -1.0, 0.0, std::numeric_limits<double>::infinity()})
            rays.push_back(value);
    write_doubles(folder.path("rays.npy"), rays, 8);
    const std::vector<std::string> flags{"--isolation", "2"};
    const ExportedPatches patches(folder, mesh, flags);
    std::size_t whole = 0;
    for (std::size_t p = 0; p < patches.count(); ++p) whole += patches.level(p) < 0 ? 1 : 0;
    EXPECT_GT(whole, 4u);
    EXPECT_GT(patches.count(), 2 * whole);
    EXPECT_SUCCESS(run_sds(folder,
                           {"intersect", mesh, "--quiet", "--samples", "--rays", folder.path("rays.npy"), "--hits",
                            folder.path("hits.npy")},
                           flags));
    const std::vector<double> hits = read_doubles(folder.path("hits.npy"), {500, 19});
    for (std::size_t i = 0; i < 500; ++i) {
        const double* hit = &hits[19 * i];
        ASSERT_GE(hit[0], 0.0) << "ray " << i;
        const auto quad = static_cast<std::size_t>(hit[0]);
        patches.expect_sample(quad, hit[1], hit[2], hit + 4, 2);
        Jet jet;
        ASSERT_TRUE(patches.evaluate(quad, hit[1], hit[2], jet));
        EXPECT_LT((jet.value - Vec3(rays[8 * i], rays[8 * i + 1], 9.0 - hit[3])).length(), 1e-5) << "ray " << i;
    }

    const SdsRun info = run_sds(folder, {"info", mesh, "--json"}, flags);
    EXPECT_SUCCESS(info);
    const Json isolation = Json::parse(info.out)["isolation"];
    EXPECT_EQ(isolation["patches"], patches.count());
    EXPECT_EQ(isolation["levels"]["-1"], whole);
}

}  // namespace
}  // namespace sds_cli

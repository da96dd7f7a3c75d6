#include "tools/accuracy/refinement_tables.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "oracles/refined_surface.h"

namespace sds_test {

namespace {

constexpr int oracle_isolation = 10;
constexpr unsigned int regular_depths[] = {1, 2, 4, 6};

struct DepthRows {
    const char* cage;
    std::vector<unsigned int> depths;
};

void print_depth(const TaggedCage& cage, const OpenSubdivOracle& oracle, unsigned int depth) {
    const RefinedSurface surface(cage, depth);
    const RefinedErrors errors = measure_refined(surface, oracle);
    const double quads = surface.topology.get_places().get_quad_count();
    std::printf("| %s | %u | %u | %.2f | %.2f | %.1e | %.1e | %.1e | %.4f | %.3f | %.2f |\n", cage.mesh.name.c_str(),
                depth, surface.get_patch_count(), surface.get_patch_count() / quads,
                surface.get_support_count() / quads, errors.leaf_distance,
                std::max(errors.leaf_position, errors.regular), errors.mean_position, errors.normals.mean,
                errors.normals.percentile99, errors.normals.worst);
    std::fflush(stdout);
}

void print_regular_row(const TaggedCage& cage, const std::string& name) {
    const OpenSubdivOracle oracle(cage, oracle_isolation);
    std::printf("| %s |", name.c_str());
    for (const unsigned int depth : regular_depths) {
        const RefinedSurface surface(cage, depth);
        size_t regular = 0;
        for (unsigned int p = 0; p < surface.get_patch_count(); ++p)
            regular += surface.topology.get_places().get_patch(p).is_leaf() ? 0 : 1;
        const RefinedErrors errors = measure_refined(surface, oracle, 4);
        if (regular != 0)
            std::printf(" %zu, %.0e, %.0e |", regular, errors.regular_single, errors.regular);
        else
            std::printf(" - |");
    }
    std::printf("\n");
    std::fflush(stdout);
}

// A ball of two by two quads a side of a cube, with infinite creases: three that meet on top, two quads in one of their
// sectors, and end in darts, and one that is a dart at both ends.
TaggedCage make_creased_ball() {
    ZooMesh mesh;
    mesh.name = "ball of 24, darts and a concave corner";
    unsigned int numbers[3][3][3] = {};
    for (unsigned int i = 0; i < 27; ++i) {
        const unsigned int x = i % 3, y = i / 3 % 3, z = i / 9;
        if (x == 1 && y == 1 && z == 1) continue;
        numbers[x][y][z] = static_cast<unsigned int>(mesh.positions.size());
        const Vec3f p(static_cast<float>(x) - 1.0f, static_cast<float>(y) - 1.0f, static_cast<float>(z) - 1.0f);
        mesh.positions.push_back(p * (1.0f / static_cast<float>(p.length())));
    }
    for (unsigned int axis = 0; axis < 3; ++axis)
        for (const unsigned int side : {0u, 2u})
            for (unsigned int quad = 0; quad < 4; ++quad) {
                mesh.counts.push_back(4);
                for (unsigned int k = 0; k < 4; ++k) {
                    const unsigned int turned = side == 2 ? k : 3 - k;
                    unsigned int at[3];
                    at[axis] = side;
                    at[(axis + 1) % 3] = quad % 2 + (turned == 1 || turned == 2 ? 1 : 0);
                    at[(axis + 2) % 3] = quad / 2 + (turned >= 2 ? 1 : 0);
                    mesh.indices.push_back(numbers[at[0]][at[1]][at[2]]);
                }
            }
    mesh.corner_creases.assign(mesh.indices.size(), 0);
    TaggedCage cage = tag_cage(mesh);
    const unsigned int top = numbers[1][1][2];
    for (const unsigned int end : {numbers[2][1][2], numbers[1][2][2], numbers[0][1][2]})
        sharpen(cage, {top, end}, 10.0f);
    sharpen(cage, {numbers[1][0][1], numbers[2][0][1]}, 10.0f);
    return cage;
}

// A torus whose loops, crossings and corners are as sharp as files have it, by both rules of decay.
void print_sharp_rows() {
    constexpr unsigned int n = 8, m = 6;
    const auto along = [](unsigned int row, unsigned int count) {
        std::vector<unsigned int> path;
        for (unsigned int i = 0; i <= count; ++i) path.push_back(m * (i % n) + row);
        return path;
    };
    const auto across = [](unsigned int column) {
        std::vector<unsigned int> path;
        for (unsigned int i = 0; i <= m; ++i) path.push_back(m * column + i % m);
        return path;
    };
    const TaggedCage plain = tag_cage(make_torus(n, m));
    for (const float s : {0.5f, 1.0f, 1.7f, 2.0f, 3.3f, 5.0f}) {
        TaggedCage cage = plain;
        sharpen(cage, along(1, n), s);
        char name[64];
        std::snprintf(name, sizeof name, "torus, loop of %.1f", static_cast<double>(s));
        print_regular_row(cage, name);
    }
    TaggedCage crossing = plain;
    sharpen(crossing, along(1, n), 1.7f);
    sharpen(crossing, across(2), 3.3f);
    print_regular_row(crossing, "torus, 1.7 across 3.3");
    TaggedCage mixed = plain;
    sharpen(mixed, along(1, n), 10.0f);
    sharpen(mixed, across(2), 2.0f);
    mixed.vertex_sharpness.assign(mixed.mesh.positions.size(), 0.0f);
    mixed.vertex_sharpness[1] = 2.3f;
    mixed.vertex_sharpness[m + 3] = 10.0f;
    print_regular_row(mixed, "torus, infinite across 2, corners of 2.3 and infinite");
    TaggedCage varying = plain;
    for (unsigned int i = 0; i < n; ++i)
        sharpen(varying, {m * i + 1, m * ((i + 1) % n) + 1}, 0.5f + 0.6f * static_cast<float>(i));
    print_regular_row(varying, "torus, 0.5 to 4.7 along a loop");
    // The library does not bound the weight of an edge whose sharpness lies between 1 and 4/3; these never do.
    TaggedCage chaikin = plain;
    for (unsigned int i = 0; i < n; ++i) sharpen(chaikin, {m * i + 4, m * ((i + 1) % n) + 4}, i % 2 == 0 ? 4.0f : 3.0f);
    sharpen(chaikin, across(3), 2.0f);
    chaikin.chaikin = true;
    print_regular_row(chaikin, "torus, 3 and 4 by turns across 2, Chaikin");
    TaggedCage open = plain;
    sharpen(open, along(1, 3), 2.5f);
    print_regular_row(open, "torus, an open crease of 2.5");
}

}  // namespace

void print_refinement_table(const std::vector<const ZooMesh*>& cages) {
    static const DepthRows rows[] = {{"meshes/car", {0, 1, 2, 3, 6}},     {"meshes/bishop", {0, 1, 3, 6}},
                                     {"meshes/cube", {0, 1, 2, 4, 6}},    {"meshes/toroidal_tet", {0, 2, 4, 6}},
                                     {"meshes/pole64", {0, 1, 2, 6}},     {"meshes/gregory_test2", {0, 2, 4, 6}},
                                     {"meshes/inf_crease1", {0, 2, 4, 6}}};
    const TaggedCage creased = make_creased_ball();
    std::printf(
        "\n## Refined surfaces\n\n"
        "Isolated to a depth, in double precision, against OpenSubdiv's limit at isolation %d. Patches and supporting "
        "quads\nalso to a quad of depth 0. Distance: along the limit's normal, worst. Position: at equal (u, v), worst "
        "and mean;\nboth as shares of the diagonal. Normals: degrees, by area.\n\n"
        "| cage | depth | patches | to a quad | support | distance | position | mean | normals, mean | 99 %% | worst "
        "|\n|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|--:|\n",
        oracle_isolation);
    for (const DepthRows& row : rows)
        for (const ZooMesh* mesh : cages) {
            if (mesh->name != row.cage) continue;
            const TaggedCage cage = tag_cage(*mesh);
            const OpenSubdivOracle oracle(cage, oracle_isolation);
            for (const unsigned int depth : row.depths) print_depth(cage, oracle, depth);
        }
    const OpenSubdivOracle oracle(creased, oracle_isolation);
    for (const unsigned int depth : {0u, 2u, 4u, 6u}) print_depth(creased, oracle, depth);
}

void print_regular_patches_table(const std::vector<const ZooMesh*>& cages) {
    std::printf(
        "\n## Regular patches of refined surfaces\n\n"
        "By depth: how many there are, and the worst distance at equal (u, v), of the rounded controls and in double\n"
        "precision, as shares of the diagonal. The tori have sharp edges by the way around the tube or the axis.\n\n"
        "| cage |");
    for (const unsigned int depth : regular_depths) std::printf(" %u |", depth);
    std::printf("\n|---|--:|--:|--:|--:|\n");
    for (const ZooMesh* mesh : cages) {
        if (mesh->is_in(opposite_winding | corner_tags)) continue;
        TaggedCage cage = tag_cage(*mesh);
        cage.smooth_triangles = mesh->name.find("smoothtris") != std::string::npos;
        print_regular_row(cage, mesh->name);
    }
    print_sharp_rows();
}

}  // namespace sds_test

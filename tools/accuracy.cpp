// Prints docs/accuracy.md: how far the surface is from the limit surface, mesh by mesh. Arguments are names of cages to
// measure (as printed in the first column); without any, all cages on disk.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>

#include "support/surface_errors.h"
#include "support/uv_errors.h"

using namespace sds_test;

namespace {

// `-` where nothing was measured.
std::string number(const ErrorSummary& summary, double ErrorSummary::*what, const char* format = "%.1e") {
    if (summary.count == 0) return "-";
    char text[32];
    std::snprintf(text, sizeof text, format, summary.*what);
    return text;
}

void merge(ErrorSummary& all, const ErrorSummary& one) {
    all.count += one.count;
    all.worst = std::max(all.worst, one.worst);
}

void print_positions(const ZooMesh& cage, const PositionErrors& e) {
    std::printf("| %s | %zu | %s | %s | %s | %s | %zu | %s | %s |\n", cage.name.c_str(), e.regular.count / 81,
                number(e.regular, &ErrorSummary::worst).c_str(), number(e.regular_double, &ErrorSummary::worst).c_str(),
                number(e.corners, &ErrorSummary::worst).c_str(), number(e.corners_double, &ErrorSummary::worst).c_str(),
                e.other.count / 81, number(e.other, &ErrorSummary::worst).c_str(),
                number(e.other, &ErrorSummary::mean).c_str());
}

bool is_comparable(const ZooMesh& cage) { return !cage.is_in(nonmanifold_edge | opposite_winding | corner_tags); }

void print_position_table(const std::vector<const ZooMesh*>& cages) {
    std::printf(
        "## Positions\n\n"
        "Shares of the box diagonal over a 9 x 9 grid per patch, against OpenSubdiv's limit (edge-and-corner, creases\n"
        "infinitely sharp). A patch is regular when each corner is a closed fan of four without a sharp edge, an open\n"
        "fan of two at a vertex of two sharp edges or an open fan of one at a vertex that stays, and no dart touches\n"
        "it or a neighbour. Corners leave out darts and their neighbours. Double: the same rules in double precision.\n"
        "Counted with the darts are bow-ties (polygons in several fans: the limit point is that of one fan, "
        "OpenSubdiv\n"
        "makes a corner of it) and, in cages with n-gons, inner vertices of two polygons (their rule is a curve's).\n\n"
        "| cage | regular patches | worst | worst, double | corners, worst | corners, double | other patches | worst | "
        "mean |\n|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
    for (const ZooMesh* cage : cages) {
        if (!is_comparable(*cage)) continue;
        const BuiltSurface surface(*cage);
        print_positions(*cage,
                        measure_positions(*cage, surface, DoubleSurface(*cage, surface), OpenSubdivOracle(*cage)));
        std::fflush(stdout);
    }
}

void print_normal_table(const std::vector<const ZooMesh*>& cages) {
    std::printf(
        "\n## Normals and derivatives\n\n"
        "Degrees between our normal and the limit's. Gap: degrees between the normals on both sides of a smooth edge,\n"
        "9 points an edge, pairs of opposite winding and edges at bow-ties aside; single precision tells planes apart "
        "to\n"
        "8 roundings of the largest coordinate against the patch's derivatives. Sharp edge: regular patches at a "
        "border\n"
        "or crease without a corner of one quad or a sharp turn, whose tangents are set by rule. Derivatives: against\n"
        "central differences of the position, shares of the diagonal, where the nets are the patch's own "
        "differences.\n\n"
        "| cage | regular, inside | regular, sharp edge | other, mean | other, 99 %% | gap | gap, double | derivatives "
        "|\n|---|--:|--:|--:|--:|--:|--:|--:|\n");
    for (const ZooMesh* cage : cages) {
        const BuiltSurface surface(*cage);
        const DoubleSurface twin(*cage, surface);
        const NormalErrors normals =
            is_comparable(*cage) ? measure_normals(*cage, surface, OpenSubdivOracle(*cage)) : NormalErrors{};
        const TangentGaps gaps = measure_tangent_gaps(*cage, surface, twin);
        std::printf("| %s | %s | %s | %s | %s | %s | %s | %s |\n", cage->name.c_str(),
                    number(normals.interior.degrees, &ErrorSummary::worst).c_str(),
                    number(normals.sharp.degrees, &ErrorSummary::worst).c_str(),
                    number(normals.other, &ErrorSummary::mean, "%.3f").c_str(),
                    number(normals.other, &ErrorSummary::percentile99, "%.2f").c_str(),
                    number(gaps.single.degrees, &ErrorSummary::worst, "%.4f").c_str(),
                    number(gaps.twin, &ErrorSummary::worst).c_str(),
                    number(measure_derivatives(surface, twin), &ErrorSummary::worst).c_str());
        std::fflush(stdout);
    }
}

// The cages whose UV maps try seams and borders.
bool tries_uvs(const ZooMesh& cage) {
    static constexpr const char* names[] = {"meshes/fvar_bound0", "meshes/fvar_bound1", "meshes/fvar_bound3",
                                            "meshes/flap2",       "meshes/car",         "meshes/bishop",
                                            "assets/seams"};
    return cage.is_in(uvs) && is_comparable(cage) &&
           std::any_of(std::begin(names), std::end(names), [&](const char* name) { return cage.name == name; });
}

void print_uv_table(const std::vector<const ZooMesh*>& cages) {
    std::printf(
        "\n## UV maps\n\n"
        "Each of our UV modes against each of OpenSubdiv's face-varying rules: worst distance on patches that are\n"
        "regular in the map and on the mesh, then worst at limit corners, in shares of the UV range. The pairs that "
        "are\n"
        "rounding in both are equal rules. Seams are infinitely sharp on both sides: a seam is a border of the map.\n\n"
        "| cage | mode |");
    for (const FaceVarying rule : face_varying_rules) std::printf(" %s |", OpenSubdivOracle::name_of(rule));
    std::printf("\n|---|---|--:|--:|--:|--:|--:|--:|\n");
    std::vector<UvErrors> worst(std::size(uv_modes) * std::size(face_varying_rules));
    const auto print_row = [](const char* cage, UvMode mode, const UvErrors* row) {
        std::printf("| %s | %s |", cage, name_of(mode));
        for (size_t i = 0; i < std::size(face_varying_rules); ++i)
            std::printf(" %s, %s |", number(row[i].regular, &ErrorSummary::worst, "%.0e").c_str(),
                        number(row[i].corners, &ErrorSummary::worst, "%.0e").c_str());
        std::printf("\n");
        std::fflush(stdout);
    };
    for (const ZooMesh* cage : cages) {
        if (!tries_uvs(*cage)) continue;
        std::vector<OpenSubdivOracle> oracles;
        for (const FaceVarying rule : face_varying_rules)
            oracles.emplace_back(*cage, OpenSubdivOracle::Boundary::edge_and_corner, rule);
        UvErrors* all = worst.data();
        for (const UvMode mode : uv_modes) {
            BuiltSurface::Options options;
            options.uv_mode = mode;
            const BuiltSurface surface(*cage, options);
            UvErrors row[std::size(face_varying_rules)];
            for (size_t i = 0; i < std::size(face_varying_rules); ++i, ++all) {
                row[i] = measure_uvs(surface, oracles[i]);
                merge(all->regular, row[i].regular);
                merge(all->corners, row[i].corners);
            }
            print_row(cage->name.c_str(), mode, row);
        }
    }
    for (size_t m = 0; m < std::size(uv_modes); ++m)
        print_row("**all**", uv_modes[m], worst.data() + m * std::size(face_varying_rules));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        std::vector<const ZooMesh*> cages;
        for (const ZooMesh& mesh : cages_on_disk())
            if (argc < 2 || std::find(argv + 1, argv + argc, mesh.name) != argv + argc) cages.push_back(&mesh);
        if (cages.empty()) throw std::runtime_error("no cage to measure");
        std::printf("# Accuracy\n\nPrinted by `make accuracy`.\n\n");
        print_position_table(cages);
        print_normal_table(cages);
        print_uv_table(cages);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "accuracy: %s\n", error.what());
        return 1;
    }
}

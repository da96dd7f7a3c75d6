// Prints docs/accuracy.md: how far the surface is from the limit surface, mesh by mesh, and how pictures agree.
//
//     accuracy [--pictures FOLDER] [--refined] [CAGE...]
//
// --refined prints the tables of refined surfaces only.
// CAGE is a name as printed in the first column; without any, all cages on disk are measured. FOLDER gets the pictures
// that are compared and their differences.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <stdexcept>

#include "io/image_files.h"
#include "oracles/motion_checks.h"
#include "oracles/surface_errors.h"
#include "oracles/uv_errors.h"
#include "tools/accuracy/picture_checks.h"
#include "tools/accuracy/refinement_tables.h"

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

bool is_one_of(const ZooMesh& cage, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(), [&](const char* name) { return cage.name == name; });
}

// Writes `<folder>/<cage>_<what>.png` when there is a folder.
void save_picture(const std::string& folder, const ZooMesh& cage, const std::string& what,
                  const sds_render::Image& image, const std::string& layer = "") {
    if (folder.empty()) return;
    const std::string name = cage.name.substr(cage.name.rfind('/') + 1);
    sds_io::write_png(folder + "/" + name + "_" + what + ".png", image, layer);
}

void save_difference(const std::string& folder, const ZooMesh& cage, const std::string& what,
                     const sds_render::Image& a, const sds_render::Image& b) {
    save_picture(folder, cage, what, make_difference_picture(a, b), "difference");
}

void print_difference(const PictureDifference& d) {
    std::printf(" %.0f | %.3f | %.3f | %.2f | %zu of %zu |\n", d.max, d.mean, d.root_mean_square, d.worst_block,
                d.beyond, d.pixels);
    std::fflush(stdout);
}

void print_level_table(const std::vector<const ZooMesh*>& cages, const std::string& folder) {
    constexpr PictureSize size{320, 240, 16};
    std::printf(
        "\n## Pictures at a level beside level 0\n\n"
        "%u x %u pixels, %u samples, the program's camera and light. Steps of the 8 bits shown. Block: mean with sign "
        "over\n16 x 16 pixels. Beyond: pixels off by more than 8 steps. `sds render CAGE --level 0` and `--level N`\n"
        "make the two pictures (`--up z` for bishop and car), `build/bin/accuracy --pictures FOLDER CAGE` those and "
        "their difference.\n\n"
        "| cage | level | max | mean | root mean square | worst block | beyond |\n|---|--:|--:|--:|--:|--:|--:|\n",
        size.width, size.height, size.samples);
    for (const ZooMesh* cage : cages) {
        if (!is_one_of(*cage, {"meshes/bishop", "meshes/car", "assets/knot"})) continue;
        const auto up = cage->name.starts_with("meshes") ? sds_render::UpAxis::z : sds_render::UpAxis::y;
        const sds_render::Image smooth = render_level(*cage, 0, up, size);
        save_picture(folder, *cage, "level0", smooth);
        for (const unsigned int level : {3u, 5u}) {
            const sds_render::Image flat = render_level(*cage, level, up, size);
            const std::string name = "level" + std::to_string(level);
            save_picture(folder, *cage, name, flat);
            save_difference(folder, *cage, name + "_difference", smooth, flat);
            std::printf("| %s | %u |", cage->name.c_str(), level);
            print_difference(compare_pictures(smooth, flat));
        }
    }
}

void print_bounds_table(const std::vector<const ZooMesh*>& cages) {
    constexpr std::uint64_t point_count = 1000000;
    std::printf(
        "\n## Motion bounds\n\n"
        "%llu random points of random patches at random times of the open shutter [0.1, 0.9], a cage that turns by 63\n"
        "degrees and bends. Outside: of the blend of the two boxes that the hierarchy holds beside the time, in "
        "double\n"
        "precision and as the hierarchy stores them. Growth: mean diagonal of that box against the patch's own at the\n"
        "time.\n\n"
        "| cage | motion | level | points | outside | outside, hierarchy | growth |\n|---|---|--:|--:|--:|--:|--:|\n",
        static_cast<unsigned long long>(point_count));
    for (const ZooMesh* cage : cages) {
        if (!is_one_of(*cage, {"meshes/car", "assets/body", "assets/seams"})) continue;
        for (const CageMotion motion : all_cage_motions)
            for (const unsigned int level : {0u, 3u}) {
                const MovingSurface surface(*cage, motion, level);
                const MotionBoundsCheck check = check_motion_bounds(surface, {0.1, 0.9}, point_count);
                std::printf("| %s | %s | %u | %zu | %zu | %zu | %.2f |\n", cage->name.c_str(), name_of(motion), level,
                            check.points, check.outside, check.outside_hierarchy, check.growth);
                std::fflush(stdout);
            }
    }
}

void print_blur_table(const std::vector<const ZooMesh*>& cages, const std::string& folder) {
    constexpr PictureSize blurred_size{160, 120, 64}, still_size{160, 120, 16}, converged_size{160, 120, 512};
    std::printf(
        "\n## Blur beside the mean of stills\n\n"
        "The same motion, shutter [0, 1], %u x %u pixels: one blurred picture of 64 samples a pixel against the mean "
        "of 64\nstills of 16 samples in linear light. Noise: the blurred picture against one of 512 samples. Columns "
        "as above.\n\n"
        "| cage | motion | compared | max | mean | root mean square | worst block | beyond |\n"
        "|---|---|---|--:|--:|--:|--:|--:|\n",
        blurred_size.width, blurred_size.height);
    for (const ZooMesh* cage : cages) {
        if (!is_one_of(*cage, {"meshes/car", "assets/seams"})) continue;
        const MovingSurface surface(*cage, CageMotion::even_samples, 0);
        const BlurredFrame frame(surface);
        const sds_render::Image blurred = frame.render(blurred_size),
                                stills = frame.render_mean_of_stills(64, still_size),
                                converged = frame.render(converged_size);
        save_picture(folder, *cage, "blurred", blurred);
        save_picture(folder, *cage, "stills", stills);
        save_difference(folder, *cage, "blur_difference", blurred, stills);
        const struct {
            const char* name;
            const sds_render::Image &a, &b;
        } pairs[] = {{"blurred, stills", blurred, stills},
                     {"noise", blurred, converged},
                     {"512 samples, stills", converged, stills}};
        for (const auto& pair : pairs) {
            std::printf("| %s | %s | %s |", cage->name.c_str(), name_of(CageMotion::even_samples), pair.name);
            print_difference(compare_pictures(pair.a, pair.b));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        std::string folder;
        std::vector<std::string> names(argv + 1, argv + argc);
        if (names.size() > 1 && names[0] == "--pictures") {
            folder = names[1];
            names.erase(names.begin(), names.begin() + 2);
        }
        const auto refined = std::find(names.begin(), names.end(), "--refined");
        const bool only_refined = refined != names.end();
        if (only_refined) names.erase(refined);
        std::vector<const ZooMesh*> cages;
        for (const ZooMesh& mesh : cages_on_disk())
            if (names.empty() || std::find(names.begin(), names.end(), mesh.name) != names.end())
                cages.push_back(&mesh);
        if (cages.empty()) throw std::runtime_error("no cage to measure");
        std::printf("# Accuracy\n\nPrinted by `make accuracy`.\n\n");
        if (only_refined) {
            print_refinement_table(cages);
            print_regular_patches_table(cages);
            return 0;
        }
        print_position_table(cages);
        print_normal_table(cages);
        print_refinement_table(cages);
        print_regular_patches_table(cages);
        print_uv_table(cages);
        print_level_table(cages, folder);
        print_bounds_table(cages);
        print_blur_table(cages, folder);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "accuracy: %s\n", error.what());
        return 1;
    }
}

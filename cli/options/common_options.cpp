#include "cli/options/common_options.h"

#include "cli/options/usage_error.h"
#include "io/atomic_file.h"
#include "io/utf8.h"
#include "qn_app_base/app_terminal_progress.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string_view>

namespace sds_cli {

namespace {

bool is_same_word(const std::string& a, const std::string& b) {
    return CLI::detail::to_lower(a) == CLI::detail::to_lower(b);
}

template <class Value>
struct Choice {
    const char* name;
    Value value;
};

template <class Value, std::size_t N>
void add_choice(CLI::App& command, const std::string& flag, Value& value, const Choice<Value> (&choices)[N],
                const std::string& help, bool* is_given = nullptr) {
    const auto parse = [flag, &value, &choices, is_given](std::string text) {
        if (is_given != nullptr) *is_given = true;
        std::replace(text.begin(), text.end(), '-', '_');
        std::string known;
        for (const Choice<Value>& choice : choices) {
            if (is_same_word(text, choice.name) || text == std::to_string(static_cast<unsigned int>(choice.value))) {
                value = choice.value;
                return;
            }
            known += (known.empty() ? "" : ", ") + std::string(choice.name);
        }
        throw CLI::ValidationError(flag, "unknown name '" + text + "'; known are " + known);
    };
    std::string names;
    for (const Choice<Value>& choice : choices) names += (names.empty() ? "{" : ",") + std::string(choice.name);
    command.add_option_function<std::string>(flag, parse, help)->type_name(names + "}");
}

using PositionMode = SdsMeshGeometry::InterpolationMode;
/// Stands for the border rule none, which is no mode of its own.
constexpr auto open_borders = static_cast<PositionMode>(4);
// The second names are the field's.
constexpr Choice<PositionMode> position_modes[] = {
    {"linear", PositionMode::all_fixed},           {"corners", PositionMode::corners_fixed},
    {"smooth", PositionMode::all_smoothed},        {"borders", PositionMode::borders_fixed},
    {"bilinear", PositionMode::all_fixed},         {"edgeAndCorner", PositionMode::corners_fixed},
    {"edgeOnly", PositionMode::all_smoothed},      {"none", open_borders},
    {"bordersFixed", PositionMode::borders_fixed},
};

using UvMode = SdsMeshMaps::InterpolationMode;
constexpr Choice<UvMode> uv_modes[] = {
    {"all_fixed", UvMode::all_fixed},
    {"corners_fixed", UvMode::corners_fixed},
    {"all_smoothed", UvMode::all_smoothed},
    {"borders_fixed", UvMode::borders_fixed},
    {"smoothed_seam_corners_fixed", UvMode::smoothed_seam_corners_fixed},
    {"smoothed_seams_fixed", UvMode::smoothed_seams_fixed},
    {"corners_and_seams_fixed", UvMode::corners_and_seams_fixed},
    {"corners_plus1", UvMode::corners_plus1},
    {"corners_plus2", UvMode::corners_plus2},
    // USD's words
    {"all", UvMode::all_fixed},
    {"cornersOnly", UvMode::corners_fixed},
    {"none", UvMode::all_smoothed},
    {"boundaries", UvMode::borders_fixed},
    {"cornersPlus1", UvMode::corners_plus1},
    {"cornersPlus2", UvMode::corners_plus2},
};

constexpr Choice<bool> crease_methods[] = {{"uniform", false}, {"chaikin", true}};
constexpr Choice<bool> triangle_rules[] = {{"catmullClark", false}, {"smooth", true}};
constexpr Choice<bool> orientations[] = {{"rightHanded", false}, {"leftHanded", true}};

constexpr Choice<FractionalSharpness> fractional_choices[] = {
    {"exact", FractionalSharpness::exact},
    {"sharp", FractionalSharpness::harden},
    {"drop", FractionalSharpness::drop},
    {"harden", FractionalSharpness::harden},
};

}  // namespace

void add_common_options(CLI::App& command, CommonOptions& options, const std::string& uv_flag) {
    command.add_option("MESH", options.mesh, "Control cage, an OBJ file, or a scene, a USD text file (.usda)")
        ->required();
    command
        .add_option("--frame", options.frame,
                    "Frame of a scene, a time code; its first by default. Times are counted from there")
        ->type_name("CODE");
    add_choice(command, "--interpolation", options.modes.positions, position_modes,
               "Which vertices stay: linear (0, bilinear), corners (1, edgeAndCorner, the default), smooth (2, "
               "edgeOnly), borders (3); none (4) has no surface beside borders and needs isolation",
               &options.has_border_rule);
    add_choice(command, "--uv-interpolation", options.modes.uvs, uv_modes,
               "Which UVs stay: all_fixed (linear, all), corners_fixed (the default, cornersOnly), cornersPlus1 (also "
               "where three UVs meet), cornersPlus2, borders_fixed (boundaries) or one of the others",
               &options.has_uv_rule);
    command.add_option(uv_flag, options.uv_files, "A further UV map: the vt records of a file with the same polygons")
        ->type_name("FILE")
        ->allow_extra_args(false);
    add_choice(
        command, "--fractional", options.fractional, fractional_choices,
        "What becomes of a sharpness between 0 and 10: exact (the default; without isolation it is sharp), sharp "
        "(infinitely so) or drop");
    add_choice(command, "--crease-method", options.modes.chaikin, crease_methods,
               "How fractional sharpness decays: uniform (the default) or chaikin, as a file's creasemethod says too");
    add_choice(command, "--triangle-rule", options.modes.smooth_triangles, triangle_rules,
               "How triangles weigh in the first step: catmullClark (the default) or smooth, as smoothtriangles says");
    add_choice(command, "--orientation", options.is_left_handed, orientations,
               "Which way polygons run seen from outside: rightHanded (counterclockwise, the default) or leftHanded");
    command
        .add_option(
            "--isolation", options.modes.depth,
            "Levels by which quads that are not regular are refined, and with them UV maps and properties of kind "
            "vertex; 0 is one patch per quad")
        ->check(CLI::Range(0u, SdsRefinement::max_depth))
        ->capture_default_str();
    command
        .add_option("--isolation-error", options.modes.error,
                    "Stop refining around a vertex once its control point is this close to the surface, a share of the "
                    "cage's diagonal; --isolation is then the most")
        ->check(CLI::Range(0.0f, 1.0f))
        ->type_name("TAU");
    command.add_option("--threads", options.threads, "Threads to use, 0 for every core")->check(CLI::Range(0u, 1024u));
    add_size_option(
        command, "--memory-limit", options.memory_limit,
        "Begin nothing that needs more memory than this, such as 500M or 1.5G: surfaces, pictures, textures, "
        "arrays");
    command.add_option("--log-level", options.log_level, "0 errors, 1 warnings, 2 statistics, 3 details")
        ->check(CLI::Range(0u, 3u));
    command.add_flag("-q,--quiet", options.quiet, "Print errors only");
    command.add_flag_function(
        "-v,--verbose", [&options](std::int64_t count) { options.log_level = count > 1 ? 3u : 2u; },
        "Print statistics, as --log-level 2 does; twice: details");
    command.add_flag("--stats", options.statistics,
                     "Print how long reading a scene, building and tracing took, and their rates");
}

void add_size_option(CLI::App& command, const std::string& flag, std::size_t& size, const std::string& help) {
    const auto parse = [flag, &size](const std::string& text) {
        constexpr std::string_view units = "KMGT";
        double number = 0.0;
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        std::string unit(stop, text.data() + text.size());
        std::transform(unit.begin(), unit.end(), unit.begin(), [](char c) { return c >= 'a' ? c - 'a' + 'A' : c; });
        if (unit.ends_with('B')) unit.pop_back();
        if (unit.ends_with('I') && unit.size() == 2) unit.pop_back();
        const std::size_t power = unit.empty() ? 0 : units.find(unit) + 1;
        const double bytes = std::ldexp(number, static_cast<int>(10 * power));
        const bool is_known = unit.empty() || (unit.size() == 1 && power != 0);
        if (error != std::errc{} || !is_known || !(bytes >= 1.0 && bytes < 0x1p63))
            throw CLI::ValidationError(flag, "'" + text + "' is no size; such as 500M, 1.5G");
        size = static_cast<std::size_t>(bytes);
    };
    command.add_option_function<std::string>(flag, parse, help)->type_name("SIZE");
}

void add_property_option(CLI::App& command, CommonOptions& options) {
    command
        .add_option("--properties", options.property_file,
                    "Values on the cage, a .json list of {name, kind (vertex, varying, uniform, constant), type "
                    "(float32, ...), "
                    "extent, values, indices, times}")
        ->type_name("FILE");
}

void add_level_option(CLI::App& command, unsigned int& level) {
    command
        .add_option("--level", level,
                    "0 for the limit surface (the default), N for flat cells, 2^N along an edge of a quad of the cage")
        ->check(CLI::Range(0u, max_level));
}

SurfaceModes get_modes(const CommonOptions& options, const CageRules& rules) {
    SurfaceModes modes = options.modes;
    if (modes.positions == open_borders) {
        if (modes.depth == 0) throw UsageError("--interpolation: none needs an --isolation of 1 and more");
        modes.positions = PositionMode::corners_fixed;
        modes.open_borders = true;
    }
    if (modes.depth == 0 && modes.chaikin)
        throw UsageError("--crease-method: chaikin needs an --isolation of 1 and more");
    if (modes.depth == 0 && modes.smooth_triangles)
        throw UsageError("--triangle-rule: smooth needs an --isolation of 1 and more");
    return follow_rules(modes, rules, options.has_border_rule, options.has_uv_rule);
}

std::unique_ptr<AppProgressBar> make_progress(const CommonOptions& options, const std::string& title) {
    if (options.quiet) return std::make_unique<AppProgressBar>();
    return std::make_unique<AppTerminalProgress>(stderr, CoreString(title));
}

void check_uv_map(const std::string& option, const std::string& mesh, unsigned int map, unsigned int count) {
    if (map < count) return;
    if (count == 0)
        throw UsageError(option + ": " + mesh +
                         " has no UVs; an OBJ file says them in vt records and as f v/vt v/vt v/vt");
    throw UsageError("--map: " + mesh + " has " + std::to_string(count) + (count == 1 ? " UV map" : " UV maps") +
                     ", the first is 0, there is no " + std::to_string(map));
}

void print_line(const std::string& line) { std::fputs((printable(line) + "\n").c_str(), stderr); }

void print_text(const std::string& text) {
    AtomicFile out("-");
    out.write(text);
    out.commit();
}

void check_outputs(const std::vector<std::string>& paths) {
    std::set<std::string> files;
    for (const std::string& path : paths) {
        check_writable(path);
        std::error_code error;
        const std::filesystem::path file =
            std::filesystem::weakly_canonical(std::filesystem::absolute(follow_links(path)), error);
        const bool is_kept = path == "-" || !exists(file, error) || is_regular_file(file, error);
        if (is_kept && !files.insert(path == "-" ? path : file.string()).second)
            throw UsageError(path + ": two outputs in one place");
    }
}

}  // namespace sds_cli

#pragma once

#include "io/obj/read_obj.h"
#include "model/surface.h"
#include "qn_app_base/app_progress_bar.h"

#include <CLI/App.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sds_cli {

using namespace sds_io;
using namespace sds_model;

inline constexpr unsigned int default_isolation = 2;

/// What every subcommand understands.
struct CommonOptions {
    std::string mesh;             ///< an OBJ cage or a USD layer
    std::optional<double> frame;  ///< of a layer, a time code
    SurfaceModes modes{.depth = default_isolation};
    bool has_border_rule = false;  ///< --interpolation is given
    bool is_left_handed = false;   ///< polygons of all files run clockwise seen from outside
    bool has_uv_rule = false;      ///< --uv-interpolation is given
    std::vector<std::string> uv_files;
    std::string property_file;  ///< empty: none
    FractionalSharpness fractional = FractionalSharpness::exact;
    unsigned int threads = 0;  ///< 0: one per core
    unsigned int log_level = 1;
    std::size_t memory_limit = 0;  ///< bytes that may be needed at once; 0: no limit
    bool quiet = false;
    bool statistics = false;
};

/// The work that the command line asks for, carried out once it is parsed.
struct Action {
    const CommonOptions* common = nullptr;
    std::function<void()> run;
};

inline constexpr unsigned int max_level = 12;

/// Adds the positional MESH and the common options. `uv_flag` names the option that adds UV maps.
void add_common_options(CLI::App& command, CommonOptions& options, const std::string& uv_flag = "--uv,--uv-map");

/// The modes of a cage's surface: those that the options ask for and, where they leave it open, the cage's own rules.
SurfaceModes get_modes(const CommonOptions& options, const CageRules& rules);

/// Adds an option that takes a size in bytes, above 0, with a unit of 1024, its square, cube or fourth power: 1.5G,
/// 500M, 64k, 2GiB.
void add_size_option(CLI::App& command, const std::string& flag, std::size_t& size, const std::string& help);

/// Adds --properties FILE.
void add_property_option(CLI::App& command, CommonOptions& options);

/// Adds --level N with 0 (the limit surface) as default.
void add_level_option(CLI::App& command, unsigned int& level);

/// A progress bar, shown on the standard error stream unless the options ask for quiet.
std::unique_ptr<AppProgressBar> make_progress(const CommonOptions& options, const std::string& title);

/// Throws UsageError when a mesh of `count` UV maps has no map `map`, which `option` asks for.
void check_uv_map(const std::string& option, const std::string& mesh, unsigned int map, unsigned int count);

/// Prints a line to the standard error stream, as printable() has it.
void print_line(const std::string& line);

/// Writes text to the standard output stream. Throws OutputError.
void print_text(const std::string& text);

/// Throws OutputError when one of the outputs cannot be opened and UsageError when two of them are one file: asked
/// before work that may take long. "-" is standard output.
void check_outputs(const std::vector<std::string>& paths);

/// Makes `action` run `function` on `options` when the command is called. The options live as long as the action.
template <class Options>
void set_action(CLI::App& command, Action& action, std::shared_ptr<Options> options, void (*function)(const Options&)) {
    command.callback([&action, options, function] {
        action.common = options.get();
        action.run = [options, function] { function(*options); };
    });
}

}  // namespace sds_cli

#pragma once

#include "io/obj/read_obj.h"
#include "model/surface.h"

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace sds_cli {

using namespace sds_io;
using namespace sds_model;

struct CommonOptions;

struct MotionOptions {
    std::string next;                ///< cage one unit of time later; empty: none
    std::vector<std::string> files;  ///< time samples
    std::vector<double> times;       ///< of the files; empty: evenly over [0, 1]

    bool has_motion() const { return !next.empty() || !files.empty(); }
};

/// Adds --motion, --time-samples and --times.
void add_motion_options(CLI::App& command, MotionOptions& options);

/// How a cage moves, read and checked.
struct Motion {
    std::vector<float> vectors;      ///< x y z per vertex and unit of time; empty without --motion
    std::vector<std::string> files;  ///< one per time sample of OBJ cages
    std::vector<double> times;       ///< of the samples, strictly increasing

    bool has_motion() const { return !vectors.empty() || !times.empty(); }

    /// The interval of time that the motion covers; [0, 0] without motion.
    double get_first_time() const { return times.empty() ? 0.0 : times.front(); }
    double get_last_time() const { return times.empty() ? (vectors.empty() ? 0.0 : 1.0) : times.back(); }
};

/// Reads and checks every file of the motion against `cage`, the mesh of `common`. Throws InputError and UsageError.
Motion load_motion(const MotionOptions& options, const CommonOptions& common, const ControlCage& cage);

/// Gives the time samples to a surface, which reads each file again when its sample is first asked for. A file that
/// changed in between throws InputError there.
void install_time_samples(Surface& surface, const Motion& motion, std::size_t vertices);

}  // namespace sds_cli

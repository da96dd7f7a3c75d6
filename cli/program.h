#pragma once

namespace sds_cli {

/// Exit codes of the program; 0 is success.
inline constexpr int exit_failure = 1;   ///< something could not be done: I/O, memory
inline constexpr int exit_refused = 2;   ///< wrong usage or unusable input
inline constexpr int exit_signal = 128;  ///< interrupted: this and the signal's number

/// Runs the program on its command line and returns the exit code. Nothing is thrown.
int run_program(int argc, const char* const* argv);

}  // namespace sds_cli

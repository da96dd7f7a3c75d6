#pragma once

#include <CLI/App.hpp>

namespace sds_cli {

/// Gives the program and its subcommands help that is wrapped to a terminal's width and ends with examples.
void add_help(CLI::App& program);

}  // namespace sds_cli

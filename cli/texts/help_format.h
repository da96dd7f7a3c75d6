#pragma once

#include <CLI/App.hpp>

namespace sds_cli {

/// Gives the program and its subcommands help that is wrapped to a terminal's width and ends with examples.
void add_help(CLI::App& program);

/// Example command lines of a subcommand ("" for the program), one a line, without the prompt. They run where cage.obj,
/// a cage with UVs, is; files that they name are made by the examples before.
const char* get_examples(const std::string& command);

}  // namespace sds_cli

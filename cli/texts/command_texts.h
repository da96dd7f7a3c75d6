#pragma once

#include "cli/options/common_options.h"

namespace sds_cli {

/// `sds completion` and `sds manual`: texts about the program itself. Added after all other commands.
void add_text_commands(CLI::App& program, Action& action);

}  // namespace sds_cli

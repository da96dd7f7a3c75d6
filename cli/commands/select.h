#pragma once

namespace CLI {
class App;
}

namespace sds_cli {

struct Action;

/// Adds `sds select`.
void add_select_command(CLI::App& program, Action& action);

}  // namespace sds_cli

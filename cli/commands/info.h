#pragma once

namespace CLI {
class App;
}

namespace sds_cli {

struct Action;

/// Adds `sds info`.
void add_info_command(CLI::App& program, Action& action);

}  // namespace sds_cli

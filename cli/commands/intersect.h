#pragma once

namespace CLI {
class App;
}

namespace sds_cli {

struct Action;

/// Adds `sds intersect`.
void add_intersect_command(CLI::App& program, Action& action);

}  // namespace sds_cli

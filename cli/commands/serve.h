#pragma once

namespace CLI {
class App;
}

namespace sds_cli {

struct Action;

/// Adds `sds serve`.
void add_serve_command(CLI::App& program, Action& action);

}  // namespace sds_cli

#pragma once

namespace CLI {
class App;
}

namespace sds_cli {

struct Action;

/// Adds `sds render`.
void add_render_command(CLI::App& program, Action& action);

}  // namespace sds_cli

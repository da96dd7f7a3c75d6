#pragma once

namespace CLI {
class App;
}

namespace sds_cli {

struct Action;

/// Adds `sds export`.
void add_export_command(CLI::App& program, Action& action);

}  // namespace sds_cli

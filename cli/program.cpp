#include "cli/program.h"

#include "cli/commands/export.h"
#include "cli/commands/info.h"
#include "cli/commands/intersect.h"
#include "cli/commands/render.h"
#include "cli/commands/select.h"
#include "cli/options/common_options.h"
#include "cli/options/usage_error.h"
#include "cli/process.h"
#include "cli/texts/help_format.h"
#include "io/input_error.h"
#include "qn_core/core_log.h"
#include "qn_sys/sys_thread.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <new>
#include <sstream>

namespace sds_cli {

namespace {

int report(const std::string& reason, int code) {
    print_line("sds: " + reason);
    return code;
}

void run_action(const Action& action) {
    const CommonOptions& common = *action.common;
    CoreLogHandler::s_main_log_handler->set_level(common.quiet ? 0 : common.log_level);
    SysThreadArena arena(common.threads);
    arena.execute([&action] { action.run(); });
}

/// Help and version, or what is wrong with the command line.
int print_answer(const CLI::App& program, const CLI::ParseError& error) {
    std::ostringstream out, err;
    const bool is_fine = program.exit(error, out, err) == 0;
    print_text(out.str());
    if (!err.str().empty()) print_line(err.str().substr(0, err.str().size() - 1));
    return is_fine ? 0 : exit_refused;
}

int run(int argc, const char* const* argv) {
    CLI::App program("Catmull-Clark limit surfaces of polygon meshes", "sds");
    program.require_subcommand(1);
    program.set_version_flag("--version", QN_SDS_VERSION);
    Action action;
    add_info_command(program, action);
    add_render_command(program, action);
    add_export_command(program, action);
    add_intersect_command(program, action);
    add_select_command(program, action);
    add_help(program);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return print_answer(program, error);
    }
    run_action(action);
    return 0;
}

}  // namespace

int run_program(int argc, const char* const* argv) {
    prepare_process();
    try {
        return run(argc, argv);
    } catch (const InputError& error) {
        return report(error.what(), exit_refused);
    } catch (const UsageError& error) {
        return report(error.what(), exit_refused);
    } catch (const std::bad_alloc&) {
        std::fputs("sds: out of memory\n", stderr);  // which allocates nothing
        return exit_failure;
    } catch (const std::exception& error) {
        return report(error.what(), exit_failure);
    }
}

}  // namespace sds_cli

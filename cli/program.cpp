#include "cli/program.h"

#include "cli/commands/export.h"
#include "cli/commands/info.h"
#include "cli/commands/intersect.h"
#include "cli/commands/render.h"
#include "cli/commands/select.h"
#include "cli/commands/serve.h"
#include "cli/options/command_line.h"
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
#include <string>
#include <vector>

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

/// Help and version.
int print_answer(const CLI::App& program, const CLI::Success& asked) {
    std::ostringstream out, err;
    program.exit(asked, out, err);
    print_text(out.str());
    return 0;
}

int run(int argc, const char* const* argv) {
    CLI::App program("Catmull-Clark limit surfaces of polygon meshes", "sds");
    program.require_subcommand(1);
    program.set_version_flag("-v,--version", QN_SDS_VERSION);
    Action action;
    add_info_command(program, action);
    add_render_command(program, action);
    add_export_command(program, action);
    add_intersect_command(program, action);
    add_select_command(program, action);
    add_serve_command(program, action);
    add_help(program);
    const std::vector<std::string> words = read_words(argc, argv);
    try {
        program.parse(std::vector<std::string>(words.rbegin(), words.rend()));  // the parser takes the last first
    } catch (const CLI::Success& asked) {
        const std::string unknown = describe_unknown_words(program, {words[0]});
        if (unknown.empty()) return print_answer(program, asked);
        print_line(unknown);
        return exit_refused;
    } catch (const CLI::ParseError& error) {
        print_line(describe_parse_error(program, error, words));
        return exit_refused;
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

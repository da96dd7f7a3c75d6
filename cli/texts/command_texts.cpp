#include "cli/texts/command_texts.h"

#include "cli/texts/command_line_texts.h"

#include <CLI/CLI.hpp>

namespace sds_cli {

namespace {

struct TextOptions : CommonOptions {
    const CLI::App* program = nullptr;
    std::string shell;
};

void run_completion(const TextOptions& options) {
    print_text(options.shell == "bash" ? make_bash_completion(*options.program)
                                       : make_zsh_completion(*options.program));
}

void run_manual(const TextOptions& options) { print_text(make_manual_page(*options.program)); }

}  // namespace

void add_text_commands(CLI::App& program, Action& action) {
    const auto options = std::make_shared<TextOptions>();
    options->program = &program;
    CLI::App& completion = *program.add_subcommand("completion", "Print what a shell needs to complete command lines");
    completion.add_option("SHELL", options->shell, "bash or zsh")->check(CLI::IsMember({"bash", "zsh"}))->required();
    set_action(completion, action, options, run_completion);
    set_action(*program.add_subcommand("manual", "Print the manual page"), action, options, run_manual);
}

}  // namespace sds_cli

#include "cli/texts/command_line_texts.h"

#include "cli/texts/help_format.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace sds_cli {

namespace {

using Commands = std::vector<const CLI::App*>;

/// Text that stands for itself: no line of it is taken for a request.
std::string escape(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else if (c == '\'')
            out += "\\(aq";
        else if (c == ',')
            out += ",\\:";  // a line may end here
        else
            out += c;
    }
    return out.starts_with('.') ? "\\&" + out : out;
}

std::string signature(const CLI::Option& option) {
    const CLI::Formatter formatter;
    return option.get_name(option.get_positional(), true) + formatter.make_option_opts(&option);
}

std::string entry(const CLI::Option& option) {
    return ".TP\n\\fB" + escape(signature(option)) + "\\fR\n" + escape(option.get_description()) + "\n";
}

bool is_in(const CLI::App& command, const CLI::Option& option) {
    const auto all = command.get_options();
    return std::any_of(all.begin(), all.end(), [&option](const CLI::Option* other) {
        return signature(*other) == signature(option) && other->get_description() == option.get_description();
    });
}

bool is_common(const Commands& commands, const CLI::Option& option) {
    return std::all_of(commands.begin(), commands.end(),
                       [&option](const CLI::App* command) { return is_in(*command, option); });
}

std::string example_lines(const std::string& command) {
    std::istringstream lines(get_examples(command));
    std::string out;
    for (std::string line; std::getline(lines, line);) out += escape(line) + "\n";
    return ".PP\n.nf\n.RS\n" + out + ".RE\n.fi\n";
}

}  // namespace

std::string make_manual_page(const CLI::App& program) {
    const std::string& name = program.get_name();
    const Commands commands = program.get_subcommands([](const CLI::App*) { return true; });
    // Those that take a mesh share options, told once.
    Commands on_meshes;
    for (const CLI::App* command : commands)
        if (command->get_option_no_throw("MESH") != nullptr) on_meshes.push_back(command);

    std::string page = ".TH " + name + " 1 \"\" \"" + name + " " + program.version() + "\"\n.ad l\n.nh\n.SH NAME\n" +
                       name + " \\- " + escape(program.get_description()) + "\n.SH SYNOPSIS\n.B " + name +
                       "\n.I COMMAND\n[\\fIOPTIONS\\fR]\n.I MESH\n.SH DESCRIPTION\n" +
                       "Reads a control cage from an OBJ file (polygons with any number of corners, crease tags, UVs, "
                       "vertex colours, groups), makes its Catmull\\-Clark limit surface and answers about it.\n"
                       ".SH OPTIONS OF EVERY COMMAND ON A MESH\n";
    for (const CLI::Option* option : on_meshes.front()->get_options())
        if (is_common(on_meshes, *option)) page += entry(*option);
    page += ".SH COMMANDS\n";
    for (const CLI::App* command : commands) {
        page += ".SS " + escape(name + " " + command->get_name()) + "\n" + escape(command->get_description()) + ".\n";
        const bool has_common = std::find(on_meshes.begin(), on_meshes.end(), command) != on_meshes.end();
        for (const CLI::Option* option : command->get_options())
            if (!has_common || !is_common(on_meshes, *option)) page += entry(*option);
        page += example_lines(command->get_name());
    }
    return page +
           ".SH FILES\nA mesh or file may be \\fB\\-\\fR: standard input where it is read, standard output where it is "
           "written. Other outputs appear whole or not at all.\n"
           ".SH EXIT STATUS\n0 done, 1 failed, 2 wrong usage or unusable input. What was found in the input is told on "
           "the standard error stream with file, line and element.\n";
}

}  // namespace sds_cli

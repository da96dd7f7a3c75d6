#include "cli/texts/command_line_texts.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>

namespace sds_cli {

namespace {

constexpr int max_listed_values = 4;

/// "--name" and "-n" of an option; nothing for a positional one.
std::vector<std::string> get_flags(const CLI::Option& option) {
    std::vector<std::string> flags;
    for (const std::string& name : option.get_snames()) flags.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) flags.push_back("--" + name);
    return flags;
}

std::string join(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

bool takes_file(const CLI::Option& option) { return option.get_type_name().find("FILE") != std::string::npos; }

/// Text inside '...[text]...' of a zsh option description.
std::string escape_for_zsh(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '\'')
            escaped += "'\\''";
        else if (c == '[' || c == ']' || c == ':' || c == '\\')
            escaped += std::string("\\") + c;
        else
            escaped += c;
    }
    return escaped;
}

/// What bash offers for an option's value; nothing for an option without one.
std::string make_bash_reply(const CLI::Option& option) {
    if (option.get_items_expected_max() == 0) return "";
    if (const auto choices = get_choices(option); !choices.empty())
        return "COMPREPLY=($(compgen -W \"" + join(choices, " ") + "\" -- \"$word\"))";
    return takes_file(option) ? "COMPREPLY=($(compgen -f -- \"$word\"))" : "COMPREPLY=()";
}

std::string make_zsh_action(const CLI::Option& option) {
    if (const auto choices = get_choices(option); !choices.empty()) return "(" + join(choices, " ") + ")";
    return takes_file(option) || option.get_positional() ? "_files" : " ";
}

std::string make_zsh_argument(const CLI::Option& option) {
    const std::string text = escape_for_zsh(option.get_description());
    std::string value;
    const int most = option.get_items_expected_max();
    const int count = most > max_listed_values ? 1 : most;  // lists of any length are given one by one
    const std::string one =
        ":" + escape_for_zsh(option.get_positional() ? option.get_name() : "value") + ":" + make_zsh_action(option);
    for (int i = 0; i < count; ++i) value += one;
    if (option.get_positional()) return "'*" + value + "' ";
    const std::vector<std::string> flags = get_flags(option);
    std::string out;
    for (const std::string& flag : flags)
        out.append("'*").append(flag).append("[").append(text).append("]").append(value) += "' ";
    return out;
}

}  // namespace

std::vector<std::string> get_choices(const CLI::Option& option) {
    // A set of words stands as {a,b,c} in the name of the option's type.
    const std::string type = option.get_type_name();
    const std::size_t begin = type.find('{'), end = type.find('}');
    if (begin == std::string::npos || end == std::string::npos) return {};
    return CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
}

std::string make_bash_completion(const CLI::App& program) {
    const std::string& name = program.get_name();
    std::vector<std::string> commands;
    std::string options, values;
    std::map<std::string, std::vector<std::string>> places_of_reply;  // "command:word before"
    for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
        commands.push_back(command->get_name());
        std::vector<std::string> all;
        for (const CLI::Option* option : command->get_options()) {
            const std::string reply = make_bash_reply(*option);
            const std::vector<std::string> flags = get_flags(*option);
            all.insert(all.end(), flags.begin(), flags.end());
            const std::vector<std::string> before = flags.empty() ? std::vector{command->get_name()} : flags;
            if (reply.empty() || (flags.empty() && get_choices(*option).empty())) continue;
            for (const std::string& word : before) places_of_reply[reply].push_back(command->get_name() + ":" + word);
        }
        options += "        " + command->get_name() + ") options=\"" + join(all, " ") + "\" ;;\n";
    }
    std::vector<std::string> first = commands;
    for (const CLI::Option* option : program.get_options())
        for (const std::string& flag : get_flags(*option)) first.push_back(flag);
    for (const auto& [reply, places] : places_of_reply)
        values += "        " + join(places, "|") + ")\n            " + reply + "\n            ;;\n";
    return "# bash completion of " + name + "; written by `" + name + " completion bash`\n_" + name +
           "() {\n"
           "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} command=${COMP_WORDS[1]} "
           "options\n"
           "    if ((COMP_CWORD == 1)); then\n"
           "        COMPREPLY=($(compgen -W \"" +
           join(first, " ") +
           "\" -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    case $command in\n" +
           options +
           "    esac\n"
           "    if [[ $word == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n"
           "        return\n"
           "    fi\n"
           "    case $command:$before in\n" +
           values +
           "        *)\n"
           "            COMPREPLY=($(compgen -f -- \"$word\"))\n"
           "            ;;\n"
           "    esac\n"
           "}\n"
           "complete -o filenames -F _" +
           name + " " + name + "\n";
}

std::string make_zsh_completion(const CLI::App& program) {
    const std::string& name = program.get_name();
    std::string commands, arguments;
    for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
        commands += " '" + command->get_name() + ":" + escape_for_zsh(command->get_description()) + "'";
        arguments += "        " + command->get_name() + ") _arguments ";
        for (const CLI::Option* option : command->get_options()) arguments += make_zsh_argument(*option);
        arguments += ";;\n";
    }
    return "#compdef " + name + "\n# written by `" + name + " completion zsh`\n_" + name +
           "() {\n"
           "    local -a commands=(" +
           commands +
           ")\n"
           "    if ((CURRENT == 2)); then\n"
           "        _describe command commands\n"
           "        return\n"
           "    fi\n"
           "    local command=$words[2]\n"
           "    shift words\n"
           "    ((CURRENT--))\n"
           "    case $command in\n" +
           arguments + "    esac\n}\n_" + name + " \"$@\"\n";
}

}  // namespace sds_cli

#include "cli/options/command_line.h"

#include "cli/texts/suggestion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace sds_cli {

namespace {

bool is_number(const std::string& word) {
    double value = 0.0;
    return CLI::detail::lexical_cast(word, value);
}

std::string get_suggestion(const std::string& word, const std::vector<std::string>& names) {
    const std::string nearest = find_nearest(word, names);
    return nearest.empty() ? "" : "; did you mean " + nearest + "?";
}

std::string describe_command(const CLI::App& program, const std::string& word) {
    std::vector<std::string> names;
    for (const CLI::App* command : program.get_subcommands({}))
        if (!command->get_group().empty()) names.push_back(command->get_name());
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    const std::string reason = word.empty() ? "a command is required" : "there is no command '" + word + "'";
    return "sds: " + reason + get_suggestion(word, names) + "\nCommands are " + list + "; sds --help tells more.";
}

std::vector<std::string> get_option_names(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
    }
    return names;
}

}  // namespace

std::vector<std::string> read_words(int argc, const char* const* argv) {
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    for (std::size_t i = 0; i + 2 < words.size(); ++i) {
        if (words[i] != "--view" || !is_number(words[i + 1]) || !is_number(words[i + 2])) continue;
        words[i + 1] += " " + words[i + 2];
        words.erase(words.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    }
    return words;
}

std::string describe_unknown_words(const CLI::App& program, const std::vector<std::string>& words) {
    const auto is_option = [](const std::string& word) {
        return word.size() > 1 && word[0] == '-' && word.find(' ') == std::string::npos && !is_number(word);
    };
    const CLI::App* command = &program;
    if (words.empty()) return describe_command(program, "");
    if (!is_option(words[0])) {
        const std::vector<const CLI::App*> commands = program.get_subcommands({});
        const auto known = std::find_if(commands.begin(), commands.end(),
                                        [&](const CLI::App* each) { return each->get_name() == words[0]; });
        if (known != commands.end()) command = *known;
        if (known == commands.end()) return describe_command(program, words[0]);
    }
    for (const std::string& word : words) {
        const std::string name = word.substr(0, word.find('='));
        if (name == "--") break;
        // Of short options only the first letter is a name.
        const bool is_short = name.size() > 1 && name[1] != '-';
        if (!is_option(word) || command->get_option_no_throw(is_short ? name.substr(0, 2) : name) != nullptr) continue;
        const std::string title = command == &program ? "sds" : "sds " + command->get_name();
        return title + ": there is no option " + name + get_suggestion(name, get_option_names(*command)) + "\n" +
               title + " --help tells more.";
    }
    return "";
}

std::string describe_parse_error(const CLI::App& program, const CLI::ParseError& error,
                                 const std::vector<std::string>& words) {
    const std::string unknown = describe_unknown_words(program, words);
    if (!unknown.empty()) return unknown;
    std::ostringstream out, err;
    program.exit(error, out, err);
    return err.str().substr(0, err.str().find_last_not_of('\n') + 1);
}

}  // namespace sds_cli

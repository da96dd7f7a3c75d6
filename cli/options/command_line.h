#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace sds_cli {

/// The words of a command line without the program's name, as the parser takes them: `help COMMAND` asks for that
/// command's --help, and the two numbers behind --view are one word.
std::vector<std::string> read_words(int argc, const char* const* argv);

/// What to say of words that do not parse when they hold a command or an option that there is not, with the one that
/// was meant if it is near. Empty when the parser's own reason is the better one.
std::string describe_unknown_words(const CLI::App& program, const std::vector<std::string>& words);

/// What to say of words that do not parse, in any case.
std::string describe_parse_error(const CLI::App& program, const CLI::ParseError& error,
                                 const std::vector<std::string>& words);

}  // namespace sds_cli

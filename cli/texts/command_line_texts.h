#pragma once

#include <CLI/App.hpp>
#include <string>

namespace sds_cli {

/// Texts about a command line, made from its description, so that they name every option there is.

/// Completion functions for shells, to be sourced (bash) or put into a folder of $fpath as _sds (zsh).
std::string make_bash_completion(const CLI::App& program);
std::string make_zsh_completion(const CLI::App& program);

/// The manual page, in man(7)'s macros.
std::string make_manual_page(const CLI::App& program);

/// Values that an option takes when it takes one of a few words; none otherwise.
std::vector<std::string> get_choices(const CLI::Option& option);

}  // namespace sds_cli

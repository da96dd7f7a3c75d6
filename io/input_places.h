#pragma once

#include <map>
#include <string>
#include <vector>

namespace sds_io {

/// Where the files that inputs name really lie, and which of them are asked for. One table for the process, empty at
/// first: every name is then the path of its file. Names are what users and files say, relative ones among them;
/// messages keep them. Thread-safe.
struct InputPlaces {
    std::string folder;                         ///< that relative names start from; empty: the working directory
    std::map<std::string, std::string> places;  ///< of single names, before the folder
};

/// Replaces the table and forgets what was asked for.
void set_input_places(InputPlaces places);

/// The path at which to open an input; every reader of files goes through it. "-" stays.
std::string locate_input(const std::string& name);

/// The names that were asked for since the table was set, each once, in the order of characters.
std::vector<std::string> get_located_inputs();

}  // namespace sds_io

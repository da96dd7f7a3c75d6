#pragma once

#include <string>
#include <vector>

namespace sds_cli {

/// The name that `word` most likely stands for: the one reached by the fewest letters put in, left out, changed or
/// swapped with the next, a third of the word at most, or the only one that begins with it. Empty when none is near,
/// and for two letters and less.
std::string find_nearest(const std::string& word, const std::vector<std::string>& names);

}  // namespace sds_cli

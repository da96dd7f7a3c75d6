#include "cli/texts/suggestion.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace sds_cli {

namespace {

bool is_same_letter(char a, char b) {
    return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
}

/// Optimal string alignment (a restricted Damerau-Levenshtein distance), the case of letters aside.
std::size_t get_distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> before_last, last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = is_same_letter(a[i - 1], b[j - 1]) ? 0 : 1;
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + change});
            const bool is_swap =
                i > 1 && j > 1 && is_same_letter(a[i - 1], b[j - 2]) && is_same_letter(a[i - 2], b[j - 1]);
            if (is_swap) row[j] = std::min(row[j], before_last[j - 2] + 1);
        }
        before_last = last;
        last = row;
    }
    return last[b.size()];
}

}  // namespace

std::string find_nearest(const std::string& word, const std::vector<std::string>& names) {
    if (word.size() <= 2) return "";  // as near to one as to the other
    std::string nearest;
    std::size_t least = std::max<std::size_t>(word.size() / 3, 1) + 1;
    for (const std::string& name : names) {
        const std::size_t distance = get_distance(word, name);
        if (distance >= least || distance >= name.size()) continue;
        least = distance;
        nearest = name;
    }
    if (!nearest.empty()) return nearest;
    const auto begins = [&word](const std::string& name) { return name.starts_with(word); };
    const auto only = std::find_if(names.begin(), names.end(), begins);
    const bool is_only = only != names.end() && std::find_if(only + 1, names.end(), begins) == names.end();
    return is_only ? *only : "";
}

}  // namespace sds_cli

#pragma once

#include "model/control_cage.h"
#include "model/finding.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sds_page {

/// One cause that a reader met, for people.
struct Note {
    sds_model::Severity severity{};
    std::string place;     ///< "line 12", "line 12, column 3", or empty for the file as a whole
    std::string sentence;  ///< what it was, what became of it, how often: without the file's name
};

enum class CageFormat : std::uint8_t { obj, usda };

struct CageFile {
    std::optional<sds_model::ControlCage> cage;  ///< empty exactly when some note is an error
    std::vector<Note> notes;
};

/// The findings of the model as notes.
std::vector<Note> to_notes(const sds_model::Findings& findings);

/// Reads a cage from text. Never throws on bad input. `is_refined`: keep what only refined surfaces follow.
CageFile read_cage(std::string_view text, CageFormat format, bool is_refined);

}  // namespace sds_page

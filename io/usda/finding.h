#pragma once

#include "io/quoted.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace sds_usda {

/// What can be wrong with a layer and with the scene in it; message, severity and action of each are in finding.cpp.
enum class UsdFindingCode : std::uint8_t {
    // errors: there is no layer
    empty_file,
    binary_file,
    not_usda,
    syntax,
    unterminated,
    not_a_number,
    number_out_of_range,
    wrong_value,
    nested_too_deep,
    duplicate_prim,
    // errors: there is no scene
    no_mesh,
    wrong_attribute_type,
    unsupported_scheme,
    non_finite_number,
    wrong_count,
    index_out_of_range,
    too_many_elements,
    // warnings: something was changed, dropped or looks wrong
    composition_arc,
    missing_attribute,
    negative_sharpness,
    name_not_utf8,
    unknown_token,
    unknown_variant,
    blocked_sample,
    repeated_value,
    changing_topology,
    bad_primvar,
    bad_subset,
    bad_transform,
    bad_instancer,
    ignored_override,
    // notes
    no_selection,
    unknown_schema,
    undefined_prim,
    ignored_spline,
    ignored_normals,
    ignored_attribute,
    ignored_primvar,
    unused_primvar,
    held_primvar,
};

enum class UsdSeverity : std::uint8_t { error, warning, note };

UsdSeverity severity_of(UsdFindingCode code);
const char* to_name(UsdFindingCode code);
const char* message_of(UsdFindingCode code);
const char* action_of(UsdFindingCode code);  ///< what was done about it; may be empty
const char* to_name(UsdSeverity severity);

/// Finds lines and columns of offsets that do not decrease, in one pass over the text.
struct PlaceWalker {
    explicit PlaceWalker(std::string_view looked_at) : text(looked_at) {}
    void move_to(std::size_t offset);

    std::string_view text;
    std::size_t at = 0, line = 1, column = 1;  ///< from 1, columns in characters
};

/// Offset of what concerns the file as a whole.
inline constexpr std::size_t whole_file = std::numeric_limits<std::size_t>::max();

/// One cause with the number of times it was met, and where and how it was first.
struct UsdFinding {
    UsdFindingCode code{};
    std::uint64_t count = 0;
    std::size_t offset = whole_file;   ///< byte of the text
    std::size_t line = 0, column = 0;  ///< from 1, columns in characters; 0 for the file as a whole
    std::string detail;                ///< the offending token, prim or element; may be empty
};

/// Findings of one layer, bounded: one entry per code, or per code and detail where every name counts (arcs, schemas),
/// and of these `max_details` at most. Not thread-safe.
class UsdFindings {
public:
    static constexpr std::size_t max_details = 32;

    /// Counts one case of `code`. `describe` returns the detail and is called for the first record only, so that a
    /// million bad values cost no strings.
    template <class Describe>
    void record(UsdFindingCode code, std::size_t offset, Describe&& describe) {
        if (UsdFinding* known = find(code))
            ++known->count;
        else
            m_entries.push_back({code, 1, offset, 0, 0, describe()});
    }
    /// The same with an entry of its own for every detail.
    void record_each(UsdFindingCode code, std::size_t offset, std::string detail);

    /// Gives every entry its line and column in `text` and sorts them by place; one pass over the text.
    void settle_places(std::string_view text);

    const std::vector<UsdFinding>& get_entries() const { return m_entries; }
    bool has_errors() const;

private:
    UsdFinding* find(UsdFindingCode code);

    std::vector<UsdFinding> m_entries;
};

/// One line without newline: "file:line:column: severity: message (detail), action; N cases, first here".
std::string to_text(const UsdFinding& finding, const std::string& file);

using sds_io::quoted;

/// Thrown inside the reader where the text cannot be followed any further; it ends as the last finding.
struct UsdSyntaxError {
    UsdFindingCode code{};
    std::size_t offset = 0;
    std::string detail;
};

}  // namespace sds_usda

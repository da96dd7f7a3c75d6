#pragma once

#include "qn_poly/poly_findings.h"

#include <cstdint>
#include <string>
#include <vector>

namespace sds_model {

/// What can be wrong with a file, and what the host's checker finds in its mesh. The message and severity of each are
/// in finding.cpp, or come from the checker; to_name() is its stable name for machines.
enum class FindingCode : std::uint8_t {
    // errors: the mesh would be meaningless, there is no cage
    unreadable_file,
    empty_file,
    not_obj,
    no_vertices,
    no_polygons,
    malformed_record,
    not_a_number,
    non_finite_number,
    number_overflow,
    missing_index,
    zero_index,
    index_before_start,
    vertex_index_out_of_range,
    uv_index_out_of_range,
    small_polygon,
    wrong_count,
    index_out_of_range,
    value_too_large,
    times_not_increasing,
    void_polygon,
    too_many_corners,
    malformed_tag,
    tag_index_out_of_range,
    tag_without_edge,
    tag_without_polygon,
    too_many_instances,
    // warnings: something was changed, dropped or looks wrong
    one_corner_polygon,
    two_corner_polygon,
    repeated_vertex,
    nonmanifold_edge,
    nonmanifold_vertex,
    opposite_winding,
    fractional_sharpness,
    negative_sharpness,
    fractional_corner,
    unkept_corner,
    unkept_hole,
    half_mapped_polygon,
    partly_colored,
    color_out_of_range,
    unusable_color,
    surplus_numbers,
    empty_index,
    uvs_without_points,
    trailing_zeros,
    name_not_utf8,
    ignored_weight,
    lost_crease,
    unkept_property,
    unknown_record,
    // notes
    unused_vertex,
    unkept_rule,
    ignored_tag,
    unused_record,
    unused_group,
    joined_groups,
    ignored_record,
};

inline constexpr std::size_t finding_code_count = static_cast<std::size_t>(FindingCode::ignored_record) + 1;

enum class Severity : std::uint8_t { error, warning, note };

Severity severity_of(FindingCode code);
const char* to_name(FindingCode code);
const char* message_of(FindingCode code);
const char* to_name(Severity severity);

/// Where and how a cause was first met.
struct FirstCase {
    std::string place;   ///< "file:line", or "file" for the file as a whole
    std::string detail;  ///< the offending token, index or element; may be empty
    std::string action;  ///< what was done; empty: the usual action of the code
};

/// One cause with the number of times it was met.
struct Finding {
    FindingCode code{};
    std::uint64_t count = 0;
    FirstCase first;
};

/// Findings of one file, bounded: one entry per code, in the order in which the codes were first recorded. Not
/// thread-safe.
class Findings {
public:
    /// Counts `times` cases of `code`. `describe` returns the FirstCase and is called for the first record of the code
    /// only, so that a million bad lines cost no strings.
    template <class Describe>
    void record(FindingCode code, Describe&& describe, std::uint64_t times = 1) {
        if (Finding* known = find(code))
            known->count += times;
        else if (times > 0)
            m_entries.push_back({code, times, describe()});
    }

    const std::vector<Finding>& get_entries() const { return m_entries; }
    bool has_errors() const;
    std::uint64_t count(FindingCode code) const;  ///< 0 when the code was never recorded

private:
    Finding* find(FindingCode code);

    std::vector<Finding> m_entries;
};

/// What was done about it: in this case, or as a rule.
const char* action_of(const Finding& finding);

/// One line without newline: "place: severity: message (detail), action; N cases, first here".
std::string to_text(const Finding& finding);

/// The program's code for what the host's checker found.
FindingCode to_finding_code(PolyFindingCode code, PolyArray array);

/// Adds the checker's findings; describe(code, place) returns the FirstCase of one, in the words of its file or arrays.
template <class Describe>
void add_mesh_findings(const PolyFindings& found, Findings& findings, Describe&& describe) {
    found.for_each([&](PolyFindingCode code) {
        const PolyPlace& place = found.first(code);
        findings.record(
            to_finding_code(code, place.array), [&] { return describe(code, place); }, found.count(code));
    });
}

}  // namespace sds_model

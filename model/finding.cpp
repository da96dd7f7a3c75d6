#include "model/finding.h"

#include "qn_poly/poly_findings.h"

#include <algorithm>
#include <iterator>

namespace sds_model {

namespace {

struct Row {
    FindingCode code;
    const char* name;
    Severity severity;
    const char* message;
    const char* action;
};

/// In the host checker's words.
constexpr Row in_words_of(FindingCode code, PolyFindingCode found) {
    const PolyFindingText& text = poly_finding_texts[static_cast<unsigned int>(found)];
    return {code, text.name, static_cast<Severity>(text.severity), text.message,
            text.severity == PolySeverity::error ? "" : text.action};
}

using enum FindingCode;
using enum Severity;

/// In the order of the codes.
constexpr Row rows[] = {
    {unreadable_file, "unreadable_file", error, "cannot read the file", ""},
    {empty_file, "empty_file", error, "the file is empty", ""},
    {not_obj, "not_obj", error, "not an OBJ file", ""},
    {no_vertices, "no_vertices", error, "no vertex (v record) in the file", ""},
    {no_polygons, "no_polygons", error, "no polygon (f record) in the file", ""},
    {malformed_record, "malformed_record", error, "malformed record", ""},
    {not_a_number, "not_a_number", error, "not a number", ""},
    {non_finite_number, "non_finite_number", error, "NaN or infinite number", ""},
    {number_overflow, "number_overflow", error, "number beyond single precision", ""},
    {missing_index, "missing_index", error, "missing index", ""},
    {zero_index, "zero_index", error, "index 0, the first is 1", ""},
    {index_before_start, "index_before_start", error, "relative index before the first record", ""},
    {vertex_index_out_of_range, "vertex_index_out_of_range", error, "vertex index out of range", ""},
    {uv_index_out_of_range, "uv_index_out_of_range", error, "UV index out of range", ""},
    in_words_of(small_polygon, PolyFindingCode::small_polygon),
    in_words_of(wrong_count, PolyFindingCode::wrong_count),
    in_words_of(index_out_of_range, PolyFindingCode::index_out_of_range),
    in_words_of(value_too_large, PolyFindingCode::value_too_large),
    in_words_of(times_not_increasing, PolyFindingCode::times_not_increasing),
    in_words_of(void_polygon, PolyFindingCode::void_polygon),
    {too_many_corners, "too_many_corners", error, "too many face-corners or vertices", ""},
    {malformed_tag, "malformed_tag", error, "malformed tag", ""},
    {tag_index_out_of_range, "tag_index_out_of_range", error, "tag on a vertex out of range", ""},
    {tag_without_edge, "tag_without_edge", error, "crease tag on an edge that no polygon has", ""},
    {tag_without_polygon, "tag_without_polygon", error, "hole tag on a polygon out of range", ""},
    {too_many_instances, "too_many_instances", error, "instancers with more places than are held", ""},
    {one_corner_polygon, "one_corner_polygon", warning, "polygon with less than two corners", "dropped"},
    {two_corner_polygon, "two_corner_polygon", warning, "polygon with two corners", "dropped"},
    in_words_of(repeated_vertex, PolyFindingCode::repeated_vertex),
    in_words_of(nonmanifold_edge, PolyFindingCode::nonmanifold_edge),
    in_words_of(nonmanifold_vertex, PolyFindingCode::nonmanifold_vertex),
    in_words_of(opposite_winding, PolyFindingCode::opposite_winding),
    {fractional_sharpness, "fractional_sharpness", warning, "edge of fractional sharpness", "made infinitely sharp"},
    {negative_sharpness, "negative_sharpness", warning, "sharpness below zero", "left smooth"},
    {fractional_corner, "fractional_corner", warning, "vertex of fractional sharpness", "made infinitely sharp"},
    {unkept_corner, "unkept_corner", warning, "sharp vertex of a surface that is not refined", "left as it was"},
    {unkept_hole, "unkept_hole", warning, "hole in a surface that is not refined", "filled"},
    in_words_of(half_mapped_polygon, PolyFindingCode::half_mapped_polygon),
    {partly_colored, "partly_colored", warning, "vertex without a color beside colored ones", "made white"},
    {color_out_of_range, "color_out_of_range", warning, "color outside 0 to 1", "clamped"},
    {unusable_color, "unusable_color", warning, "color that is no number", "made white"},
    {surplus_numbers, "surplus_numbers", warning, "more numbers than a record has", "ignored"},
    {empty_index, "empty_index", warning, "slash without an index behind it", "ignored"},
    {uvs_without_points, "uvs_without_points", warning, "UV index in a file without UV points", "ignored"},
    {trailing_zeros, "trailing_zeros", warning, "zero bytes at the end of the file", "ignored"},
    {name_not_utf8, "name_not_utf8", warning, "name that is not UTF-8", "read as Latin-1"},
    {ignored_weight, "ignored_weight", warning, "rational vertex weight other than 1", "ignored"},
    {lost_crease, "lost_crease", warning, "crease where there is no edge", "ignored"},
    {unkept_property, "unkept_property", warning, "property with NaN, infinite, huge or too many numbers", "left out"},
    {unknown_record, "unknown_record", warning, "unknown record", "skipped"},
    in_words_of(unused_vertex, PolyFindingCode::unused_vertex),
    {unkept_rule, "unkept_rule", note, "rule that the surface does not follow", "ignored"},
    {ignored_tag, "ignored_tag", note, "unknown tag", "ignored"},
    {unused_record, "unused_record", note, "record without a bearing on the surface", "ignored"},
    {unused_group, "unused_group", note, "groups of one material; materials make the shading groups", "not told apart"},
    {joined_groups, "joined_groups", note, "polygons in several groups at once", "made one group of that list"},
    {ignored_record, "ignored_record", note, "record that makes no polygon", "ignored"},
};
static_assert(std::size(rows) == finding_code_count);
static_assert(std::all_of(std::begin(rows), std::end(rows), [](const Row& row) {
    return static_cast<std::size_t>(row.code) == static_cast<std::size_t>(&row - rows);
}));

const Row& row_of(FindingCode code) { return rows[static_cast<std::size_t>(code)]; }

/// The code of what the host found in any array.
constexpr FindingCode codes_of_host[] = {
    no_polygons,       small_polygon,      too_many_corners,     wrong_count,         index_out_of_range,
    non_finite_number, value_too_large,    times_not_increasing, void_polygon,        repeated_vertex,
    nonmanifold_edge,  nonmanifold_vertex, opposite_winding,     half_mapped_polygon, unused_vertex,
};
static_assert(std::size(codes_of_host) == poly_finding_code_count);

}  // namespace

Severity severity_of(FindingCode code) { return row_of(code).severity; }

const char* to_name(FindingCode code) { return row_of(code).name; }

const char* message_of(FindingCode code) { return row_of(code).message; }

const char* action_of(const Finding& finding) {
    return finding.first.action.empty() ? row_of(finding.code).action : finding.first.action.c_str();
}

const char* to_name(Severity severity) { return poly_severity_names[static_cast<unsigned int>(severity)]; }

FindingCode to_finding_code(PolyFindingCode code, PolyArray array) {
    if (code == PolyFindingCode::index_out_of_range && array == PolyArray::polygons) return vertex_index_out_of_range;
    if (code == PolyFindingCode::index_out_of_range && array == PolyArray::uvs) return uv_index_out_of_range;
    return codes_of_host[static_cast<unsigned int>(code)];
}

bool Findings::has_errors() const {
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [](const Finding& f) { return severity_of(f.code) == Severity::error; });
}

std::uint64_t Findings::count(FindingCode code) const {
    const auto entry =
        std::find_if(m_entries.begin(), m_entries.end(), [code](const Finding& f) { return f.code == code; });
    return entry == m_entries.end() ? 0 : entry->count;
}

Finding* Findings::find(FindingCode code) {
    const auto entry =
        std::find_if(m_entries.begin(), m_entries.end(), [code](const Finding& f) { return f.code == code; });
    return entry == m_entries.end() ? nullptr : &*entry;
}

std::string to_text(const Finding& finding) {
    const Row& text = row_of(finding.code);
    std::string line = finding.first.place + ": " + to_name(text.severity) + ": " + text.message;
    if (!finding.first.detail.empty()) line += " (" + finding.first.detail + ")";
    if (const std::string action = action_of(finding); !action.empty()) line += ", " + action;
    if (finding.count > 1) line += "; " + std::to_string(finding.count) + " cases, first here";
    return line;
}

}  // namespace sds_model

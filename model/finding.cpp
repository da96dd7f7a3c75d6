#include "model/finding.h"

#include "qn_poly/poly_findings.h"

#include <algorithm>

namespace sds_model {

namespace {

struct CodeText {
    const char* name;
    Severity severity;
    const char* message;
    const char* action;
};

/// In the host checker's words.
CodeText words_of(PolyFindingCode code) {
    const PolyFindingText& text = poly_finding_text(code);
    return {text.name, static_cast<Severity>(text.severity), text.message,
            text.severity == PolySeverity::error ? "" : text.action};
}

CodeText text_of(FindingCode code) {
    using enum FindingCode;
    using enum Severity;
    switch (code) {
        case unreadable_file:
            return {"unreadable_file", error, "cannot read the file", ""};
        case empty_file:
            return {"empty_file", error, "the file is empty", ""};
        case not_obj:
            return {"not_obj", error, "not an OBJ file", ""};
        case no_vertices:
            return {"no_vertices", error, "no vertex (v record) in the file", ""};
        case no_polygons:
            return {"no_polygons", error, "no polygon (f record) in the file", ""};
        case malformed_record:
            return {"malformed_record", error, "malformed record", ""};
        case not_a_number:
            return {"not_a_number", error, "not a number", ""};
        case non_finite_number:
            return {"non_finite_number", error, "NaN or infinite number", ""};
        case number_overflow:
            return {"number_overflow", error, "number beyond single precision", ""};
        case missing_index:
            return {"missing_index", error, "missing index", ""};
        case zero_index:
            return {"zero_index", error, "index 0, the first is 1", ""};
        case index_before_start:
            return {"index_before_start", error, "relative index before the first record", ""};
        case vertex_index_out_of_range:
            return {"vertex_index_out_of_range", error, "vertex index out of range", ""};
        case uv_index_out_of_range:
            return {"uv_index_out_of_range", error, "UV index out of range", ""};
        case one_corner_polygon:
            return {"one_corner_polygon", error, "polygon with a single corner", ""};
        case too_many_corners:
            return {"too_many_corners", error, "too many face-corners or vertices", ""};
        case malformed_tag:
            return {"malformed_tag", error, "malformed tag", ""};
        case tag_index_out_of_range:
            return {"tag_index_out_of_range", error, "tag on a vertex out of range", ""};
        case tag_without_edge:
            return {"tag_without_edge", error, "crease tag on an edge that no polygon has", ""};
        case two_corner_polygon:
            return {"two_corner_polygon", warning, "polygon with two corners", "dropped"};
        case fractional_sharpness:
            return {"fractional_sharpness", warning, "edge of fractional sharpness", "made infinitely sharp"};
        case partly_coloured:
            return {"partly_coloured", warning, "vertex without a colour beside coloured ones", "made white"};
        case colour_out_of_range:
            return {"colour_out_of_range", warning, "colour outside 0 to 1", "clamped"};
        case ignored_weight:
            return {"ignored_weight", warning, "rational vertex weight other than 1", "ignored"};
        case unknown_record:
            return {"unknown_record", warning, "unknown record", "skipped"};
        case small_polygon:
            return words_of(PolyFindingCode::small_polygon);
        case wrong_count:
            return words_of(PolyFindingCode::wrong_count);
        case index_out_of_range:
            return words_of(PolyFindingCode::index_out_of_range);
        case value_too_large:
            return words_of(PolyFindingCode::value_too_large);
        case times_not_increasing:
            return words_of(PolyFindingCode::times_not_increasing);
        case repeated_vertex:
            return words_of(PolyFindingCode::repeated_vertex);
        case nonmanifold_edge:
            return words_of(PolyFindingCode::nonmanifold_edge);
        case nonmanifold_vertex:
            return words_of(PolyFindingCode::nonmanifold_vertex);
        case opposite_winding:
            return words_of(PolyFindingCode::opposite_winding);
        case half_mapped_polygon:
            return words_of(PolyFindingCode::half_mapped_polygon);
        case void_polygon:
            return words_of(PolyFindingCode::void_polygon);
        case unused_vertex:
            return words_of(PolyFindingCode::unused_vertex);
        case ignored_tag:
            return {"ignored_tag", note, "tag other than crease", "ignored"};
        case ignored_record:
            return {"ignored_record", note, "record that makes no polygon", "ignored"};
    }
    return {"unknown", error, "unknown finding", ""};
}

}  // namespace

Severity severity_of(FindingCode code) { return text_of(code).severity; }

const char* to_name(FindingCode code) { return text_of(code).name; }

const char* message_of(FindingCode code) { return text_of(code).message; }

const char* action_of(const Finding& finding) {
    return finding.first.action.empty() ? text_of(finding.code).action : finding.first.action.c_str();
}

const char* to_name(Severity severity) {
    switch (severity) {
        case Severity::error:
            return "error";
        case Severity::warning:
            return "warning";
        case Severity::note:
            return "note";
    }
    return "unknown";
}

bool Findings::has_errors() const {
    return std::any_of(entries_.begin(), entries_.end(),
                       [](const Finding& f) { return severity_of(f.code) == Severity::error; });
}

std::uint64_t Findings::count(FindingCode code) const {
    const auto entry =
        std::find_if(entries_.begin(), entries_.end(), [code](const Finding& f) { return f.code == code; });
    return entry == entries_.end() ? 0 : entry->count;
}

Finding* Findings::find(FindingCode code) {
    const auto entry =
        std::find_if(entries_.begin(), entries_.end(), [code](const Finding& f) { return f.code == code; });
    return entry == entries_.end() ? nullptr : &*entry;
}

std::string to_text(const Finding& finding) {
    const CodeText text = text_of(finding.code);
    std::string line = finding.first.place + ": " + to_name(text.severity) + ": " + text.message;
    if (!finding.first.detail.empty()) line += " (" + finding.first.detail + ")";
    if (const std::string action = action_of(finding); !action.empty()) line += ", " + action;
    if (finding.count > 1) line += "; " + std::to_string(finding.count) + " cases, first here";
    return line;
}

}  // namespace sds_model

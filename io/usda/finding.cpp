#include "io/usda/finding.h"

#include <algorithm>

namespace sds_usda {

namespace {

struct CodeText {
    const char* name;
    UsdSeverity severity;
    const char* message;
    const char* action;
};

CodeText text_of(UsdFindingCode code) {
    using enum UsdFindingCode;
    using enum UsdSeverity;
    switch (code) {
        case empty_file:
            return {"empty_file", error, "the file is empty", ""};
        case binary_file:
            return {"binary_file", error, "a binary USD file; convert it to text (.usda) first", ""};
        case not_usda:
            return {"not_usda", error, "not a USD text file: it does not begin with '#usda 1.0'", ""};
        case syntax:
            return {"syntax", error, "unexpected text", ""};
        case unterminated:
            return {"unterminated", error, "the end is missing", ""};
        case not_a_number:
            return {"not_a_number", error, "not a number", ""};
        case number_out_of_range:
            return {"number_out_of_range", error, "number beyond the range of its type", ""};
        case wrong_value:
            return {"wrong_value", error, "the value is not of its type", ""};
        case nested_too_deep:
            return {"nested_too_deep", error, "nested too deep", ""};
        case duplicate_prim:
            return {"duplicate_prim", error, "two prims of one path", ""};
        case no_mesh:
            return {"no_mesh", error, "no Mesh in the layer", ""};
        case missing_attribute:
            return {"missing_attribute", warning, "a Mesh lacks an attribute", "the mesh left out"};
        case wrong_attribute_type:
            return {"wrong_attribute_type", error, "attribute of a wrong type", ""};
        case unsupported_scheme:
            return {"unsupported_scheme", error, "subdivision scheme other than catmullClark, bilinear and none", ""};
        case non_finite_number:
            return {"non_finite_number", error, "NaN or infinite number", ""};
        case wrong_count:
            return {"wrong_count", error, "arrays that do not fit together", ""};
        case index_out_of_range:
            return {"index_out_of_range", error, "index out of range", ""};
        case too_many_elements:
            return {"too_many_elements", error, "more than 2^32 - 1 face-corners or vertices", ""};
        case composition_arc:
            return {"composition_arc", warning, "composition arc", "ignored; flatten first"};
        case negative_sharpness:
            return {"negative_sharpness", warning, "negative sharpness", "taken as smooth"};
        case name_not_utf8:
            return {"name_not_utf8", warning, "name that is not UTF-8", "taken for Latin-1"};
        case unknown_token:
            return {"unknown_token", warning, "value that the schema does not know", "the default taken"};
        case unknown_variant:
            return {"unknown_variant", warning, "selection of a variant that is not there", "no variant taken"};
        case blocked_sample:
            return {"blocked_sample", warning, "time sample None", "left out"};
        case repeated_value:
            return {"repeated_value", warning, "a second value for one property", "the last taken"};
        case changing_topology:
            return {"changing_topology", warning, "several time samples of what cannot move", "the first taken"};
        case bad_primvar:
            return {"bad_primvar", warning, "primvar that does not fit its mesh", "left out"};
        case bad_subset:
            return {"bad_subset", warning, "GeomSubset that does not fit its mesh", "left out"};
        case bad_transform:
            return {"bad_transform", warning, "transform operation that cannot be followed", "left out"};
        case bad_instancer:
            return {"bad_instancer", warning, "PointInstancer whose arrays do not fit together", "left out"};
        case ignored_override:
            return {"ignored_override", warning, "opinion about what an arc within the layer brings",
                    "ignored; flatten first"};
        case no_selection:
            return {"no_selection", note, "variant set without a selection", "no variant taken"};
        case unknown_schema:
            return {"unknown_schema", note, "prims of an unknown schema", "ignored"};
        case undefined_prim:
            return {"undefined_prim", note, "'over' of a prim that nothing defines", "ignored"};
        case ignored_spline:
            return {"ignored_spline", note, "spline", "ignored"};
        case ignored_normals:
            return {"ignored_normals", note, "normals", "ignored: they follow from the surface"};
        case ignored_attribute:
            return {"ignored_attribute", note, "property without a bearing on the surface", "ignored"};
        case ignored_primvar:
            return {"ignored_primvar", note, "primvar that is not constant on a prim that is no mesh",
                    "ignored: meshes below inherit constant ones"};
        case unused_primvar:
            return {"unused_primvar", note, "primvar of words", "ignored"};
        case held_primvar:
            return {"held_primvar", note, "primvar with time samples", "taken at the frame"};
    }
    return {"unknown", error, "unknown finding", ""};
}

bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0u) == 0x80u; }

}  // namespace

UsdSeverity severity_of(UsdFindingCode code) { return text_of(code).severity; }

const char* to_name(UsdFindingCode code) { return text_of(code).name; }
const char* message_of(UsdFindingCode code) { return text_of(code).message; }
const char* action_of(UsdFindingCode code) { return text_of(code).action; }

const char* to_name(UsdSeverity severity) {
    switch (severity) {
        case UsdSeverity::error:
            return "error";
        case UsdSeverity::warning:
            return "warning";
        case UsdSeverity::note:
            return "note";
    }
    return "unknown";
}

UsdFinding* UsdFindings::find(UsdFindingCode code) {
    const auto entry =
        std::find_if(m_entries.begin(), m_entries.end(), [code](const UsdFinding& f) { return f.code == code; });
    return entry == m_entries.end() ? nullptr : &*entry;
}

void UsdFindings::record_each(UsdFindingCode code, std::size_t offset, std::string detail) {
    std::size_t known = 0;
    for (UsdFinding& entry : m_entries) {
        if (entry.code != code) continue;
        if (entry.detail == detail || ++known == max_details) {
            ++entry.count;
            return;
        }
    }
    m_entries.push_back({code, 1, offset, 0, 0, std::move(detail)});
}

void UsdFindings::settle_places(std::string_view text) {
    std::stable_sort(m_entries.begin(), m_entries.end(),
                     [](const UsdFinding& a, const UsdFinding& b) { return a.offset + 1 < b.offset + 1; });
    PlaceWalker walker(text);
    for (UsdFinding& entry : m_entries) {
        if (entry.offset == whole_file) continue;
        walker.move_to(entry.offset);
        entry.line = walker.line;
        entry.column = walker.column;
    }
}

void PlaceWalker::move_to(std::size_t offset) {
    for (; at < offset && at < text.size(); ++at) {
        const bool ends_line = text[at] == '\n' || (text[at] == '\r' && text.substr(at + 1, 1) != "\n");
        if (ends_line) {
            ++line;
            column = 1;
        } else if (!is_continuation(text[at])) {
            ++column;
        }
    }
}

bool UsdFindings::has_errors() const {
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [](const UsdFinding& f) { return severity_of(f.code) == UsdSeverity::error; });
}

std::string to_text(const UsdFinding& finding, const std::string& file) {
    const CodeText text = text_of(finding.code);
    std::string line = file;
    if (finding.line != 0) line += ":" + std::to_string(finding.line) + ":" + std::to_string(finding.column);
    line += std::string(": ") + to_name(text.severity) + ": " + text.message;
    if (!finding.detail.empty()) line += " (" + finding.detail + ")";
    if (*text.action != '\0') line += std::string(", ") + text.action;
    if (finding.count > 1) line += "; " + std::to_string(finding.count) + " cases, first here";
    return line;
}

}  // namespace sds_usda

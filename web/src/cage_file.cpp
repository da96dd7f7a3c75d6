#include "web/src/cage_file.h"

#include "io/obj/read_obj.h"
#include "io/usda/scene.h"
#include "model/uv_join.h"
#include "web/src/usd_cage.h"

#include <cctype>

namespace sds_page {

namespace {

using namespace sds_model;

/// Stands for the file in places, which are shown without it.
const char* const file_name = "file";

std::string to_sentence(std::string text, const std::string& detail, const std::string& action, std::uint64_t count) {
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    if (!detail.empty()) text += " (" + detail + ")";
    if (!action.empty()) text += ": " + action;
    text += ".";
    if (count > 1) text += " " + std::to_string(count) + " cases, this is the first.";
    return text;
}

/// "file:12:3" as "line 12, column 3"; places that are no lines stay as they are.
std::string to_place(const std::string& place) {
    if (place == file_name) return {};
    const std::string head = std::string(file_name) + ":";
    if (!place.starts_with(head)) return place;
    const std::size_t colon = place.find(':', head.size());
    const std::string line = "line " + place.substr(head.size(), colon - head.size());
    return colon == std::string::npos ? line : line + ", column " + place.substr(colon + 1);
}

CageFile read_obj_cage(std::string_view text, bool is_refined) {
    sds_io::ReadObjResult read =
        sds_io::read_obj_text(text, file_name, {.fractional = FractionalSharpness::exact, .is_refined = is_refined});
    return {std::move(read.cage), to_notes(read.findings)};
}

Note to_note(const sds_usda::UsdFinding& finding) {
    // message (detail), action; what comes before and behind is said in other words here
    std::string text = to_text(finding, file_name);
    const std::string severity = std::string(": ") + to_name(severity_of(finding.code)) + ": ";
    text.erase(0, text.find(severity) + severity.size());
    if (const auto tail = text.rfind("; "); finding.count > 1 && tail != std::string::npos) text.erase(tail);
    Note note{static_cast<Severity>(severity_of(finding.code)), {}, to_sentence(text, {}, {}, finding.count)};
    if (finding.line != 0)
        note.place = "line " + std::to_string(finding.line) + ", column " + std::to_string(finding.column);
    return note;
}

CageFile read_usda_cage(std::string_view text, bool is_refined) {
    const sds_usda::UsdSceneResult read = sds_usda::read_usd_scene(std::string(text));
    CageFile file;
    for (const sds_usda::UsdFinding& finding : read.findings.get_entries()) file.notes.push_back(to_note(finding));
    if (!read.scene) return file;
    Findings findings;
    file.cage = make_cage(*read.scene, is_refined, file_name, findings);
    for (Note& note : to_notes(findings)) file.notes.push_back(std::move(note));
    return file;
}

}  // namespace

std::vector<Note> to_notes(const Findings& findings) {
    std::vector<Note> notes;
    for (const Finding& finding : findings.get_entries())
        notes.push_back(
            {severity_of(finding.code), to_place(finding.first.place),
             to_sentence(message_of(finding.code), finding.first.detail, action_of(finding), finding.count)});
    return notes;
}

CageFile read_cage(std::string_view text, CageFormat format, bool is_refined) {
    CageFile file = format == CageFormat::obj ? read_obj_cage(text, is_refined) : read_usda_cage(text, is_refined);
    if (file.cage) join_uvs(*file.cage);
    return file;
}

}  // namespace sds_page

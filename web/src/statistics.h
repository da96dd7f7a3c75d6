#pragma once

#include "web/src/json_text.h"
#include "web/src/session.h"

namespace sds_page {

/// One object: counts, classes, levels, box, area, bytes, seconds of a surface that was built.
void put_statistics(const Session& session, JsonText& json);
/// One array of {severity, place, sentence}.
void put_notes(const std::vector<Note>& notes, JsonText& json);

}  // namespace sds_page

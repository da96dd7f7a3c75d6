#include "io/obj/read_mtl.h"

#include "io/input_error.h"
#include "io/obj/obj_cursor.h"
#include "io/read_file.h"
#include "io/utf8.h"

#include <filesystem>

namespace sds_io {

namespace {

/// `map_Kd -s 1 1 1 file name.png`: a path that follows options is the last word, for it is unknown how many words an
/// option takes; one that follows none may hold blanks.
std::string read_texture_path(ObjCursor& cursor) {
    std::string path(cursor.next_token());
    const bool has_options = path.starts_with('-');
    for (std::string_view token = cursor.next_token(); !token.empty(); token = cursor.next_token())
        path = has_options ? std::string(token) : path + ' ' + std::string(token);
    return path;
}

}  // namespace

void read_mtl(const std::string& path, std::map<std::string, Material>& materials) {
    std::string text;
    if (const std::string reason = read_file(path, text); !reason.empty()) throw InputError(path, reason);
    Material ignored;
    Material* material = &ignored;
    ObjCursor cursor(text);
    while (cursor.next_record()) {
        const std::string_view keyword = cursor.next_token();
        if (keyword == "newmtl") {
            std::string name = cursor.rest_of_record();
            if (!is_utf8(name)) name = from_latin1(name);
            const auto [entry, is_new] = materials.try_emplace(std::move(name));
            material = is_new ? &entry->second : &ignored;
        } else if (keyword == "Kd") {
            std::size_t count = 0;
            for (std::string_view token = cursor.next_token(); !token.empty() && count < 3; token = cursor.next_token())
                if (parse_float(token, material->diffuse[count++]) != NumberState::ok)
                    throw InputError(path + ":" + std::to_string(cursor.get_line()),
                                     "Kd takes numbers, not " + quoted(token));
            if (count == 1) material->diffuse[1] = material->diffuse[2] = material->diffuse[0];
        } else if (keyword == "map_Kd") {
            const std::string texture = read_texture_path(cursor);
            material->texture = (std::filesystem::path(path).parent_path() / texture).string();
        }
    }
}

}  // namespace sds_io

#include "io/obj/obj_records.h"

#include "io/obj/obj_cursor.h"
#include "io/utf8.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace sds_io {

void SkippedKinds::add(std::string_view name, std::uint32_t at) {
    constexpr std::size_t most_names = 8;
    if (count++ == 0) line = at;
    if (names.size() == most_names || name == latest) return;
    latest = name;
    std::string text = quoted(name);
    if (std::find(names.begin(), names.end(), text) == names.end()) names.push_back(std::move(text));
}

std::string SkippedKinds::list() const {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

namespace {

constexpr std::uint8_t full_channel = 255;

class RecordReader {
public:
    RecordReader(std::string_view text, const std::string& name, const ReadObjOptions& options, Findings& findings)
        : m_name(name), m_options(options), m_findings(findings), m_cursor(text) {}

    ObjRecords read() {
        while (!m_records.too_many && m_cursor.next_record()) read_record(m_cursor.next_token());
        return std::move(m_records);
    }

private:
    void read_record(std::string_view keyword);
    void read_vertex();
    void read_color(const std::array<float, 3>& color, bool is_sound);
    void read_group(GroupTable& table);
    void read_libraries();
    void read_uv_point();
    void read_polygon();
    bool read_corner(std::string_view token);
    bool read_index(std::string_view& text, std::size_t record_count, std::uint32_t& index);
    bool read_optional_index(std::string_view& text, std::size_t record_count, std::uint32_t& index);
    void read_tag();
    /// Vertices, handed to add_vertex(how many came before, vertex), then one sharpness for all tags or one each.
    template <class Tag, class AddVertex>
    void read_sharp_tag(std::vector<Tag>& tags, std::size_t int_count, std::size_t float_count,
                        const AddVertex& add_vertex);
    void read_crease(std::size_t int_count, std::size_t float_count);
    void read_corners(std::size_t int_count, std::size_t float_count);
    void read_holes(std::size_t int_count);
    void read_rule(std::string_view tag);
    bool read_tag_integer(std::string_view token, std::int64_t& value);
    void check_value_count(std::size_t announced, std::size_t found);
    float read_sharpness(std::string_view token);
    bool read_number(std::string_view token, float& value);

    template <class Detail>
    void record(FindingCode code, Detail&& detail, std::uint64_t times = 1) {
        const auto describe = [&] {
            return FirstCase{m_name + ":" + std::to_string(m_cursor.get_line()), detail(), {}};
        };
        m_findings.record(code, describe, times);
    }
    void record_token(FindingCode code, std::string_view token) {
        record(code, [&] { return quoted(token); });
    }

    const std::string& m_name;
    const ReadObjOptions m_options;
    Findings& m_findings;
    ObjCursor m_cursor;
    ObjRecords m_records;
    ControlCage& m_cage = m_records.cage;
};

void RecordReader::read_record(std::string_view keyword) {
    constexpr std::array<std::string_view, 8> unused = {"vn", "s", "o", "vp", "usemap", "maplib", "lod", "bevel"};
    constexpr std::array<std::string_view, 22> freeform = {
        "l",    "p",    "deg", "bmat", "step", "cstype", "curv", "curv2", "surf",  "parm",  "trim",
        "hole", "scrv", "sp",  "end",  "con",  "mg",     "call", "csh",   "ctech", "stech", "shadow_obj"};
    const auto is_in = [keyword](const auto& list) {
        return std::find(list.begin(), list.end(), keyword) != list.end();
    };
    if (keyword == "v")
        read_vertex();
    else if (keyword == "f")
        read_polygon();
    else if (keyword == "vt")
        read_uv_point();
    else if (keyword == "t")
        read_tag();
    else if (keyword == "g")
        read_group(m_records.groups);
    else if (keyword == "usemtl")
        read_group(m_records.materials);
    else if (keyword == "mtllib")
        read_libraries();
    else if (is_in(freeform))
        m_records.ignored_records.add(keyword, m_cursor.get_line());
    else if (is_in(unused))
        m_records.unused_records.add(keyword, m_cursor.get_line());
    else
        m_records.unknown_records.add(keyword, m_cursor.get_line());
}

bool RecordReader::read_number(std::string_view token, float& value) {
    switch (parse_float(token, value)) {
        case NumberState::ok:
            return true;
        case NumberState::not_a_number:
            record_token(FindingCode::not_a_number, token);
            break;
        case NumberState::not_finite:
            record_token(FindingCode::non_finite_number, token);
            break;
        case NumberState::overflow:
            record_token(FindingCode::number_overflow, token);
            break;
    }
    value = 0.0f;
    return false;
}

void RecordReader::read_group(GroupTable& table) {
    std::string name = m_cursor.rest_of_record();
    if (!is_utf8(name)) {
        record_token(FindingCode::name_not_utf8, name);
        name = from_latin1(name);
    }
    if (&table == &m_records.groups && name.find(' ') != std::string::npos)
        record(FindingCode::joined_groups, [&] { return quoted(name); });
    table.select(name);
}

void RecordReader::read_libraries() {
    for (std::string_view name = m_cursor.next_token(); !name.empty(); name = m_cursor.next_token())
        m_records.material_libraries.emplace_back(name);
}

void RecordReader::read_vertex() {
    std::array<float, 3> position{}, rest{};
    bool is_rest_sound = true;
    std::size_t count = 0;
    for (std::string_view token = m_cursor.next_token(); !token.empty(); token = m_cursor.next_token(), ++count) {
        if (count < 3)
            read_number(token, position[count]);
        else if (count < 6)
            is_rest_sound &= parse_float(token, rest[count - 3]) == NumberState::ok;
    }
    if (count < 3)
        record(FindingCode::malformed_record,
               [&] { return "v takes x y z [w] or x y z r g b, not " + std::to_string(count) + " numbers"; });
    if (count == 4 && !(is_rest_sound && rest[0] == 1.0f))
        record(FindingCode::ignored_weight, [&] { return "weight " + std::to_string(rest[0]); });
    if (count == 5 || count > 6)
        record(FindingCode::surplus_numbers,
               [&] { return "v of " + std::to_string(count) + ", the first three hold"; });
    if (count == 6)
        read_color(rest, is_rest_sound);
    else if (m_cage.has_colors()) {
        m_cage.vertex_colors.insert(m_cage.vertex_colors.end(), 4, full_channel);
        record(FindingCode::partly_colored, [] { return std::string("no color here"); });
    }
    m_cage.positions.insert(m_cage.positions.end(), position.begin(), position.end());
    m_records.too_many |= m_cage.get_vertex_count() > m_options.max_corners;
}

void RecordReader::read_color(const std::array<float, 3>& color, bool is_sound) {
    if (!m_cage.has_colors() && !m_cage.positions.empty()) {
        m_cage.vertex_colors.assign(m_cage.get_vertex_count() * 4, full_channel);
        record(
            FindingCode::partly_colored, [] { return std::string("the first color is here"); },
            m_cage.get_vertex_count());
    }
    if (!is_sound) record(FindingCode::unusable_color, [] { return std::string(); });
    for (const float channel : is_sound ? color : std::array<float, 3>{1.0f, 1.0f, 1.0f}) {
        if (!(channel >= 0.0f && channel <= 1.0f))
            record(FindingCode::color_out_of_range, [&] { return std::to_string(channel); });
        m_cage.vertex_colors.push_back(
            static_cast<std::uint8_t>(std::lround(std::clamp(channel, 0.0f, 1.0f) * 255.0f)));
    }
    m_cage.vertex_colors.push_back(full_channel);
}

void RecordReader::read_uv_point() {
    std::array<float, 3> uv{};
    std::size_t count = 0;
    for (std::string_view token = m_cursor.next_token(); !token.empty(); token = m_cursor.next_token(), ++count)
        if (count < uv.size()) read_number(token, uv[count]);
    if (count == 0)
        record(FindingCode::malformed_record, [] { return std::string("vt takes u [v [w]], not 0 numbers"); });
    if (count > uv.size())
        record(FindingCode::surplus_numbers,
               [&] { return "vt of " + std::to_string(count) + ", the first three hold"; });
    m_cage.uv_points.insert(m_cage.uv_points.end(), uv.begin(), uv.end());
    m_records.too_many |= m_cage.get_uv_count() > m_options.max_corners;
}

/// Takes one index from the front of `text`, 1-based or relative to the `record_count` records so far, as a 0-based
/// one. Records that follow may still make it valid, so only the end of the file tells; a number too large for any file
/// comes out as 0xFFFFFFFE.
bool RecordReader::read_index(std::string_view& text, std::size_t record_count, std::uint32_t& index) {
    const std::string_view whole = text;
    std::int64_t number = 0;
    if (text.empty() || text.front() == '/') {
        record(FindingCode::missing_index, [] { return std::string("nothing where an index belongs"); });
        return false;
    }
    if (!take_integer(text, number)) {
        record_token(FindingCode::not_a_number, whole);
        return false;
    }
    if (number == 0) {
        record_token(FindingCode::zero_index, whole);
        return false;
    }
    if (number < 0) number += static_cast<std::int64_t>(record_count) + 1;
    if (number < 1) {
        record(FindingCode::index_before_start,
               [&] { return quoted(whole) + " after " + std::to_string(record_count) + " records"; });
        return false;
    }
    constexpr std::int64_t beyond_all = 0xFFFFFFFE;
    index = static_cast<std::uint32_t>(std::min(number - 1, beyond_all));
    return true;
}

/// The index behind a slash, which may be missing; `index` stays as it is then. An index relative to no records at all
/// comes out as one beyond all, for the end of the file to judge.
bool RecordReader::read_optional_index(std::string_view& text, std::size_t record_count, std::uint32_t& index) {
    if (text.empty()) {
        record(FindingCode::empty_index, [] { return std::string(); });
        return true;
    }
    std::int64_t number = 0;
    if (std::string_view rest = text; record_count == 0 && take_integer(rest, number) && number < 0) {
        text = rest;
        index = 0xFFFFFFFE;
        return true;
    }
    return read_index(text, record_count, index);
}

/// Appends the face-corner that `token` (v, v/t, v//n or v/t/n) describes. A normal has no use here; it only has to be
/// an index.
bool RecordReader::read_corner(std::string_view token) {
    const std::string_view whole = token;
    std::uint32_t vertex = 0, uv = unmapped_corner;
    if (!read_index(token, m_cage.get_vertex_count(), vertex)) return false;
    const auto take_slash = [&token] {
        const bool slash = token.starts_with('/');
        token.remove_prefix(slash ? 1 : 0);
        return slash;
    };
    if (take_slash()) {
        if (!token.starts_with('/') && !read_optional_index(token, m_cage.get_uv_count(), uv)) return false;
        std::uint32_t normal = 0;
        if (take_slash() && !read_optional_index(token, unmapped_corner, normal)) return false;
    }
    if (!token.empty()) {
        record_token(FindingCode::not_a_number, whole);
        return false;
    }
    if (uv != unmapped_corner && m_records.mapped_corners++ == 0) m_records.first_mapped_line = m_cursor.get_line();
    m_cage.polygon_indices.push_back(vertex);
    m_cage.uv_indices.push_back(uv);
    return true;
}

void RecordReader::read_polygon() {
    ++m_records.polygon_records;
    const std::size_t first = m_cage.get_corner_count();
    bool good = true;
    std::size_t count = 0;
    for (std::string_view token = m_cursor.next_token(); !token.empty(); token = m_cursor.next_token(), ++count)
        good &= read_corner(token);
    m_records.too_many |= m_cage.get_corner_count() > m_options.max_corners;
    if (good && count >= 3) {
        m_cage.polygon_counts.push_back(static_cast<std::uint32_t>(count));
        m_records.polygon_lines.push_back(m_cursor.get_line());
        m_records.materials.assign_polygon();
        m_records.groups.assign_polygon();
        return;
    }
    if (good && count <= 2) {
        const bool has_edge = count == 2;
        record(has_edge ? FindingCode::two_corner_polygon : FindingCode::one_corner_polygon,
               [] { return std::string(); });
        for (std::size_t c = first; c < m_cage.get_corner_count(); ++c)
            m_records.dropped_corners.push_back({m_cursor.get_line(), m_cage.polygon_indices[c], m_cage.uv_indices[c]});
    }
    m_records.dropped_polygons.push_back(m_records.polygon_records - 1);
    m_cage.polygon_indices.resize(first);
    m_cage.uv_indices.resize(first);
}

/// A tag is NAME INTS/FLOATS/STRINGS and then as many values as these three counts say.
void RecordReader::read_tag() {
    const std::string_view tag = m_cursor.next_token();
    const std::string_view counts = m_cursor.next_token();
    std::array<std::int64_t, 3> sizes{};
    std::string_view rest = counts;
    const auto take_size = [&](std::int64_t& size) {
        return take_integer(rest, size) && size >= 0 && size <= m_options.max_corners;
    };
    const auto take_slash = [&rest] {
        const bool slash = rest.starts_with('/');
        rest.remove_prefix(slash ? 1 : 0);
        return slash;
    };
    if (!(take_size(sizes[0]) && take_slash() && take_size(sizes[1]) && take_slash() && take_size(sizes[2]) &&
          rest.empty())) {
        record(FindingCode::malformed_tag, [&] { return "INTS/FLOATS/STRINGS expected, not " + quoted(counts); });
        return;
    }
    const auto [ints, floats, strings] = sizes;
    const auto expect = [&](bool is_right, const char* shape) {
        if (!is_right) record(FindingCode::malformed_tag, [&] { return shape + (", not " + quoted(counts)); });
        return is_right;
    };
    if (tag == "crease") {
        if (expect(ints >= 2 && (floats == 1 || floats == ints - 1) && strings == 0,
                   "a crease has two or more vertices and one sharpness for all or for each edge"))
            read_crease(static_cast<std::size_t>(ints), static_cast<std::size_t>(floats));
        return;
    }
    if (tag == "corner") {
        if (expect(ints >= 1 && (floats == 1 || floats == ints) && strings == 0,
                   "a corner has one or more vertices and one sharpness for all or for each"))
            read_corners(static_cast<std::size_t>(ints), static_cast<std::size_t>(floats));
        return;
    }
    if (tag == "hole") {
        if (expect(ints >= 1 && floats == 0 && strings == 0, "a hole has one or more polygons"))
            read_holes(static_cast<std::size_t>(ints));
        return;
    }
    if ((tag == "interpolateboundary" && counts == "1/0/0") ||
        ((tag == "creasemethod" || tag == "smoothtriangles") && counts == "0/0/1")) {
        read_rule(tag);
        return;
    }
    m_records.ignored_tags.add(tag, m_cursor.get_line());
    std::int64_t count = 0;
    while (!m_cursor.next_token().empty()) ++count;
    if (count != sizes[0] + sizes[1] + sizes[2])
        record(FindingCode::malformed_tag,
               [&] { return quoted(counts) + " announced, " + std::to_string(count) + " values found"; });
}

bool RecordReader::read_tag_integer(std::string_view token, std::int64_t& value) {
    std::string_view rest = token;
    if (take_integer(rest, value) && rest.empty()) return true;
    record_token(FindingCode::not_a_number, token);
    return false;
}

void RecordReader::check_value_count(std::size_t announced, std::size_t found) {
    if (found != announced)
        record(FindingCode::malformed_tag,
               [&] { return std::to_string(announced) + " values announced, " + std::to_string(found) + " found"; });
}

template <class Tag, class AddVertex>
void RecordReader::read_sharp_tag(std::vector<Tag>& tags, std::size_t int_count, std::size_t float_count,
                                  const AddVertex& add_vertex) {
    const std::size_t first = tags.size();
    std::size_t count = 0;
    for (std::string_view token = m_cursor.next_token(); !token.empty(); token = m_cursor.next_token(), ++count) {
        if (count < int_count) {
            std::int64_t vertex = 0;
            read_tag_integer(token, vertex);
            add_vertex(count, vertex);
        } else if (count < int_count + float_count) {
            const float sharpness = read_sharpness(token);
            const std::size_t tag = first + count - int_count;
            const std::size_t last = float_count == 1 ? tags.size() : tag + 1;
            for (std::size_t i = tag; i < last; ++i) tags[i].sharpness = sharpness;
        }
    }
    check_value_count(int_count + float_count, count);
}

void RecordReader::read_corners(std::size_t int_count, std::size_t float_count) {
    read_sharp_tag(m_records.corners, int_count, float_count, [this](std::size_t, std::int64_t vertex) {
        m_records.corners.push_back({m_cursor.get_line(), vertex, 0.0f});
    });
}

void RecordReader::read_holes(std::size_t int_count) {
    std::size_t count = 0;
    for (std::string_view token = m_cursor.next_token(); !token.empty(); token = m_cursor.next_token(), ++count) {
        std::int64_t polygon = 0;
        if (read_tag_integer(token, polygon)) m_records.holes.push_back({m_cursor.get_line(), polygon});
    }
    check_value_count(int_count, count);
}

/// A rule for the whole surface, of one value. Values that are not known are ignored with their tag.
void RecordReader::read_rule(std::string_view tag) {
    const std::string_view value = m_cursor.next_token();
    check_value_count(1, value.empty() ? 0 : m_cursor.next_token().empty() ? 1 : 2);
    using Borders = CageRules::Borders;
    CageRules& rules = m_cage.rules;
    bool is_known = true, needs_refinement = true;
    if (tag == "interpolateboundary") {
        is_known = value == "0" || value == "1" || value == "2";
        needs_refinement = value == "0";
        if (is_known && (!needs_refinement || m_options.is_refined))
            rules.borders = value == "0" ? Borders::none : value == "1" ? Borders::edges_and_corners : Borders::edges;
    } else if (tag == "creasemethod") {
        is_known = value == "normal" || value == "uniform" || value == "chaikin";
        needs_refinement = rules.chaikin = value == "chaikin";
    } else {
        is_known = value == "catmark" || value == "smooth";
        needs_refinement = rules.smooth_triangles = value == "smooth";
    }
    if (!is_known)
        m_records.ignored_tags.add(tag, m_cursor.get_line());
    else if (needs_refinement && !m_options.is_refined)
        m_records.unkept_rules.add(tag, m_cursor.get_line());
}

void RecordReader::read_crease(std::size_t int_count, std::size_t float_count) {
    std::int64_t previous = 0;
    read_sharp_tag(m_records.creases, int_count, float_count, [&](std::size_t count, std::int64_t vertex) {
        if (count > 0) m_records.creases.push_back({m_cursor.get_line(), previous, vertex, 0.0f});
        previous = vertex;
    });
}

/// A number that may be infinite but not NaN.
float RecordReader::read_sharpness(std::string_view token) {
    float sharpness = 0.0f;
    if (parse_float(token, sharpness) == NumberState::not_finite && !std::isnan(sharpness)) return sharpness;
    read_number(token, sharpness);
    return sharpness;
}

}  // namespace

ObjRecords read_obj_records(std::string_view text, const std::string& name, const ReadObjOptions& options,
                            Findings& findings) {
    return RecordReader(text, name, options, findings).read();
}

}  // namespace sds_io

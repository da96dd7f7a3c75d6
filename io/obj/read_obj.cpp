#include "io/obj/read_obj.h"

#include "io/gzip.h"
#include "io/obj/obj_records.h"
#include "io/quoted.h"
#include "io/read_file.h"
#include "model/array_view.h"
#include "model/finding.h"
#include "qn_poly/poly_check.h"
#include "qn_poly/poly_edge_buckets.h"

#include <algorithm>
#include <numeric>
#include <span>

namespace sds_io {

namespace {

/// What a file is that starts with the mark of another kind of file; empty for any other text.
std::string_view format_of(std::string_view text) {
    struct Mark {
        std::string_view start, format;
    };
    constexpr Mark marks[] = {{"ply\n", "a PLY file"},         {"ply\r", "a PLY file"},
                              {"OFF", "an OFF file"},          {"solid ", "an STL file"},
                              {"Kaydara FBX", "an FBX file"},  {"; FBX", "an FBX file"},
                              {"glTF", "a glTF file"},         {"{", "a JSON file"},
                              {"#usda", "a USD file"},         {"PXR-USDC", "a USD file"},
                              {"Ogawa", "an Alembic file"},    {"<?xml", "an XML file"},
                              {"\x89PNG", "a PNG picture"},    {"PK\x03\x04", "a ZIP archive"},
                              {"newmtl", "a material library"}};
    for (const Mark& mark : marks)
        if (text.starts_with(mark.start)) return mark.format;
    return {};
}

std::string out_of_range(std::uint32_t index, std::size_t count) {
    return "index " + std::to_string(std::uint64_t{index} + 1) + " of " + std::to_string(count);
}

/// Checks the records of a file as one mesh and finishes its cage.
class MeshChecker {
public:
    MeshChecker(ObjRecords& records, const std::string& name, const ReadObjOptions& options, Findings& findings)
        : m_records(records), m_name(name), m_options(options), m_findings(findings) {}

    void check_presence();
    void drop_uvs_without_points();
    void check_polygons();
    void check_tags();
    void report_skipped_kinds();

    // after the checks, without errors
    void settle_uvs();
    void settle_groups();
    void report_unused_groups();
    void set_creases();
    void set_corners();
    void set_holes();

private:
    FirstCase describe(PolyFindingCode code, const PolyPlace& place) const;
    FractionalSharpness fractional() const {
        const bool is_exact = m_options.fractional == FractionalSharpness::exact;
        return is_exact && !m_options.is_refined ? FractionalSharpness::harden : m_options.fractional;
    }
    std::uint32_t first_corner(std::uint32_t polygon) const;

    template <class Detail>
    void record(FindingCode code, std::uint32_t line, Detail&& detail) {
        m_findings.record(code, [&] { return FirstCase{m_name + ":" + std::to_string(line), detail(), {}}; });
    }

    ObjRecords& m_records;
    ControlCage& m_cage = m_records.cage;
    const std::string& m_name;
    const ReadObjOptions& m_options;
    Findings& m_findings;
};

void MeshChecker::check_presence() {
    std::string hint;
    if (m_records.unknown_records.count > 0)
        hint = "line " + std::to_string(m_records.unknown_records.line) + " begins with " +
               m_records.unknown_records.names.front();
    const auto record_file = [this](FindingCode code, const std::string& detail) {
        m_findings.record(code, [&] { return FirstCase{m_name, detail, {}}; });
    };
    if (m_records.too_many)
        record_file(FindingCode::too_many_corners, "at most " + std::to_string(m_options.max_corners) + " of each");
    else if (m_cage.positions.empty() && m_records.polygon_records == 0)
        record_file(FindingCode::not_obj, hint);
    else if (m_cage.positions.empty())
        record_file(FindingCode::no_vertices, hint);
    else if (m_cage.polygon_counts.empty() && !m_findings.has_errors())
        record_file(FindingCode::no_polygons, hint);
}

/// Where the host's checker found something, in terms of the file.
FirstCase MeshChecker::describe(PolyFindingCode code, const PolyPlace& place) const {
    constexpr std::uint32_t none = 0xFFFFFFFF;
    const std::string line = place.polygon == none ? "" : ":" + std::to_string(m_records.polygon_lines[place.polygon]);
    std::string detail;
    if (code == PolyFindingCode::index_out_of_range) {
        const std::size_t count = place.array == PolyArray::uvs ? m_cage.get_uv_count() : m_cage.get_vertex_count();
        detail = out_of_range(place.item, count);
    } else if (code == PolyFindingCode::nonmanifold_edge || code == PolyFindingCode::opposite_winding) {
        const std::uint32_t first = first_corner(place.polygon), count = m_cage.polygon_counts[place.polygon];
        const std::uint32_t next = first + (place.corner - first + 1) % count;
        detail = "edge of vertices " + std::to_string(m_cage.polygon_indices[place.corner] + 1) + " and " +
                 std::to_string(m_cage.polygon_indices[next] + 1);
    } else if (place.item != none) {
        detail = place.array == PolyArray::uvs ? "UV " : "vertex ";
        detail += std::to_string(place.item + 1);
    }
    return {m_name + line, detail, {}};
}

void MeshChecker::drop_uvs_without_points() {
    if (!m_cage.uv_points.empty() || m_records.mapped_corners == 0) return;
    const auto describe = [this] {
        return FirstCase{m_name + ":" + std::to_string(m_records.first_mapped_line), {}, {}};
    };
    m_findings.record(FindingCode::uvs_without_points, describe, m_records.mapped_corners);
    m_records.mapped_corners = 0;
    std::fill(m_cage.uv_indices.begin(), m_cage.uv_indices.end(), unmapped_corner);
    for (DroppedCorner& corner : m_records.dropped_corners) corner.uv = unmapped_corner;
}

void MeshChecker::check_polygons() {
    const auto record_found = [this](const PolyFindings& found) {
        add_mesh_findings(found, m_findings,
                          [this](PolyFindingCode code, const PolyPlace& place) { return describe(code, place); });
    };
    if (m_cage.polygon_counts.empty()) return;
    PolyFindings mesh, uvs;
    const auto counts = view_of(m_cage.polygon_counts), indices = view_of(m_cage.polygon_indices);
    const auto vertex_count = static_cast<std::uint32_t>(m_cage.get_vertex_count());
    poly_check_vectors(points_view(m_cage.positions), vertex_count, PolyArray::positions, mesh);
    if (poly_check_polygons(vertex_count, counts, indices, mesh)) poly_check_edges(vertex_count, counts, indices, mesh);
    poly_check_uvs(points_view(m_cage.uv_points), view_of(m_cage.uv_indices), counts, uvs);
    record_found(mesh);
    record_found(uvs);

    for (const DroppedCorner& corner : m_records.dropped_corners) {
        if (corner.vertex >= vertex_count)
            record(FindingCode::vertex_index_out_of_range, corner.line,
                   [&] { return out_of_range(corner.vertex, vertex_count); });
        if (corner.uv != unmapped_corner && corner.uv >= m_cage.get_uv_count())
            record(FindingCode::uv_index_out_of_range, corner.line,
                   [&] { return out_of_range(corner.uv, m_cage.get_uv_count()); });
    }
}

void MeshChecker::check_tags() {
    const auto count = static_cast<std::int64_t>(m_cage.get_vertex_count());
    const auto check = [this](std::int64_t index, std::int64_t of, const char* what, FindingCode code,
                              std::uint32_t line) {
        if (index < 0 || index >= of)
            record(code, line, [&] {
                return std::string(what) + " " + std::to_string(index) + ", 0-based, of " + std::to_string(of);
            });
    };
    for (const CreaseTag& tag : m_records.creases)
        for (const std::int64_t vertex : {tag.a, tag.b})
            check(vertex, count, "vertex", FindingCode::tag_index_out_of_range, tag.line);
    for (const CornerTag& tag : m_records.corners)
        check(tag.vertex, count, "vertex", FindingCode::tag_index_out_of_range, tag.line);
    const auto polygons = static_cast<std::int64_t>(m_records.polygon_records);
    for (const HoleTag& tag : m_records.holes)
        check(tag.polygon, polygons, "polygon", FindingCode::tag_without_polygon, tag.line);
}

void MeshChecker::report_skipped_kinds() {
    const auto report = [this](FindingCode code, const SkippedKinds& kinds) {
        const auto describe = [&] { return FirstCase{m_name + ":" + std::to_string(kinds.line), kinds.list(), {}}; };
        m_findings.record(code, describe, kinds.count);
    };
    // A file of another kind has no other records.
    if (m_findings.count(FindingCode::not_obj) == 0) report(FindingCode::unknown_record, m_records.unknown_records);
    report(FindingCode::unused_record, m_records.unused_records);
    report(FindingCode::ignored_record, m_records.ignored_records);
    report(FindingCode::ignored_tag, m_records.ignored_tags);
    report(FindingCode::unkept_rule, m_records.unkept_rules);
}

void MeshChecker::settle_uvs() {
    if (m_records.mapped_corners == 0) {
        m_cage.uv_points.clear();
        m_cage.uv_indices.clear();
        return;
    }
    std::size_t first = 0;
    for (std::size_t p = 0; p < m_cage.get_polygon_count(); first += m_cage.polygon_counts[p++]) {
        const std::span corners(m_cage.uv_indices.data() + first, m_cage.polygon_counts[p]);
        const auto unmapped = static_cast<std::size_t>(std::count(corners.begin(), corners.end(), unmapped_corner));
        if (unmapped == 0 || unmapped == corners.size()) continue;
        std::fill(corners.begin(), corners.end(), unmapped_corner);
    }
}

void MeshChecker::settle_groups() {
    const bool has_materials = m_records.materials.was_selected();
    if (has_materials && m_records.groups.was_selected()) report_unused_groups();
    GroupTable& groups = has_materials ? m_records.materials : m_records.groups;
    m_cage.polygon_groups = std::move(groups.get_polygons());
    m_cage.group_names = std::move(groups.get_names());
}

/// Groups that no material tells apart.
void MeshChecker::report_unused_groups() {
    constexpr std::uint32_t none = 0xFFFFFFFF;
    const std::vector<std::uint32_t>&materials = m_records.materials.get_polygons(),
          &groups = m_records.groups.get_polygons();
    std::vector<std::uint32_t> group_of(m_records.materials.get_names().size(), none);
    for (std::size_t p = 0; p < materials.size(); ++p) {
        std::uint32_t& group = group_of[materials[p]];
        if (group == none) group = groups[p];
        if (group == groups[p]) continue;
        record(FindingCode::unused_group, m_records.polygon_lines[p], [&] {
            const std::vector<std::string>& names = m_records.groups.get_names();
            return quoted(names[group]) + " and " + quoted(names[groups[p]]) + " of " +
                   quoted(m_records.materials.get_names()[materials[p]]);
        });
        return;
    }
}

void MeshChecker::set_creases() {
    std::vector<CreaseEdge> creases;
    creases.reserve(m_records.creases.size());
    for (const CreaseTag& tag : m_records.creases)
        creases.push_back({static_cast<std::uint32_t>(tag.a), static_cast<std::uint32_t>(tag.b), tag.sharpness});
    PolyEdgeBuckets edges(m_cage.polygon_indices.data(), view_of(m_cage.polygon_counts),
                          static_cast<unsigned int>(m_cage.get_vertex_count()));
    edges.sort();
    const auto describe = [this](FindingCode, std::size_t entry) {
        const CreaseTag& tag = m_records.creases[entry];
        return FirstCase{m_name + ":" + std::to_string(tag.line),
                         "vertices " + std::to_string(tag.a) + " and " + std::to_string(tag.b) + ", 0-based",
                         {}};
    };
    SettledCreases settled =
        settle_creases(edges, m_cage.get_corner_count(), creases, fractional(), m_findings, describe);
    m_cage.corner_creases = std::move(settled.flags);
    m_cage.corner_sharpness = std::move(settled.sharpness);
}

void MeshChecker::set_corners() {
    std::vector<SharpCorner> corners;
    for (const CornerTag& tag : m_records.corners) {
        if (m_options.is_refined)
            corners.push_back({static_cast<std::uint32_t>(tag.vertex), tag.sharpness});
        else if (tag.sharpness > 0.0f)
            record(FindingCode::unkept_corner, tag.line,
                   [&] { return "vertex " + std::to_string(tag.vertex) + ", 0-based"; });
    }
    const auto describe = [this](FindingCode, std::size_t entry) {
        return FirstCase{m_name + ":" + std::to_string(m_records.corners[entry].line), {}, {}};
    };
    m_cage.vertex_sharpness = settle_corners(m_cage.get_vertex_count(), corners, fractional(), m_findings, describe);
}

void MeshChecker::set_holes() {
    const std::vector<std::uint64_t>& dropped = m_records.dropped_polygons;
    for (const HoleTag& tag : m_records.holes) {
        const auto record_number = static_cast<std::uint64_t>(tag.polygon);
        const auto before = std::lower_bound(dropped.begin(), dropped.end(), record_number);
        if (before != dropped.end() && *before == record_number) continue;
        if (!m_options.is_refined) {
            record(FindingCode::unkept_hole, tag.line,
                   [&] { return "polygon " + std::to_string(tag.polygon) + ", 0-based"; });
            continue;
        }
        if (m_cage.holes.empty()) m_cage.holes.assign(m_cage.get_polygon_count(), 0);
        m_cage.holes[static_cast<std::size_t>(tag.polygon - (before - dropped.begin()))] = 1;
    }
}

std::uint32_t MeshChecker::first_corner(std::uint32_t polygon) const {
    const auto end = m_cage.polygon_counts.begin() + static_cast<std::ptrdiff_t>(polygon);
    return std::accumulate(m_cage.polygon_counts.begin(), end, std::uint32_t{0});
}

}  // namespace

ReadObjResult read_obj_text(std::string_view text, const std::string& name, const ReadObjOptions& options) {
    ReadObjResult result;
    Findings& findings = result.findings;
    const auto refuse = [&](FindingCode code) {
        findings.record(code, [&] { return FirstCase{name, std::string(format_of(text)), {}}; });
        return std::move(result);
    };
    const std::string_view whole = text;
    text = text.substr(0, text.find_last_not_of('\0') + 1);
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return refuse(FindingCode::empty_file);
    if (text.find('\0') != std::string_view::npos || !format_of(text).empty()) return refuse(FindingCode::not_obj);
    if (const std::size_t zeros = whole.size() - text.size(); zeros > 0)
        findings.record(FindingCode::trailing_zeros, [&] { return FirstCase{name, std::to_string(zeros), {}}; });

    ObjRecords records = read_obj_records(text, name, options, findings);
    MeshChecker checker(records, name, options, findings);
    checker.check_presence();
    if (!records.too_many) {
        checker.drop_uvs_without_points();
        checker.check_polygons();
        checker.check_tags();
    }
    checker.report_skipped_kinds();
    if (findings.has_errors()) return result;

    checker.settle_uvs();
    checker.settle_groups();
    checker.set_creases();
    checker.set_corners();
    checker.set_holes();
    if (findings.has_errors()) return result;
    result.cage = std::move(records.cage);
    result.polygon_lines = std::move(records.polygon_lines);
    result.material_libraries = std::move(records.material_libraries);
    return result;
}

ReadObjResult read_obj(const std::string& path, const ReadObjOptions& options) {
    std::string text;
    std::string reason = read_file(path, text);
    if (reason.empty() && is_gzip(text)) {
        const std::string packed = std::move(text);
        reason = gunzip(packed, text);
    }
    if (!reason.empty()) {
        ReadObjResult result;
        result.findings.record(FindingCode::unreadable_file, [&] { return FirstCase{path, reason, {}}; });
        return result;
    }
    return read_obj_text(text, path, options);
}

}  // namespace sds_io

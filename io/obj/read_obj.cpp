#include "io/obj/read_obj.h"

#include "io/obj/obj_records.h"
#include "io/read_file.h"
#include "model/array_view.h"
#include "model/cage_edges.h"
#include "model/mesh_findings.h"
#include "qn_poly/poly_check.h"

#include <algorithm>
#include <numeric>
#include <span>

namespace sds_io {

namespace {

std::string out_of_range(std::uint32_t index, std::size_t count) {
    return "index " + std::to_string(std::uint64_t{index} + 1) + " of " + std::to_string(count);
}

/// Checks the records of a file as one mesh and finishes its cage.
class MeshChecker {
public:
    MeshChecker(ObjRecords& records, const std::string& name, const ReadObjOptions& options, Findings& findings)
        : records_(records), name_(name), options_(options), findings_(findings) {}

    void check_presence();
    void check_polygons();
    void check_tags();
    void report_skipped_kinds();

    // after the checks, without errors
    void settle_uvs();
    void settle_groups();
    void set_creases(const CageEdges& edges);

private:
    FirstCase describe(PolyFindingCode code, const PolyPlace& place) const;
    void settle_fractional_creases(const CageEdges& edges, const CreaseTag& first);
    std::uint32_t first_corner(std::uint32_t polygon) const;

    template <class Detail>
    void record(FindingCode code, std::uint32_t line, Detail&& detail) {
        findings_.record(code, [&] { return FirstCase{name_ + ":" + std::to_string(line), detail(), {}}; });
    }

    ObjRecords& records_;
    ControlCage& cage_ = records_.cage;
    const std::string& name_;
    const ReadObjOptions& options_;
    Findings& findings_;
};

void MeshChecker::check_presence() {
    std::string hint;
    if (records_.unknown_records.count > 0)
        hint = "line " + std::to_string(records_.unknown_records.line) + " begins with " +
               records_.unknown_records.names.front();
    const auto record_file = [this](FindingCode code, const std::string& detail) {
        findings_.record(code, [&] { return FirstCase{name_, detail, {}}; });
    };
    if (records_.too_many)
        record_file(FindingCode::too_many_corners, "at most " + std::to_string(options_.max_corners) + " of each");
    else if (cage_.positions.empty() && records_.polygon_records == 0)
        record_file(FindingCode::not_obj, hint);
    else if (cage_.positions.empty())
        record_file(FindingCode::no_vertices, hint);
    else if (cage_.polygon_counts.empty() && !findings_.has_errors())
        record_file(FindingCode::no_polygons, hint);
}

/// Where the host's checker found something, in terms of the file.
FirstCase MeshChecker::describe(PolyFindingCode code, const PolyPlace& place) const {
    constexpr std::uint32_t none = 0xFFFFFFFF;
    const std::string line = place.polygon == none ? "" : ":" + std::to_string(records_.polygon_lines[place.polygon]);
    std::string detail;
    if (code == PolyFindingCode::index_out_of_range) {
        const std::size_t count = place.array == PolyArray::uvs ? cage_.uv_count() : cage_.vertex_count();
        detail = out_of_range(place.item, count);
    } else if (code == PolyFindingCode::nonmanifold_edge || code == PolyFindingCode::opposite_winding) {
        const std::uint32_t first = first_corner(place.polygon), count = cage_.polygon_counts[place.polygon];
        const std::uint32_t next = first + (place.corner - first + 1) % count;
        detail = "edge of vertices " + std::to_string(cage_.polygon_indices[place.corner] + 1) + " and " +
                 std::to_string(cage_.polygon_indices[next] + 1);
    } else if (place.item != none) {
        detail = place.array == PolyArray::uvs ? "UV " : "vertex ";
        detail += std::to_string(place.item + 1);
    }
    return {name_ + line, detail, {}};
}

void MeshChecker::check_polygons() {
    const auto record_found = [this](const PolyFindings& found) {
        add_mesh_findings(found, findings_,
                          [this](PolyFindingCode code, const PolyPlace& place) { return describe(code, place); });
    };
    if (cage_.polygon_counts.empty()) return;
    PolyFindings mesh, uvs;
    const auto counts = view_of(cage_.polygon_counts), indices = view_of(cage_.polygon_indices);
    const auto vertex_count = static_cast<std::uint32_t>(cage_.vertex_count());
    poly_check_vectors(points_view(cage_.positions), vertex_count, PolyArray::positions, mesh);
    if (poly_check_polygons(vertex_count, counts, indices, mesh)) poly_check_edges(vertex_count, counts, indices, mesh);
    poly_check_uvs(points_view(cage_.uv_points), view_of(cage_.uv_indices), counts, uvs);
    record_found(mesh);
    record_found(uvs);

    for (const DroppedCorner& corner : records_.dropped_corners) {
        if (corner.vertex >= vertex_count)
            record(FindingCode::vertex_index_out_of_range, corner.line,
                   [&] { return out_of_range(corner.vertex, vertex_count); });
        if (corner.uv != unmapped_corner && corner.uv >= cage_.uv_count())
            record(FindingCode::uv_index_out_of_range, corner.line,
                   [&] { return out_of_range(corner.uv, cage_.uv_count()); });
    }
}

void MeshChecker::check_tags() {
    const auto count = static_cast<std::int64_t>(cage_.vertex_count());
    for (const CreaseTag& tag : records_.creases)
        for (const std::int64_t vertex : {tag.a, tag.b})
            if (vertex < 0 || vertex >= count)
                record(FindingCode::tag_index_out_of_range, tag.line,
                       [&] { return "vertex " + std::to_string(vertex) + ", 0-based, of " + std::to_string(count); });
}

void MeshChecker::report_skipped_kinds() {
    const auto report = [this](FindingCode code, const SkippedKinds& kinds) {
        const auto describe = [&] { return FirstCase{name_ + ":" + std::to_string(kinds.line), kinds.list(), {}}; };
        findings_.record(code, describe, kinds.count);
    };
    report(FindingCode::unknown_record, records_.unknown_records);
    report(FindingCode::ignored_record, records_.ignored_records);
    report(FindingCode::ignored_tag, records_.ignored_tags);
}

void MeshChecker::settle_uvs() {
    if (!records_.any_mapped) {
        cage_.uv_points.clear();
        cage_.uv_indices.clear();
        return;
    }
    std::size_t first = 0;
    for (std::size_t p = 0; p < cage_.polygon_count(); first += cage_.polygon_counts[p++]) {
        const std::span corners(cage_.uv_indices.data() + first, cage_.polygon_counts[p]);
        const auto unmapped = static_cast<std::size_t>(std::count(corners.begin(), corners.end(), unmapped_corner));
        if (unmapped == 0 || unmapped == corners.size()) continue;
        std::fill(corners.begin(), corners.end(), unmapped_corner);
    }
}

void MeshChecker::settle_groups() {
    GroupTable& groups = records_.materials.was_selected() ? records_.materials : records_.groups;
    cage_.polygon_groups = std::move(groups.polygons());
    cage_.group_names = std::move(groups.names());
}

constexpr std::uint8_t smooth = 0, crease = 1, fractional = 2;

void MeshChecker::set_creases(const CageEdges& edges) {
    constexpr float infinite_sharpness = 10.0f;
    cage_.corner_creases.assign(cage_.corner_count(), smooth);
    const CreaseTag* first_fractional = nullptr;
    for (const CreaseTag& tag : records_.creases) {
        const auto sides = edges.sides(static_cast<std::uint32_t>(tag.a), static_cast<std::uint32_t>(tag.b));
        if (sides.empty())
            record(FindingCode::tag_without_edge, tag.line,
                   [&] { return "vertices " + std::to_string(tag.a) + " and " + std::to_string(tag.b) + ", 0-based"; });
        const std::uint8_t state = tag.sharpness >= infinite_sharpness ? crease
                                   : tag.sharpness > 0.0f              ? fractional
                                                                       : smooth;
        if (state == fractional && first_fractional == nullptr) first_fractional = &tag;
        for (const std::uint32_t corner : sides) cage_.corner_creases[corner] = state;
    }
    if (first_fractional != nullptr) settle_fractional_creases(edges, *first_fractional);
}

/// Turns the fractional state into crease or smooth; counts edges, however many tags and sides each has.
void MeshChecker::settle_fractional_creases(const CageEdges& edges, const CreaseTag& first) {
    const bool harden = options_.fractional == FractionalSharpness::harden;
    std::uint64_t edge_count = 0;
    edges.for_each_edge([&](std::span<const std::uint32_t> sides) {
        if (cage_.corner_creases[sides.front()] != fractional) return;
        ++edge_count;
        for (const std::uint32_t corner : sides) cage_.corner_creases[corner] = harden ? crease : smooth;
    });
    const auto describe = [&] {
        return FirstCase{name_ + ":" + std::to_string(first.line), "sharpness " + std::to_string(first.sharpness),
                         harden ? "" : "left smooth"};
    };
    findings_.record(FindingCode::fractional_sharpness, describe, edge_count);
}

std::uint32_t MeshChecker::first_corner(std::uint32_t polygon) const {
    const auto end = cage_.polygon_counts.begin() + polygon;
    return std::accumulate(cage_.polygon_counts.begin(), end, std::uint32_t{0});
}

}  // namespace

ReadObjResult read_obj_text(std::string_view text, const std::string& name, const ReadObjOptions& options) {
    ReadObjResult result;
    Findings& findings = result.findings;
    const auto refuse = [&](FindingCode code) {
        findings.record(code, [&] { return FirstCase{name, {}, {}}; });
        return std::move(result);
    };
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return refuse(FindingCode::empty_file);
    if (text.find('\0') != std::string_view::npos) return refuse(FindingCode::not_obj);

    ObjRecords records = read_obj_records(text, name, options, findings);
    MeshChecker checker(records, name, options, findings);
    checker.check_presence();
    if (!records.too_many) {
        checker.check_polygons();
        checker.check_tags();
    }
    checker.report_skipped_kinds();
    if (findings.has_errors()) return result;

    checker.settle_uvs();
    checker.settle_groups();
    const CageEdges edges(records.cage);
    checker.set_creases(edges);
    if (findings.has_errors()) return result;
    result.cage = std::move(records.cage);
    result.polygon_lines = std::move(records.polygon_lines);
    return result;
}

ReadObjResult read_obj(const std::string& path, const ReadObjOptions& options) {
    std::string text;
    if (const std::string reason = read_file(path, text); !reason.empty()) {
        ReadObjResult result;
        result.findings.record(FindingCode::unreadable_file, [&] { return FirstCase{path, reason, {}}; });
        return result;
    }
    return read_obj_text(text, path, options);
}

}  // namespace sds_io

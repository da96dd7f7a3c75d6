#pragma once

#include "io/obj/group_table.h"
#include "io/obj/read_obj.h"
#include "model/control_cage.h"
#include "model/finding.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sds_io {

/// One edge of a `t crease` record.
struct CreaseTag {
    std::uint32_t line;
    std::int64_t a, b;  ///< 0-based vertices, unchecked
    float sharpness;    ///< may be infinite, never NaN
};

/// One vertex of a `t corner` record.
struct CornerTag {
    std::uint32_t line;
    std::int64_t vertex;  ///< 0-based, unchecked
    float sharpness;      ///< may be infinite, never NaN
};

/// One polygon of a `t hole` record.
struct HoleTag {
    std::uint32_t line;
    std::int64_t polygon;  ///< 0-based among the `f` records, unchecked
};

/// Corner of a polygon that is dropped: its indices must be right all the same.
struct DroppedCorner {
    std::uint32_t line, vertex, uv;
};

/// Kinds of records or tags that were skipped, for one finding that names them all.
struct SkippedKinds {
    std::vector<std::string> names;  ///< in quotes, the first eight
    std::string latest;              ///< the name that was added last, as it stands in the file
    std::uint64_t count = 0;
    std::uint32_t line = 0;  ///< of the first

    void add(std::string_view name, std::uint32_t at);
    std::string list() const;
};

/// The records of an OBJ text before the mesh is checked as a whole.
struct ObjRecords {
    ControlCage cage;  ///< positions, polygons, UVs and colors; indices may be out of range, creases and groups are
                       ///< still missing
    std::vector<std::uint32_t> polygon_lines;
    std::vector<DroppedCorner> dropped_corners;
    std::vector<CreaseTag> creases;
    std::vector<CornerTag> corners;
    std::vector<HoleTag> holes;
    std::vector<std::uint64_t> dropped_polygons;  ///< `f` records without a polygon in the cage, 0-based
    GroupTable materials, groups;
    SkippedKinds ignored_tags, unkept_rules, ignored_records, unused_records, unknown_records;
    std::vector<std::string> material_libraries;  ///< as the file names them, in its order
    std::uint64_t polygon_records = 0;            ///< f records, good or bad
    std::uint64_t mapped_corners = 0;             ///< corners that name a UV point
    std::uint32_t first_mapped_line = 0;
    bool too_many = false;  ///< a limit was passed and reading stopped there
};

/// Reads every record; what is wrong within one record goes to `findings`. `name` stands for the file in messages.
ObjRecords read_obj_records(std::string_view text, const std::string& name, const ReadObjOptions& options,
                            Findings& findings);

}  // namespace sds_io

// What can be wrong with a polygon mesh and its attributes: a table of codes, each with a severity, and counts per
// code.
#pragma once

#include <array>
#include <cstdint>
#include <iterator>

#include "qn_core/core_export.h"
#include "qn_core/core_string.h"

enum class PolyFindingCode : unsigned char {
    // errors: the mesh must not be built
    no_polygons,
    small_polygon,
    too_many_elements,
    wrong_count,
    index_out_of_range,
    non_finite_value,
    value_too_large,
    times_not_increasing,
    void_polygon,
    // warnings: built, but perhaps not what was meant
    repeated_vertex,
    nonmanifold_edge,
    nonmanifold_vertex,
    opposite_winding,
    half_mapped_polygon,
    // notes
    unused_vertex,
};
inline constexpr unsigned int poly_finding_code_count = 15;

enum class PolySeverity : unsigned char { error, warning, note };

// The array in which something was found.
enum class PolyArray : unsigned char {
    polygons,
    positions,
    creases,
    groups,
    uvs,
    colors,
    motion,
    sample_times,
    property,
    property_indices,
};

struct PolyFindingText {
    const char* name;  // stable, for machines
    PolySeverity severity;
    const char* message;
    const char* action;  // what becomes of it
};
// What is said of each code, in their order.
inline constexpr PolyFindingText poly_finding_texts[] = {
    {"no_polygons", PolySeverity::error, "no polygon", "refused"},
    {"small_polygon", PolySeverity::error, "polygon with fewer than three corners", "refused"},
    {"too_many_elements", PolySeverity::error, "more elements than 32-bit half-edges can number", "refused"},
    {"wrong_count", PolySeverity::error, "array of the wrong length", "refused"},
    {"index_out_of_range", PolySeverity::error, "index out of range", "refused"},
    {"non_finite_value", PolySeverity::error, "NaN or infinite number", "refused"},
    {"value_too_large", PolySeverity::error, "coordinate beyond 1e18", "refused"},
    {"times_not_increasing", PolySeverity::error, "time not later than the one before it", "refused"},
    {"void_polygon", PolySeverity::error, "polygon that holds the index 0xFFFFFFFF", "refused"},
    {"repeated_vertex", PolySeverity::warning, "vertex repeated in one polygon",
     "kept, the polygon may border on itself"},
    {"nonmanifold_edge", PolySeverity::warning, "edge of three or more polygons", "each of them gets a border there"},
    {"nonmanifold_vertex", PolySeverity::warning, "polygons that meet at a vertex alone",
     "kept, all take the limit point of one fan"},
    {"opposite_winding", PolySeverity::warning, "neighbours of opposite winding", "kept as they are"},
    {"half_mapped_polygon", PolySeverity::warning, "polygon with UVs at some corners only", "left unmapped"},
    {"unused_vertex", PolySeverity::note, "vertex that no polygon uses", "kept"},
};
static_assert(std::size(poly_finding_texts) == poly_finding_code_count);

inline constexpr const char* poly_severity_names[] = {"error", "warning", "note"};

QN_EXPORT const PolyFindingText& poly_finding_text(PolyFindingCode code);
QN_EXPORT const char* poly_array_name(PolyArray array);

// Where a cause was first met; what does not apply is 0xFFFFFFFF.
struct PolyPlace {
    PolyArray array = PolyArray::polygons;
    unsigned int polygon = 0xFFFFFFFF;
    unsigned int corner = 0xFFFFFFFF;  // face-corner, counted over all polygons
    unsigned int item = 0xFFFFFFFF;    // of the array: a vertex, UV point, time, number; or the value found at a corner
};

// Counts and first places, one row per code: a fixed size and no allocation however much is wrong. Not thread-safe.
class QN_EXPORT PolyFindings {
public:
    void record(PolyFindingCode code, const PolyPlace& place, std::uint64_t times = 1) {
        Row& row = m_rows[static_cast<unsigned int>(code)];
        if (row.count == 0) row.first = place;
        row.count += times;
    }

    std::uint64_t count(PolyFindingCode code) const { return m_rows[static_cast<unsigned int>(code)].count; }
    // Meaningful when the count is not 0.
    const PolyPlace& first(PolyFindingCode code) const { return m_rows[static_cast<unsigned int>(code)].first; }
    bool has_errors() const;
    bool is_empty() const;

    // Calls visit(code) for every code with a count, errors first.
    template <class Visit>
    void for_each(Visit&& visit) const {
        for (unsigned int c = 0; c < poly_finding_code_count; ++c)
            if (m_rows[c].count != 0) visit(static_cast<PolyFindingCode>(c));
    }

    // One line without newline: "error: index out of range (polygons, polygon 3, corner 13, 9), refused; 2 cases".
    CoreString to_text(PolyFindingCode code) const;

private:
    struct Row {
        std::uint64_t count = 0;
        PolyPlace first;
    };
    std::array<Row, poly_finding_code_count> m_rows{};
};

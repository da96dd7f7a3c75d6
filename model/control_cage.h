#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sds_model {

/// Value of a `uv_indices` entry whose corner has no UV point.
inline constexpr std::uint32_t unmapped_corner = 0xFFFFFFFFu;

/// UV points that reading a map added and took away, so that its polygons share a point where they are joined.
struct UvJoinCounts {
    std::uint32_t split_points = 0, welded_points = 0;

    UvJoinCounts& operator+=(const UvJoinCounts& other) {
        split_points += other.split_points;
        welded_points += other.welded_points;
        return *this;
    }
};

/// What a file says of its surface as a whole.
struct CageRules {
    enum class Borders : std::uint8_t {
        unsaid,
        none,
        edges_and_corners,
        edges
    };  // the last three as files number them

    /// Which UVs stay, in the words of scene files; the borders of a map are its seams too.
    enum class FaceVarying : std::uint8_t { unsaid, none, corners_only, corners_plus1, corners_plus2, boundaries, all };

    Borders borders = Borders::unsaid;
    FaceVarying face_varying = FaceVarying::unsaid;
    bool is_linear = false;         ///< every vertex stays, and every UV
    bool chaikin = false;           ///< how fractional sharpness decays: drawn to that along the crease
    bool smooth_triangles = false;  ///< triangles weigh more in the first step
};

/// The arrays of a cage without their owner: see ControlCage for shapes and promises. The arrays must outlive the view.
struct CageView {
    std::span<const float> positions;
    std::span<const std::uint32_t> polygon_counts, polygon_indices;
    std::span<const std::uint8_t> corner_creases;
    std::span<const std::uint32_t> polygon_groups;
    std::span<const std::string> group_names;
    std::span<const float> uv_points;
    std::span<const std::uint32_t> uv_indices;
    std::span<const std::uint8_t> vertex_colors;
    std::span<const float> corner_sharpness = {}, vertex_sharpness = {};
    std::span<const std::uint8_t> holes = {};
    std::span<const std::uint32_t> color_indices = {};

    std::size_t get_vertex_count() const { return positions.size() / 3; }
};

/// A polygon control mesh as the readers hand it over: flat arrays, every index already checked.
///
/// A *face-corner* is a corner of one polygon; face-corners are numbered 0 .. get_corner_count()-1 in file order,
/// polygon after polygon. The edge of a face-corner runs from it to the next corner of the same polygon.
///
/// Owns all its memory; concurrent reads are safe.
struct ControlCage {
    std::vector<float> positions;                ///< x y z of every vertex: 3 x get_vertex_count(), finite
    std::vector<std::uint32_t> polygon_counts;   ///< corners of every polygon, each >= 3
    std::vector<std::uint32_t> polygon_indices;  ///< vertex of every face-corner, < get_vertex_count()
    std::vector<std::uint8_t> corner_creases;  ///< per face-corner: 1 when its edge is an infinitely sharp crease, else
                                               ///< 0; all face-corners of one edge agree
    std::vector<float> corner_sharpness;  ///< per face-corner: fractional sharpness of its edge, within (0, 10), else
                                          ///< 0, as on creases; all face-corners of one edge agree. Empty without
    std::vector<float> vertex_sharpness;  ///< per vertex, 0 is smooth, 10 and above infinitely sharp; empty without
    std::vector<std::uint8_t> holes;      ///< per polygon: 1 where it is a hole, else 0; empty without
    CageRules rules;
    std::vector<std::uint32_t> polygon_groups;  ///< shading group of every polygon, an index into group_names
    std::vector<std::string> group_names;       ///< at least one; in order of first use by a polygon
    std::vector<float> uv_points;  ///< u v w of every UV point (w = 0 where the file has none); empty without UVs
    std::vector<std::uint32_t> uv_indices;  ///< UV point of every face-corner or `unmapped_corner`; empty without UVs.
                                            ///< A polygon is mapped at all its corners or at none
    UvJoinCounts uv_join;                   ///< what became of the file's UV points
    std::vector<std::uint8_t> vertex_colors;   ///< r g b a of every vertex, or of every color; empty without
    std::vector<std::uint32_t> color_indices;  ///< color of every face-corner; empty where vertices have theirs

    std::size_t get_vertex_count() const { return positions.size() / 3; }
    std::size_t get_polygon_count() const { return polygon_counts.size(); }
    std::size_t get_corner_count() const { return polygon_indices.size(); }
    std::size_t get_uv_count() const { return uv_points.size() / 3; }
    bool has_uvs() const { return !uv_indices.empty(); }
    bool has_colors() const { return !vertex_colors.empty(); }

    /// True when every polygon has four corners.
    bool is_all_quads() const;

    /// First face-corner of every polygon, and get_corner_count() as last entry: get_polygon_count() + 1 values.
    std::vector<std::uint32_t> get_polygon_offsets() const;

    CageView view() const {
        return {positions,  polygon_counts, polygon_indices,  corner_creases,   polygon_groups, group_names,  uv_points,
                uv_indices, vertex_colors,  corner_sharpness, vertex_sharpness, holes,          color_indices};
    }
};

/// Values per face-corner (`of_edges`: of the edge that leaves it) of polygons that are turned over: the first corner
/// of each stays the first, the others follow the other way round.
template <class T>
void turn_corners_over(const std::vector<std::uint32_t>& polygon_counts, bool of_edges, std::vector<T>& values) {
    if (values.empty()) return;
    auto begin = values.begin();
    for (const std::uint32_t count : polygon_counts) {
        const auto end = begin + static_cast<std::ptrdiff_t>(count);
        std::reverse(of_edges || count == 0 ? begin : begin + 1, end);
        begin = end;
    }
}

/// Turns every polygon over, for files whose polygons run clockwise seen from outside.
void turn_over(ControlCage& cage);

}  // namespace sds_model

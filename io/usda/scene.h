#pragma once

#include "io/usda/finding.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace sds_usda {

/// Values over time. Without `times` there is one sample, which holds at any time, or none.
template <class T>
struct Timed {
    std::vector<double> times;      ///< time codes, strictly increasing
    std::vector<std::size_t> ends;  ///< behind the last value of every sample
    std::vector<T> values;          ///< sample after sample

    bool is_empty() const { return ends.empty(); }
    std::size_t get_sample_count() const { return ends.size(); }
    std::span<const T> sample(std::size_t i) const {
        const std::size_t first = i == 0 ? 0 : ends[i - 1];
        return {values.data() + first, ends[i] - first};
    }
    bool operator==(const Timed&) const = default;
};

/// Whether all samples have as many values, so that there is something between two of them.
template <class T>
bool has_even_samples(const Timed<T>& timed) {
    for (std::size_t s = 1; s < timed.get_sample_count(); ++s)
        if (timed.sample(s).size() != timed.sample(0).size()) return false;
    return true;
}

enum class SubdivisionScheme : std::uint8_t { catmull_clark, bilinear, none };
enum class InterpolateBoundary : std::uint8_t { none, edge_only, edge_and_corner };
enum class FaceVaryingLinear : std::uint8_t { none, corners_only, corners_plus1, corners_plus2, boundaries, all };
enum class TriangleRule : std::uint8_t { catmull_clark, smooth };
enum class Interpolation : std::uint8_t { constant, uniform, varying, vertex, face_varying };
enum class Purpose : std::uint8_t { default_, render, proxy, guide };
enum class UpAxis : std::uint8_t { y, z };

// The words of the schema for each value, in the order of the enumeration.
inline constexpr std::array<std::string_view, 3> scheme_words{"catmullClark", "bilinear", "none"};
inline constexpr std::array<std::string_view, 3> boundary_words{"none", "edgeOnly", "edgeAndCorner"};
inline constexpr std::array<std::string_view, 6> face_varying_words{"none",         "cornersOnly", "cornersPlus1",
                                                                    "cornersPlus2", "boundaries",  "all"};
inline constexpr std::array<std::string_view, 2> triangle_words{"catmullClark", "smooth"};
inline constexpr std::array<std::string_view, 5> interpolation_words{"constant", "uniform", "varying", "vertex",
                                                                     "faceVarying"};
inline constexpr std::array<std::string_view, 4> purpose_words{"default", "render", "proxy", "guide"};

/// A value on the mesh. An element is `element_size` items of `components` scalars.
struct UsdPrimvar {
    using Values = std::variant<Timed<std::int32_t>, Timed<std::uint32_t>, Timed<std::int64_t>, Timed<std::uint64_t>,
                                Timed<float>, Timed<double>, Timed<std::string>>;

    std::string name;       ///< without "primvars:"
    std::string type_name;  ///< "texCoord2f", without "[]"
    Interpolation interpolation = Interpolation::constant;
    std::uint32_t components = 1, element_size = 1;
    Values values;
    Timed<std::uint32_t> indices;  ///< of elements; empty: element i belongs to place i

    bool operator==(const UsdPrimvar&) const = default;
};

/// Whether a primvar is a UV map: of a type for them, or called "st", with two or three numbers that are no whole ones.
bool is_uv_map(const UsdPrimvar& primvar);

/// Whether a primvar is the color that meshes are shown in.
bool is_display_color(const UsdPrimvar& primvar);

/// A named set of faces.
struct UsdSubset {
    std::string name;    ///< the display name where there is one
    std::string family;  ///< may be empty
    std::vector<std::uint32_t> faces;

    bool operator==(const UsdSubset&) const = default;
};

/// A mesh in its own space; every index and count is checked, every position finite. Faces of fewer than three corners
/// are kept.
struct UsdMesh {
    std::uint32_t node = 0;            ///< of UsdScene::nodes
    std::size_t line = 0, column = 0;  ///< of its prim in the text, from 1
    Timed<float> points;               ///< x y z; every sample of one size
    Timed<float> velocities;           ///< x y z per point and second, as many as points in every sample, or empty
    Timed<float> accelerations;        ///< likewise
    std::vector<std::uint32_t> counts, indices;
    SubdivisionScheme scheme = SubdivisionScheme::catmull_clark;
    InterpolateBoundary interpolate_boundary = InterpolateBoundary::edge_and_corner;
    FaceVaryingLinear face_varying_linear = FaceVaryingLinear::corners_plus1;
    TriangleRule triangle_rule = TriangleRule::catmull_clark;
    bool is_left_handed = false, is_double_sided = false;
    std::vector<std::uint32_t> hole_indices;                    ///< faces
    std::vector<std::uint32_t> crease_indices, crease_lengths;  ///< chains of points, one after another
    std::vector<float> crease_sharpnesses;                      ///< one per chain or one per edge of the chains
    std::vector<std::uint32_t> corner_indices;                  ///< points
    std::vector<float> corner_sharpnesses;                      ///< one per corner
    std::vector<UsdPrimvar> primvars;
    std::vector<UsdSubset> subsets;

    std::size_t get_point_count() const { return points.is_empty() ? 0 : points.ends.front() / 3; }
};

/// Lengths are tenths of scene units, as cameras have them there.
struct UsdCamera {
    std::uint32_t node = 0;
    bool is_orthographic = false;
    // one number per sample, never empty
    Timed<double> focal_length, horizontal_aperture, vertical_aperture;
    Timed<double> horizontal_aperture_offset, vertical_aperture_offset;
    Timed<double> f_stop, focus_distance, shutter_open, shutter_close, exposure;
    Timed<double> clipping_range;  ///< near and far
};

/// Matrices act on row vectors, row by row: the translation is elements 12 to 14.
using Matrix4 = std::array<double, 16>;

struct UsdXformOp {
    enum class Kind : std::uint8_t { translate, scale, rotate, orient, matrix };

    Kind kind = Kind::translate;
    bool is_inverted = false;
    std::string_view axes;    ///< "X" or "ZYX" for what acts along or about these axes, in this order
    std::uint32_t value = 0;  ///< of UsdNode::op_values; an op and its inverse share one
};

/// A prim with its place in space. Nothing is inherited in here but the purpose; the functions below see to it.
struct UsdNode {
    std::string name;
    std::uint32_t parent = 0;  ///< node 0 is the root and its own parent
    std::uint32_t end = 0;     ///< behind the last node below it; those are the ones in between
    bool is_hidden = false;    ///< it is there for references and instancers only, with all below it
    bool says_ops = false;     ///< whether it has an order of operations, which may be empty
    bool resets_stack = false;
    std::vector<UsdXformOp> ops;  ///< first op outermost
    std::vector<Timed<double>> op_values;
    Timed<std::uint8_t> invisible;  ///< one value per sample, not 0: invisible; empty: as its parent
    Purpose purpose = Purpose::default_;
};

/// What is below `target` stands below `node` too: instead of the target, with its own operations where it says some.
struct UsdReference {
    std::uint32_t node = 0, target = 0;
};

/// Prototypes at many places. Arrays have one element per place, whose number may change with time: all change at once.
struct UsdInstancer {
    std::uint32_t node = 0;
    std::vector<std::uint32_t> prototypes;  ///< nodes
    Timed<std::uint32_t> proto_indices;     ///< into the prototypes
    Timed<float> positions;
    Timed<float> orientations, scales, velocities;  ///< quaternions w x y z; per second; or empty
    Timed<std::int64_t> ids, invisible_ids;         ///< ids may be empty: the number of the place
};

/// What one layer holds, as it stands in its arrays.
struct UsdScene {
    std::vector<UsdNode> nodes;  ///< parents before children
    std::vector<UsdMesh> meshes;
    std::vector<UsdCamera> cameras;
    std::vector<UsdReference> references;
    std::vector<UsdInstancer> instancers;
    UpAxis up_axis = UpAxis::y;
    double meters_per_unit = 0.01;
    double time_codes_per_second = 24.0, frames_per_second = 24.0;
    std::optional<double> start_time_code, end_time_code;
    std::string default_prim;
};

/// "/World/Car/Body".
std::string prim_path(const UsdScene& scene, std::uint32_t node);

/// The sample at or before a time, the first for earlier ones, and how far it is from there to the next, in [0, 1];
/// samples without times are one.
struct SamplePlace {
    std::size_t sample = 0;
    double share = 0.0;
};
SamplePlace find_sample(const std::vector<double>& times, double time);

/// All times at which the transforms of a node and its ancestors have samples, increasing; empty where it stands still.
std::vector<double> transform_times(const UsdScene& scene, std::uint32_t node);

/// From the node's space to the world's, at a time code. Between samples numbers and matrices are interpolated
/// linearly, quaternions along the sphere; outside of them the nearest holds.
Matrix4 world_matrix(const UsdScene& scene, std::uint32_t node, double time);

/// The matrices at transform_times(), or one without times.
Timed<double> world_transform(const UsdScene& scene, std::uint32_t node);

/// False when the node or an ancestor is invisible at the time. Visibility holds until the next sample.
bool is_visible(const UsdScene& scene, std::uint32_t node, double time);

struct UsdSceneResult {
    std::optional<UsdScene> scene;  ///< empty exactly when findings.has_errors()
    UsdFindings findings;           ///< with their places
};

/// Reads the meshes, cameras and transforms of one layer. Never throws on bad input: what is wrong, left out or ignored
/// is in the findings, each with line and column. Variants are taken as selected; prims that are inactive, classes or
/// mere overs are no part of the scene but where arcs within the layer and instancers ask for them; arcs to other
/// layers are not followed. Time and memory are linear in the text.
UsdSceneResult read_usd_scene(std::string text);

}  // namespace sds_usda

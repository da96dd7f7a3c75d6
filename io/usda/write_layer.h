#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "io/usda/scene.h"
#include "model/property_source.h"

namespace sds_usda {

/// Index of a face-corner without a value of a primvar.
inline constexpr std::uint32_t no_element = 0xFFFFFFFFu;

/// Values to be written as a primvar; the arrays stay the caller's.
struct UsdaPrimvar {
    std::string name;       ///< "st"
    std::string type_name;  ///< of one element: "texCoord2f"
    Interpolation interpolation = Interpolation::vertex;
    std::uint32_t components = 1;  ///< scalars of an element that are written
    std::uint32_t stride = 1;      ///< scalars from one element to the next
    std::span<const float> values;
    std::span<const std::uint32_t> indices =
        {};  ///< of elements, may be empty. `no_element` becomes an element of zeros
};

/// A mesh to be written; the arrays stay the caller's. Indices and counts are trusted and below 2^31.
struct UsdaMesh {
    std::string name;
    std::span<const float> points;  ///< x y z
    std::span<const std::uint32_t> counts, indices;
    SubdivisionScheme scheme = SubdivisionScheme::catmull_clark;
    InterpolateBoundary interpolate_boundary = InterpolateBoundary::edge_and_corner;
    FaceVaryingLinear face_varying_linear = FaceVaryingLinear::corners_plus1;
    TriangleRule triangle_rule = TriangleRule::catmull_clark;
    bool is_left_handed = false;
    std::span<const std::uint32_t> hole_indices = {};
    std::span<const std::uint32_t> crease_indices = {}, crease_lengths = {};
    std::span<const float> crease_sharpnesses = {};
    std::span<const std::uint32_t> corner_indices = {};
    std::span<const float> corner_sharpnesses = {};
    std::vector<UsdaPrimvar> primvars = {};
    std::span<const sds_model::PropertySource> properties = {};  ///< become primvars, of the next wider type there is
    std::span<const std::uint32_t> polygon_groups = {};  ///< of group_names, one per polygon; empty without groups
    std::span<const std::string> group_names = {};
};

struct UsdaStage {
    UpAxis up_axis = UpAxis::y;
    double meters_per_unit = 1.0;
};

/// Writes a layer of one Xform with the meshes below it, in pieces to `write`. Floats are the shortest that read back
/// to the same bits. A name that cannot be a prim's or a primvar's is made one, and that of a prim is kept as display
/// name. Throws what `write` throws.
void write_usda(std::span<const UsdaMesh> meshes, const UsdaStage& stage,
                const std::function<void(std::string_view)>& write);

}  // namespace sds_usda

#pragma once

#include "io/usda/prim_reader.h"
#include "io/usda/scene.h"

#include <optional>

namespace sds_usda {

/// The mesh of a prim and its subsets, its node not yet set; nothing where it lacks points or faces or is wrong. Of the
/// `inherited` primvars it takes those that it does not have itself. `line` is its offset until places are settled.
std::optional<UsdMesh> read_mesh(PrimReader& reader, const std::string& text, const std::vector<UsdPrimvar>& inherited);

/// "3 for 4 points".
inline std::string counts_differ(std::size_t found, const char* of, std::size_t wanted) {
    return std::to_string(found) + " for " + std::to_string(wanted) + " " + of;
}

inline constexpr std::string_view primvar_prefix = "primvars:";

/// Not so for the indices of one, and for normals.
bool is_primvar(const Property& property);

/// How many places the interpolations have.
struct PlaceCounts {
    std::size_t faces = 0, points = 0, corners = 0;
};

/// A primvar with its indices, or nothing and a finding where it does not fit the mesh.
std::optional<UsdPrimvar> read_primvar(PrimReader& reader, Property& property, const PlaceCounts& mesh);

UsdCamera read_camera(PrimReader& reader);

/// Ops, visibility and purpose of any prim; `parent` gives the purpose where the prim says none.
void read_node(PrimReader& reader, const UsdNode& parent, UsdNode& node);

/// The matrix of an op's sample with one value per component, not yet inverted.
Matrix4 op_matrix(const UsdXformOp& op, std::span<const double> value);

std::optional<Matrix4> inverse(const Matrix4& matrix);

inline constexpr Matrix4 identity_matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

Matrix4 product(const Matrix4& first, const Matrix4& second);

/// `matrix` followed by a node's own operations at a time code.
void append_ops(const UsdNode& node, double time, Matrix4& matrix);

/// Quaternions w x y z of any length but 0, along the shorter arc from `first` to `second`.
std::array<double, 4> slerp(std::array<double, 4> first, std::array<double, 4> second, double share);

/// The arrays of a PointInstancer, its node and prototypes not yet set; nothing and a finding where they do not fit.
std::optional<UsdInstancer> read_instancer(PrimReader& reader);

}  // namespace sds_usda

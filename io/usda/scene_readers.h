#pragma once

#include "io/usda/prim_reader.h"
#include "io/usda/scene.h"

#include <optional>

namespace sds_usda {

/// The mesh of a prim and its subsets, its node not yet set; nothing where it lacks points or faces or is wrong.
std::optional<UsdMesh> read_mesh(PrimReader& reader, const std::string& text);

UsdCamera read_camera(PrimReader& reader);

/// Ops, visibility and purpose of any prim; `parent` gives the purpose where the prim says none.
void read_node(PrimReader& reader, const UsdNode& parent, UsdNode& node);

/// The matrix of an op's sample with one value per component, not yet inverted.
Matrix4 op_matrix(const UsdXformOp& op, std::span<const double> value);

std::optional<Matrix4> inverse(const Matrix4& matrix);

}  // namespace sds_usda

// One mesh of any kind through the checker and, when it is let in, the whole build: what comes out must be finite and
// the same on one thread and on several.
#pragma once

#include <cstdint>
#include <vector>

#include "oracles/built_surface.h"
#include "qn_poly/poly_check.h"

namespace sds_test {

// What the host's checker finds in the mesh and its UV map.
PolyFindings check_cage(const ZooMesh& mesh);

// Expects exactly the codes `expected` from the checker. A mesh without errors is then built on one thread and on four,
// in smooth and bilinear mode; arrays, boxes, samples and the hits of rays at them are expected finite and equal.
void examine(const ZooMesh& mesh, const std::vector<PolyFindingCode>& expected);

// Of all arrays that a build makes.
std::uint64_t hash_of(const BuiltSurface& surface);

// The same for a built surface with motion, maps or levels of its own.
void expect_finite(const BuiltSurface& surface);

}  // namespace sds_test

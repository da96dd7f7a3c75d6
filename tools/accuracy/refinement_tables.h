// Refined surfaces against OpenSubdiv's limit, as Markdown tables on the standard output.
#pragma once

#include <vector>

#include "oracles/mesh_zoo.h"

namespace sds_test {

// By depth: patches, support, and how far leaves are from the limit; of the cages among `cages` that the table has.
void print_refinement_table(const std::vector<const ZooMesh*>& cages);
// Regular patches at depths 1, 2, 4 and 6, which are the limit itself: of all cages, and of generated ones with
// fractional sharpness.
void print_regular_patches_table(const std::vector<const ZooMesh*>& cages);

}  // namespace sds_test

// Which patches and limit corners are exact.
#pragma once

#include "oracles/built_surface.h"

namespace sds_test {

struct PatchClasses {
    // Per quad: the bicubic patch is the limit surface. Every corner is a closed fan of four without a sharp edge, an
    // open fan of two at a vertex of two sharp edges, or an open fan of one at a vertex that stays; and no vertex of
    // the quad or of a quad that touches it is a dart.
    std::vector<unsigned char> regular;
    // Per quad: regular, and all four corners are closed fans.
    std::vector<unsigned char> interior;
    // Per vertex: a dart or an exception, or in a quad with one.
    std::vector<unsigned char> near_dart;
};

// `exceptions` are control vertices that count as darts (find_exceptions).
PatchClasses classify_patches(const SdsMeshBase::TopologyContext& context,
                              const std::vector<unsigned char>& exceptions = {});

}  // namespace sds_test

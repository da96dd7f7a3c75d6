// The library's topology of a cage, with its headers, for the files that talk to it.
#pragma once

#include <memory>

#include "oracles/opensubdiv_surface.h"

#include <opensubdiv/far/topologyRefiner.h>

namespace sds_test {

// What the library asks of a value.
template <class Real>
struct OpenSubdivValue {
    GMathVec3<Real> v{0, 0, 0};
    void Clear() { v = {0, 0, 0}; }
    void AddWithWeight(const OpenSubdivValue& other, Real weight) { v += other.v * weight; }
};

// `uv_rule` is the library's number of a face-varying rule.
std::unique_ptr<OpenSubdiv::Far::TopologyRefiner> make_opensubdiv_refiner(const OpenSubdivCage& cage,
                                                                          OpenSubdivBoundary boundary, int uv_rule,
                                                                          bool chaikin, bool smooth_triangles);

}  // namespace sds_test

// What tests of built surfaces say over and over.
#pragma once

#include <gtest/gtest.h>

#include "oracles/built_surface.h"

namespace sds_test {

template <class T>
void expect_near(const GMathVec3<T>& a, const GMathVec3<T>& b, double tolerance) {
    for (unsigned int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "axis " << i;
}

inline std::vector<Vec3f> controls_of(const SdsMeshGeometry& geometry) {
    std::vector<Vec3f> controls(16 * size_t{geometry.get_patch_count()});
    for (unsigned int q = 0; 16 * size_t{q} < controls.size(); ++q)
        geometry.get_bezier_controls(q, &controls[16 * size_t{q}]);
    return controls;
}

// A base alone, all of its polygons in one shading group.
inline void set_base(SdsMeshBase& base, const ZooMesh& cage, AppProgressBar* progress = nullptr) {
    CoreArray<CoreString> names;
    names.add("body");
    base.set(static_cast<unsigned int>(cage.positions.size()), to_core_array(cage.indices), to_core_array(cage.counts),
             CoreArray<unsigned int>(static_cast<unsigned int>(cage.counts.size()), 0u), names, progress);
}

// A cage with all its points in one place where only the topology counts, or with the points given.
inline ZooMesh make_cage(std::vector<unsigned int> counts, std::vector<unsigned int> indices,
                         std::vector<Vec3f> positions) {
    ZooMesh cage;
    cage.counts = std::move(counts);
    cage.indices = std::move(indices);
    cage.positions = std::move(positions);
    cage.corner_creases.assign(cage.indices.size(), 0);
    return cage;
}
inline ZooMesh make_cage(std::vector<unsigned int> counts, std::vector<unsigned int> indices,
                         unsigned int vertex_count) {
    return make_cage(std::move(counts), std::move(indices), std::vector<Vec3f>(vertex_count, {0, 0, 0}));
}

}  // namespace sds_test

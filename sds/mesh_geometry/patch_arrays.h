// A geometry as the pair kernels read it.
#pragma once

#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"

namespace sds {

// The geometry has patches. Lives as long as its arrays stay.
inline PatchArrays get_patch_arrays(const SdsMeshGeometry& geometry) {
    if (geometry.is_refined()) return geometry.get_refined_arrays();
    const auto first = [](const CoreArray<GMathVec3<float>>& points) {
        return points.is_empty() ? nullptr : points[0].get_data();
    };
    const CoreArray<SdsMeshBase::BezierPatch>& patches = geometry.get_bezier_patches();
    return {geometry.get_base()->get_quad_indices().get_data(),
            patches.is_empty() ? nullptr : patches.get_data(),
            geometry.get_tangent_infos().get_data(),
            first(geometry.get_vertices()),
            first(geometry.get_bezier_corners()),
            first(geometry.get_bezier_tangents_array())};
}

}  // namespace sds

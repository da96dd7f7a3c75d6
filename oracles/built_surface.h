// A zoo mesh taken through the whole build, as a host does it.
#pragma once

#include "oracles/mesh_zoo.h"
#include "sds/mesh/sds_mesh.h"
#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/mesh_maps/sds_mesh_maps.h"

namespace sds_test {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;

template <class T>
CoreArray<T> to_core_array(const std::vector<T>& items) {
    CoreArray<T> array(static_cast<unsigned int>(items.size()));
    std::copy(items.begin(), items.end(), array.begin());
    return array;
}

// Base, geometry, maps and mesh of one cage. They refer to each other, so it stays where it was made. With `uvs` the
// cage's UV map is map 0; maps are built even without one. Progress may be null and goes to every build in turn.
class BuiltSurface {
public:
    struct Options {
        SdsMeshGeometry::InterpolationMode mode = SdsMeshGeometry::InterpolationMode::corners_fixed;
        SdsMeshMaps::InterpolationMode uv_mode = SdsMeshMaps::InterpolationMode::corners_fixed;
        unsigned int level = 0;
        std::vector<Vec3f> motion_vectors = {};  // one per control vertex, or none
        AppProgressBar* progress = nullptr;
        bool keeps_base = false;  // where the surface has a whole one of the same cage
        SdsRefinement refinement = {};
    };

    explicit BuiltSurface(const ZooMesh& cage) : BuiltSurface(cage, Options{}) {}
    BuiltSurface(const ZooMesh& cage, const Options& options);
    // An empty one.
    BuiltSurface() = default;
    BuiltSurface(const BuiltSurface&) = delete;
    BuiltSurface& operator=(const BuiltSurface&) = delete;

    // Builds all of it, whatever it held before.
    void build(const ZooMesh& cage, const Options& options);

    unsigned int get_quad_count() const { return base.get_primitive_count(); }
    // Length of the diagonal of the control cage's box.
    double get_diagonal() const { return m_diagonal; }
    // Arrays as the geometry used them, for the rules' templates.
    SdsMeshBase::TopologyContext context() const;

    SdsMeshBase base;
    SdsMeshGeometry geometry;
    SdsMeshMaps maps;
    SdsMesh mesh;

private:
    double m_diagonal = 0.0;
};

}  // namespace sds_test

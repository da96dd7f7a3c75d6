// Our own side of a comparison: a cage in the host's arrays, and the surface built from it.
#pragma once

#include <memory>
#include <string>

#include "model/control_cage.h"
#include "oracles/opensubdiv_surface.h"
#include "qn_poly/poly_crease_scope.h"
#include "sds/mesh/sds_mesh.h"

namespace sds_bench {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;

// A cage as a host holds it, so that no conversion is timed.
struct HostCage {
    explicit HostCage(const sds_model::ControlCage& cage, const std::string& cage_name);

    std::string name;
    CoreArray<Vec3f> positions;
    CoreArray<Vec3f> motion;  // none unless asked for: see make_moving
    CoreArray<unsigned int> counts;
    CoreArray<unsigned int> indices;
    CoreArray<unsigned int> groups;
    CoreArray<unsigned char> creases;
    CoreArray<CoreString> group_names;
    CoreArray<GeometryUvMap> uv_maps;

    unsigned int get_vertex_count() const { return positions.get_count(); }
    unsigned int get_polygon_count() const { return counts.get_count(); }
    // Length of the diagonal of the vertices' box.
    double get_diagonal() const;
    bool is_all_quads() const { return 4 * counts.get_count() == indices.get_count(); }
    // The same cage with a motion vector per vertex: a slow turn about the middle, a twentieth of the size.
    HostCage make_moving() const;
    // The same cage of quads with one quad in two hundred cut into two triangles.
    HostCage make_mixed() const;
    // The same cage so far from the origin that single precision spoils differences of its patches' controls.
    HostCage make_distant() const;
    // The same cage with a UV map over its own vertices, from above.
    HostCage make_mapped() const;
};

// Base, geometry and maps. Stays at its address.
struct OurSurface {
    OurSurface() = default;
    OurSurface(const OurSurface&) = delete;
    OurSurface& operator=(const OurSurface&) = delete;

    // Base and geometry, what the patches need; refined to a depth.
    void build(const HostCage& cage, AppProgressBar* progress = nullptr) { build(cage, 0, progress); }
    void build(const HostCage& cage, unsigned int depth, AppProgressBar* progress = nullptr);
    void build_maps(const HostCage& cage);
    // Bytes that a build has to touch, its input's and its results', each once; and new positions on the same topology.
    double get_build_bytes(const HostCage& cage) const;
    double get_update_bytes() const;
    // A mesh at a level, which refers to this surface. The maps need not have been built.
    SdsMesh make_mesh(unsigned int level) const;

    SdsMeshBase base;
    SdsMeshGeometry geometry;
    SdsMeshMaps maps;
};

// Our opponent.
using sds_test::OpenSubdivCage;
using TheirSurface = sds_test::OpenSubdivSurface<float>;
OpenSubdivCage make_opensubdiv_cage(const HostCage& cage);

// A mesh whose rays take the reference kernels.
class ReferenceMesh : public SdsMesh {
public:
    explicit ReferenceMesh(const SdsMesh& mesh) : SdsMesh(mesh) {}

    using SdsMesh::intersect_primitive;
    std::unique_ptr<const GeometryRayIndex> make_ray_index(const CoreBasicArray<GMathBbox3<double>>&) const override {
        return nullptr;
    }
    void intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                             GeometryRaytraceCtx& rays) const override;
};

}  // namespace sds_bench

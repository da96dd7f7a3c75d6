// The limit surface as OpenSubdiv's patch tables give it, in double precision, addressed by our quads.
//
// Features are isolated to level 8, so that what lies outside the end-cap patches, all but the 1/256 next to an
// irregular corner, is the limit surface itself; at the corner the position is exact, and the tangent plane too but for
// valence 3, which it meets to 0.01 degrees. Cages with opposite winding are of no use here: the library takes such
// edges for non-manifold ones.
#pragma once

#include <memory>

#include "oracles/double_surface.h"
#include "oracles/opensubdiv_surface.h"

namespace sds_test {

// A cage with everything that may be said of its edges, vertices and faces.
struct TaggedCage {
    ZooMesh mesh;
    std::vector<float> edge_sharpness;    // per face-corner; an edge has the larger of its two
    std::vector<float> vertex_sharpness;  // per vertex, or empty
    std::vector<unsigned char> holes;     // per polygon, or empty
    OpenSubdivBoundary boundary = OpenSubdivBoundary::edge_and_corner;
    bool chaikin = false;
    bool smooth_triangles = false;
};

// The vertices of uniform refinement, level by level, with what is needed to find one's way there.
class OpenSubdivLevels {
public:
    OpenSubdivLevels(const TaggedCage& cage, int depth);
    OpenSubdivLevels(OpenSubdivLevels&&) noexcept;
    ~OpenSubdivLevels();

    // Vertex of `level` at corner k of a face.
    int vertex(int level, int face, int corner) const;
    // Child face at corner k of a face.
    int child_face(int level, int face, int corner) const;
    const Vec3d& position(int level, int vertex) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

class OpenSubdivOracle {
public:
    using Boundary = OpenSubdivSurface<double>::Boundary;
    using FaceVarying = OpenSubdivSurface<double>::FaceVarying;

    // Names of FaceVarying in the library's own words, in order.
    static const char* name_of(FaceVarying rule);

    // `rule` is for the cage's UVs. The cage may go away afterwards.
    explicit OpenSubdivOracle(const ZooMesh& cage, Boundary boundary = Boundary::edge_and_corner,
                              FaceVarying rule = FaceVarying::corners_only);
    // Tagged, with features isolated to a level of at most 10.
    OpenSubdivOracle(const TaggedCage& cage, int isolation, FaceVarying rule = FaceVarying::corners_only);

    // The limit surface at (u, v) of one of the quads that SdsMeshBase makes of the cage.
    SurfacePoint evaluate(unsigned int quad, double u, double v) const;
    // The UV map at the same place. The cage has UVs at every corner.
    SurfacePoint evaluate_uv(unsigned int quad, double u, double v) const;

private:
    std::unique_ptr<OpenSubdivCage> m_cage;
    OpenSubdivSurface<double> m_surface;
};

}  // namespace sds_test

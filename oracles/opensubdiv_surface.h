// OpenSubdiv's surface of a cage, addressed by the quads that SdsMeshBase makes of it: topology, adaptive refinement,
// patch tables with Gregory end caps, and positions, in single precision for measurements and in double as a judge.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "qn_gmath/gmath_vec.h"

namespace sds_test {

enum class OpenSubdivBoundary { none, edge_only, edge_and_corner };

// A cage in the arrays that the library reads, so that no conversion is timed.
struct OpenSubdivCage {
    // Corners per polygon; per face-corner its vertex, and 1 where the edge leaving it is a crease.
    OpenSubdivCage(std::span<const unsigned int> polygon_counts, std::span<const unsigned int> polygon_indices,
                   std::span<const unsigned char> corner_creases, std::span<const GMathVec3<float>> vertices);
    // The same with a sharpness per face-corner, of which an edge has the largest; 10 is infinite.
    OpenSubdivCage(std::span<const unsigned int> polygon_counts, std::span<const unsigned int> polygon_indices,
                   std::span<const float> corner_sharpness, std::span<const GMathVec3<float>> vertices);

    bool is_all_quads() const { return 4 * counts.size() == indices.size(); }
    bool has_uvs() const { return !uv_indices.empty(); }

    std::vector<int> counts;
    std::vector<int> indices;
    std::vector<int> crease_pairs;
    std::vector<float> sharpness;
    std::vector<int> corners;  // sharp vertices, and how sharp
    std::vector<float> corner_sharpness;
    std::vector<int> holes;  // polygons
    std::vector<GMathVec3<float>> positions;
    std::vector<int> uv_indices;  // at every face-corner; empty without UVs
    std::vector<GMathVec3<float>> uv_points;
};

// Real is float or double.
template <class Real>
class OpenSubdivSurface {
public:
    using Boundary = OpenSubdivBoundary;
    enum class FaceVarying { linear_none, corners_only, corners_plus1, corners_plus2, boundaries, linear_all };

    struct Options {
        unsigned int level = 2;  // of isolation
        Boundary boundary = Boundary::edge_and_corner;
        FaceVarying uv_rule = FaceVarying::corners_only;
        bool chaikin = false;
        bool smooth_triangles = false;
    };

    // Derivatives are per parameter of our quad.
    struct Sample {
        GMathVec3<Real> position{0, 0, 0}, du{0, 0, 0}, dv{0, 0, 0};
    };

    // Everything but what the two calls below prepare. `cage` outlives the surface.
    explicit OpenSubdivSurface(const OpenSubdivCage& cage) : OpenSubdivSurface(cage, Options{}) {}
    OpenSubdivSurface(const OpenSubdivCage& cage, const Options& options);
    OpenSubdivSurface(OpenSubdivSurface&&) noexcept;
    ~OpenSubdivSurface();

    // Prepares update_positions: new positions of the cage on the same topology, by the stencils.
    void make_stencils();
    void update_positions();

    // Prepares evaluation at (u, v) of one of our quads.
    void make_map();
    Sample evaluate(unsigned int quad, Real u, Real v) const;
    // The UV map at the same place.
    Sample evaluate_uv(unsigned int quad, Real u, Real v) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

extern template class OpenSubdivSurface<float>;
extern template class OpenSubdivSurface<double>;

}  // namespace sds_test

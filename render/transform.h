// Affine maps from objects to the scene, still or moving.
#pragma once

#include <vector>

#include "qn_geometry/geometry_sample.h"
#include "qn_gmath/gmath_matrix.h"
#include "render/render_types.h"

namespace sds_render {

// Row vectors: p' = p M, the translation in row 3. The last column is (0, 0, 0, 1) and not read.
using Matrix4 = GMathMatrix4x4<double>;

Vec3 transform_point(const Matrix4& matrix, const Vec3& point);
Matrix4 multiply(const Matrix4& first, const Matrix4& second);
double get_determinant(const Matrix4& matrix);
// False, and `inverse` untouched, where the matrix flattens space or is not finite.
bool invert(const Matrix4& matrix, Matrix4& inverse);
// The box of a transformed box; empty stays empty.
Bbox3 transform_box(const Matrix4& matrix, const Bbox3& box);

class Transform {
public:
    Transform() = default;  // identity
    explicit Transform(const Matrix4& matrix) : m_matrices{matrix} {}
    // Matrices at strictly increasing times, as many, at least one; blended linearly between and held outside.
    Transform(std::vector<double> times, std::vector<Matrix4> matrices);

    bool is_identity() const;
    bool is_moving() const { return m_times.size() > 1; }
    const std::vector<double>& get_times() const { return m_times; }
    Matrix4 at(double time) const;
    // Change per unit of time, that of the later side where it jumps; zero when still.
    Matrix4 rate_at(double time) const;

private:
    std::vector<double> m_times;  // empty for one matrix or none
    std::vector<Matrix4> m_matrices;
};

// An object's sample at a time, as the scene sees it. Normals keep their side of the surface. Returns false where the
// matrix turns right hands into left ones: dP/du x dP/dv then points away from the normal.
bool place_sample(const Transform& transform, double time, GeometrySample& sample);

}  // namespace sds_render

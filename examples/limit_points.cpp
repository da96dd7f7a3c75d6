// Arrays in, limit points out: a grid of points and normals on every quad, as a mesher or a point sampler wants them.
#include <cmath>
#include <cstdio>
#include <vector>

#include "cube_surface.h"

int main() {
    const CubeSurface cube;
    const CtxShader shader;
    const CtxEval ctx(shader);

    constexpr unsigned int n = 5;  // points along a patch side
    std::vector<double> points, normals;
    GeometrySample sample;
    for (unsigned int quad = 0; quad < cube.mesh.get_primitive_count(); ++quad)
        for (unsigned int j = 0; j < n; ++j)
            for (unsigned int i = 0; i < n; ++i) {
                cube.mesh.compute_fragment_sample(ctx, {quad, i / (n - 1.0), j / (n - 1.0), 0.0, 0.0}, sample);
                const GMathVec3<double>&p = sample.get_geometric_position(), &normal = sample.get_smoothing_normal();
                points.insert(points.end(), {p[0], p[1], p[2]});
                normals.insert(normals.end(), {normal[0], normal[1], normal[2]});
            }

    std::printf("%zu points, the first at (%.4f, %.4f, %.4f), normal (%.4f, %.4f, %.4f)\n", points.size() / 3,
                points[0], points[1], points[2], normals[0], normals[1], normals[2]);
    // A corner of valence n goes to (n^2 v + 4 sum of its edge neighbours + sum of its face neighbours) / (n (n + 5)):
    // for x = -1 here (9 * -1 + 4 * (1 - 1 - 1) + (1 + 1 - 1)) / 24 = -1/2.
    return std::fabs(points[0] + 0.5) < 1e-6 ? 0 : 1;
}

// Arrays in, limit points out: a grid of points and normals on every quad, as a mesher or a point sampler wants them.
#include <cmath>
#include <cstdio>
#include <vector>

#include "cube_surface.h"

int main() {
    const CubeSurface cube;
    constexpr unsigned int n = 5;  // points along a patch side
    std::vector<SdsMeshGeometry::LimitPlace> places;
    for (unsigned int quad = 0; quad < cube.mesh.get_primitive_count(); ++quad)
        for (unsigned int j = 0; j < n; ++j)
            for (unsigned int i = 0; i < n; ++i)
                places.push_back({quad, static_cast<float>(i) / (n - 1.0f), static_cast<float>(j) / (n - 1.0f)});
    std::vector<SdsMeshGeometry::LimitPoint> points(places.size());
    cube.geometry.compute_limit_points(places.data(), static_cast<unsigned int>(places.size()), points.data());

    const GMathVec3<float>&p = points[0].position, &normal = points[0].normal;
    std::printf("%zu points, the first at (%.4f, %.4f, %.4f), normal (%.4f, %.4f, %.4f)\n", points.size(), p[0], p[1],
                p[2], normal[0], normal[1], normal[2]);
    // A corner of valence n goes to (n^2 v + 4 sum of its edge neighbours + sum of its face neighbours) / (n (n + 5)):
    // for x = -1 here (9 * -1 + 4 * (1 - 1 - 1) + (1 + 1 - 1)) / 24 = -1/2.
    return std::fabs(p[0] + 0.5f) < 1e-6f ? 0 : 1;
}

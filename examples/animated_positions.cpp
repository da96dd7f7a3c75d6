// Animation on a fixed topology: the base and the maps are built once, each frame gives new positions to the geometry.
#include <cmath>
#include <cstdio>

#include "cube_surface.h"

int main() {
    CubeSurface cube;
    const CoreArray<GMathVec3<float>> rest = cube.positions;
    CoreArray<GMathVec3<float>> positions = rest;
    const CtxShader shader;
    const CtxEval ctx(shader);
    const GMathMatrix4x4<double> identity;
    GeometrySample side;

    for (unsigned int frame = 0; frame <= 8; ++frame) {
        // The cage turns about z by an angle that grows with the height.
        for (unsigned int i = 0; i < rest.get_count(); ++i) {
            const float angle = 0.2f * static_cast<float>(frame) * (rest[i][2] + 1.0f) / 2.0f;
            const float c = std::cos(angle), s = std::sin(angle);
            positions[i] = {c * rest[i][0] - s * rest[i][1], s * rest[i][0] + c * rest[i][1], rest[i][2]};
        }
        // No renderer reads the surface meanwhile. The mesh keeps referring to the same geometry.
        cube.geometry.set(cube.base, positions, {}, SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);

        cube.mesh.compute_fragment_sample(ctx, {2, 0.5, 0.5, 0.0, 0.0}, side);
        const GMathVec3<double>& p = side.get_geometric_position();
        std::printf("frame %u: area %.4f, middle of the front at (%.4f, %.4f, %.4f)\n", frame,
                    cube.mesh.estimate_area(ctx, identity), p[0], p[1], p[2]);
    }
    // A turn about z keeps heights.
    return std::fabs(side.get_geometric_position()[2]) < 1e-6 && side.get_geometric_position()[0] > 0.1 ? 0 : 1;
}

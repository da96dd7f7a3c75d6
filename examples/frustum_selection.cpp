// A rubber band: the quads that a frustum touches, and those that lie in it whole.
#include <cstdio>

#include "cube_surface.h"

namespace {

// Planes look inward: a point p is inside when normal . p + offset >= 0. Without near and far plane the default ones
// hold every point.
GeometryFrustum make_column(double left, double right, double bottom, double top) {
    GeometryFrustum column;
    column.side_count = 4;
    column.sides[0] = {{1.0, 0.0, 0.0}, -left};
    column.sides[1] = {{-1.0, 0.0, 0.0}, right};
    column.sides[2] = {{0.0, 1.0, 0.0}, -bottom};
    column.sides[3] = {{0.0, -1.0, 0.0}, top};
    return column;
}

unsigned int count_selected(const SdsMesh& mesh, const GeometryFrustum& frustum, int mode) {
    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    GeometryFrustumCtx selection(&mode, &frustum);
    for (unsigned int quad = 0; quad < mesh.get_primitive_count(); ++quad)
        mesh.intersect_primitive(ctx, quad, selection);
    return selection.selected_count;
}

}  // namespace

int main() {
    const CubeSurface cube;
    constexpr int touching = 0, inside = 1;
    const GeometryFrustum middle = make_column(-0.1, 0.1, -0.1, 0.1);  // meets front and back
    const GeometryFrustum right_half = make_column(0.0, 2.0, -2.0, 2.0);

    const unsigned int pierced = count_selected(cube.mesh, middle, touching);
    const unsigned int touched = count_selected(cube.mesh, right_half, touching);
    const unsigned int held = count_selected(cube.mesh, right_half, inside);
    std::printf("the middle column meets %u quads; the right half meets %u and holds %u whole\n", pierced, touched,
                held);
    return pierced == 2 && touched == 5 && held == 1 ? 0 : 1;
}

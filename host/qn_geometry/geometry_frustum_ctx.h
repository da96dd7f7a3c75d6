// Selection of primitives by a frustum.
#pragma once

#include "qn_core/core_export.h"
#include "qn_gmath/gmath_vec.h"

// A point p is inside when normal . p + offset >= 0.
struct GeometryPlane {
    GMathVec3<double> normal{0, 0, 0};
    double offset = 0.0;

    double get_distance(const GMathVec3<double>& p) const { return normal.dot(p) + offset; }
};

struct GeometryFrustum {
    static constexpr unsigned int max_side_count = 4;

    GeometryPlane sides[max_side_count];
    unsigned int side_count = 0;
    // The defaults hold every point.
    GeometryPlane near_plane{{0, 0, 0}, 1.0};
    GeometryPlane far_plane{{0, 0, 0}, 1.0};
};

// Selection modes: 0 any part of the primitive touches the frustum, 1 the whole primitive is inside, 2 and 3 mark the
// primitive's vertices without a test. The context points at what its maker owns. One thread works on a context at a
// time.
class GeometryFrustumCtx {
public:
    // `mode` and `frustum` outlive the context; a null frustum selects nothing.
    GeometryFrustumCtx(const int* mode, const GeometryFrustum* frustum) : m_mode(mode), m_frustum(frustum) {}

    const int& get_mode() const { return *m_mode; }
    const GeometryFrustum* get_frustum() const { return m_frustum; }

    // Primitives selected so far.
    unsigned int selected_count = 0;
    // Set when a part of a primitive was found outside.
    unsigned char partial_flag = 0;
    // Value that culled parts put into the partial flag.
    unsigned char cull_marker = 1;
    // Modes 2 and 3: one byte per control vertex, set to 1 when marked. Owned by the maker.
    unsigned char* vertex_marks = nullptr;

private:
    const int* m_mode;
    const GeometryFrustum* m_frustum;
};

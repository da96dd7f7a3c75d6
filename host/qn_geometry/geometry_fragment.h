// A place on a geometry object: the primitive and its patch coordinates, at a time.
#pragma once

struct GeometryFragment {
    unsigned int primitive = 0;
    double u = 0.0;  // patch coordinates in [0, 1]
    double v = 0.0;
    double time = 0.0;
    // Length of the interval after `time` over which the position's motion is wanted; 0 asks for none.
    double time_interval = 0.0;
};

// Where a place on a primitive lies on the faces that users know, when primitives are parts of those.
struct GeometryPlace {
    unsigned int face = 0;
    double u = 0.0;  // coordinates on the face, in [0, 1]
    double v = 0.0;
    // Quarter turns from the face's frame to the primitive's, counterclockwise: the primitive's (du, dv) are the face's
    // turned so often, one turn taking (a, b) to (-b, a).
    unsigned int turns = 0;
    // How much larger derivatives by the face's coordinates are than those by the primitive's.
    double derivative_scale = 1.0;

    // Derivatives by the primitive's coordinates made into those by the face's, and back.
    template <class Vector>
    void turn_to_face(Vector& du, Vector& dv) const {
        turn(turns & 3u, derivative_scale, du, dv);
    }
    template <class Vector>
    void turn_to_primitive(Vector& du, Vector& dv) const {
        turn((4u - turns) & 3u, 1.0 / derivative_scale, du, dv);
    }

private:
    template <class Vector>
    static void turn(unsigned int count, double scale, Vector& du, Vector& dv) {
        for (unsigned int i = 0; i < count; ++i) {
            const Vector former = du;
            du = dv;
            dv = former * -1.0;
        }
        du = du * scale;
        dv = dv * scale;
    }
};

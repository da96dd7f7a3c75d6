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

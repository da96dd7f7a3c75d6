// Steps between the face-corners of a level's faces. For the kernels of one instruction set.
#pragma once

namespace sds {

namespace {

constexpr unsigned int next_corner(unsigned int c) { return (c & ~3u) | ((c + 1) & 3u); }
constexpr unsigned int far_corner(unsigned int c) { return c ^ 2u; }
constexpr unsigned int previous_corner(unsigned int c) { return (c & ~3u) | ((c + 3) & 3u); }

// Of polygons: where the corners of each begin, and one more; and the polygon of each corner.
struct PolygonFaces {
    const unsigned int *offsets, *faces;

    unsigned int begin_of_face(unsigned int f) const { return offsets[f]; }
    unsigned int face_of(unsigned int c) const { return faces[c]; }
    unsigned int next(unsigned int c) const {
        const unsigned int f = faces[c];
        return c + 1 == offsets[f + 1] ? offsets[f] : c + 1;
    }
    unsigned int previous(unsigned int c) const {
        const unsigned int f = faces[c];
        return c == offsets[f] ? offsets[f + 1] - 1 : c - 1;
    }
};

}  // namespace

}  // namespace sds

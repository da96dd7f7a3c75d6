// Which edges of the polygon mesh under construction are creases.
#pragma once

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"

// While it lives, compute_polygons_neighbourhood calls of the same thread see these flags: one byte per face-corner,
// non-zero when the edge from that corner to the next of its polygon is a crease. The flags belong to face-corners, not
// to vertex pairs, so that UV maps and indexed properties, which share the polygons but not the indices, see the same
// creases. Scopes nest; the array is the caller's.
class QN_EXPORT PolyCreaseScope {
public:
    explicit PolyCreaseScope(const CoreBasicArray<unsigned char>& face_corner_creases);
    ~PolyCreaseScope();
    PolyCreaseScope(const PolyCreaseScope&) = delete;
    PolyCreaseScope& operator=(const PolyCreaseScope&) = delete;

    // The flags bound to the calling thread, or null.
    static const CoreBasicArray<unsigned char>* get_current();

private:
    const CoreBasicArray<unsigned char>* m_former;
    CoreBasicArray<unsigned char> m_flags;
};

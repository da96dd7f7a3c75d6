#include "qn_poly/poly_crease_scope.h"

namespace {

thread_local const CoreBasicArray<unsigned char>* current_creases = nullptr;

}  // namespace

PolyCreaseScope::PolyCreaseScope(const CoreBasicArray<unsigned char>& face_corner_creases)
    : m_former(current_creases), m_flags(face_corner_creases) {
    current_creases = &m_flags;
}
PolyCreaseScope::~PolyCreaseScope() { current_creases = m_former; }
const CoreBasicArray<unsigned char>* PolyCreaseScope::get_current() { return current_creases; }

#include "qn_poly/poly_mesh.h"

const CoreClassInfo& PolyMesh::get_class_info() const { return class_info(); }
const CoreClassInfo& PolyMesh::class_info() {
    static const CoreClassInfo& info =
        CoreClassInfo::new_class("PolyMesh", &destroy_object<PolyMesh>, &ResourceData::class_info(),
                                 []() -> CoreBaseType* { return new (std::nothrow) PolyMesh; });
    return info;
}

size_t PolyMesh::get_memory_size() const {
    return sizeof(*this) - sizeof(m_cloud) + m_cloud.get_memory_size() +
           sizeof(unsigned int) * (size_t{m_counts.get_count()} + m_indices.get_count() + m_offsets.get_count()) +
           m_creases.get_count();
}

void PolyMesh::set_polygons(const CoreBasicArray<unsigned int>& counts, const CoreBasicArray<unsigned int>& indices,
                            const CoreBasicArray<unsigned char>& face_corner_creases) {
    m_counts = counts;
    m_indices = indices;
    m_creases = face_corner_creases;
    m_offsets.resize(counts.get_count());
    unsigned int offset = 0;
    for (unsigned int i = 0; i < counts.get_count(); ++i) {
        m_offsets[i] = offset;
        offset += counts[i];
    }
}

const GMathVec3<float>* PolyMesh::get_sample_positions(const unsigned int& sample) const {
    return m_cloud.has_sampling() ? m_cloud.get_sample_positions(sample) : m_cloud.get_positions().get_data();
}

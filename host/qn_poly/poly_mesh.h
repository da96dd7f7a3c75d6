// PolyMesh: the control polygons with their points, creases and time samples.
#pragma once

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"
#include "qn_geometry/geometry_point_cloud.h"
#include "qn_resource/resource_data.h"

// Set up by one thread, then read by any number.
class QN_EXPORT PolyMesh : public ResourceData {
public:
    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override;

    // Copies the polygons: corners per polygon, vertex per face-corner, and one crease byte per face-corner (empty for
    // none).
    void set_polygons(const CoreBasicArray<unsigned int>& counts, const CoreBasicArray<unsigned int>& indices,
                      const CoreBasicArray<unsigned char>& face_corner_creases);
    // Points, and through the cloud velocities and time samples.
    GeometryPointCloud& get_point_cloud() { return m_cloud; }
    const GeometryPointCloud& get_point_cloud() const { return m_cloud; }

    unsigned int get_polygon_count() const { return m_counts.get_count(); }
    const CoreArray<unsigned int>& get_polygon_counts() const { return m_counts; }
    const CoreArray<unsigned int>& get_polygon_indices() const { return m_indices; }
    // Sum of the counts before each polygon.
    const CoreArray<unsigned int>& get_polygon_offsets() const { return m_offsets; }
    const CoreArray<unsigned char>& get_creases() const { return m_creases; }

    // The points of one time sample, loaded on first use; the rest points when the cloud has no samples. Any thread.
    const GMathVec3<float>* get_sample_positions(const unsigned int& sample) const;

private:
    CoreArray<unsigned int> m_counts;
    CoreArray<unsigned int> m_indices;
    CoreArray<unsigned int> m_offsets;
    CoreArray<unsigned char> m_creases;
    GeometryPointCloud m_cloud;
};

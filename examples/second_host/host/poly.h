// The polygon mesh that surfaces are made from, its adjacency and its properties.
#pragma once

#include <map>

#include "host/geometry.h"
#include "host/system.h"

// Creases of the mesh under construction, as pairs of vertices; one mesh at a time.
extern std::vector<std::pair<unsigned int, unsigned int>> second_host_creases;
// Vertices that count as another one where edges are paired.
extern std::map<unsigned int, unsigned int> second_host_welds;

void compute_polygons_neighbourhood(CoreArray<unsigned int>& neighbour_polygons,
                                    CoreArray<unsigned int>& neighbour_edges,
                                    CoreArray<unsigned char>& edge_smooth_flags,
                                    const CoreBasicArray<unsigned int>& polygon_indices,
                                    const CoreBasicArray<unsigned int>& polygon_counts,
                                    const CoreBasicArray<unsigned int>& polygon_offsets,
                                    const unsigned int& vertex_count, AppProgressBar* progress);

class PolyMesh : public ResourceData {
public:
    PolyMesh(const CoreArray<unsigned int>& counts, const CoreArray<unsigned int>& indices);
    const CoreArray<unsigned int>& get_polygon_counts() const { return m_counts; }
    const CoreArray<unsigned int>& get_polygon_indices() const { return m_indices; }
    const CoreArray<unsigned int>& get_polygon_offsets() const { return m_offsets; }
    const GeometryPointCloud& get_point_cloud() const { return m_points; }
    const GMathVec3<float>* get_sample_positions(const unsigned int&) const {
        return m_points.get_positions().get_data();
    }

private:
    CoreArray<unsigned int> m_counts, m_indices, m_offsets;
    GeometryPointCloud m_points;
};

// Values per vertex, per polygon or for the whole mesh, the same at all times.
class PolyMeshProperty : public ResourceData {
public:
    enum class Type : unsigned int { per_vertex = 0, per_polygon = 1, constant = 2, varying = 3 };

    PolyMeshProperty(const PolyMesh& mesh, Type type, const ResourceProperty& values)
        : m_mesh(&mesh), m_type(type), m_values(values), m_value_count(values.get_item_count()) {}
    const PolyMesh& get_mesh() const { return *m_mesh; }
    const Type& get_type() const { return m_type; }
    const CoreString& get_property_name() const { return get_name(); }
    const GMathTimeSampling& get_time_sampling() const { return m_sampling; }
    const ResourceProperty::Type& get_value_type() const { return m_values.get_type(); }
    const unsigned int& get_value_extent() const { return m_values.get_extent(); }
    const unsigned int& get_index_count() const { return m_indices.m_size; }
    const unsigned int& get_value_count() const { return m_value_count; }
    bool has_indices() const { return false; }
    const CoreArray<unsigned int>& get_indices() const { return m_indices.m_array; }

private:
    const PolyMesh* m_mesh;
    Type m_type;
    ResourceProperty m_values;
    unsigned int m_value_count;
    struct {
        CoreArray<unsigned int> m_array;
        unsigned int m_size = 0;
    } m_indices;
    GMathTimeSampling m_sampling;
};

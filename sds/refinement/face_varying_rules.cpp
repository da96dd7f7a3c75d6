#include "sds/refinement/face_varying_rules.h"

#include "sds/common/half_edge.h"
#include "sds/refinement/sharpness_rules.h"

namespace sds {

CoreArray<float> chart_vertex_sharpness(const RefinementCage& mesh, const RefinementCage& chart, FaceVaryingRule rule) {
    CoreArray<ValueSurroundings> values(chart.vertex_count, ValueSurroundings());
    CoreArray<unsigned int> vertices(chart.vertex_count, none);
    unsigned int begin = 0;
    for (const unsigned int count : chart.polygon_counts) {
        for (unsigned int j = 0; j < count; ++j) {
            const unsigned int c = begin + j;
            if (chart.polygon_indices[c] == none || mesh.polygon_indices[c] == none) continue;
            ValueSurroundings& value = values[chart.polygon_indices[c]];
            ++value.face_count;
            if (vertices[chart.polygon_indices[c]] == none)
                vertices[chart.polygon_indices[c]] = mesh.polygon_indices[c];
            // Both edges of the polygon at this corner.
            for (const unsigned int e : {c, begin + (j == 0 ? count - 1 : j - 1)}) {
                if (chart.opposite_corners[e] != none) continue;
                value.is_on_seam = true;
                value.is_seam_end |= mesh.opposite_corners[e] != none;
            }
        }
        begin += count;
    }
    struct VertexValues {
        unsigned int count = 0;
        bool has_lone = false;
    };
    CoreArray<VertexValues> around(mesh.vertex_count, VertexValues());
    for (unsigned int i = 0; i < values.get_count(); ++i) {
        if (vertices[i] == none) continue;
        ++around[vertices[i]].count;
        around[vertices[i]].has_lone |= values[i].face_count == 1;
    }
    CoreArray<float> sharpness(chart.vertex_count, 0.0f);
    for (unsigned int i = 0; i < values.get_count(); ++i) {
        if (vertices[i] == none) continue;
        values[i].value_count = around[vertices[i]].count;
        values[i].has_lone_value = around[vertices[i]].has_lone;
        values[i].is_seam_end &= values[i].value_count == 1;
        if (is_fixed_value(rule, values[i])) sharpness[i] = infinite_sharpness;
    }
    return sharpness;
}

}  // namespace sds

#include "model/mesh_findings.h"

namespace sds_model {

FindingCode to_finding_code(PolyFindingCode code, PolyArray array) {
    switch (code) {
        case PolyFindingCode::no_polygons:
            return FindingCode::no_polygons;
        case PolyFindingCode::small_polygon:
            return FindingCode::small_polygon;
        case PolyFindingCode::too_many_elements:
            return FindingCode::too_many_corners;
        case PolyFindingCode::wrong_count:
            return FindingCode::wrong_count;
        case PolyFindingCode::index_out_of_range:
            return array == PolyArray::polygons ? FindingCode::vertex_index_out_of_range
                   : array == PolyArray::uvs    ? FindingCode::uv_index_out_of_range
                                                : FindingCode::index_out_of_range;
        case PolyFindingCode::non_finite_value:
            return FindingCode::non_finite_number;
        case PolyFindingCode::value_too_large:
            return FindingCode::value_too_large;
        case PolyFindingCode::times_not_increasing:
            return FindingCode::times_not_increasing;
        case PolyFindingCode::repeated_vertex:
            return FindingCode::repeated_vertex;
        case PolyFindingCode::nonmanifold_edge:
            return FindingCode::nonmanifold_edge;
        case PolyFindingCode::nonmanifold_vertex:
            return FindingCode::nonmanifold_vertex;
        case PolyFindingCode::opposite_winding:
            return FindingCode::opposite_winding;
        case PolyFindingCode::half_mapped_polygon:
            return FindingCode::half_mapped_polygon;
        case PolyFindingCode::void_polygon:
            return FindingCode::void_polygon;
        case PolyFindingCode::unused_vertex:
            return FindingCode::unused_vertex;
    }
    return FindingCode::wrong_count;
}

}  // namespace sds_model

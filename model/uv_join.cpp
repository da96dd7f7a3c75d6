#include "model/uv_join.h"

#include "model/array_view.h"
#include "qn_poly/poly_uv_join.h"

namespace sds_model {

namespace {

UvJoinCounts join(const CageView& cage, std::vector<float>& points, std::vector<std::uint32_t>& indices) {
    if (indices.empty()) return {};
    const PolyUvJoin joined =
        poly_join_uvs(static_cast<unsigned int>(cage.get_vertex_count()), view_of(cage.polygon_counts),
                      view_of(cage.polygon_indices), points_view(points), view_of(indices));
    if (!joined.is_changed()) return {};
    std::vector<float> joined_points;
    joined_points.reserve(std::size_t{3} * joined.sources.get_count());
    for (const unsigned int source : joined.sources) {
        const float* const uvw = points.data() + std::size_t{3} * source;
        joined_points.insert(joined_points.end(), uvw, uvw + 3);
    }
    points = std::move(joined_points);
    indices.assign(joined.indices.begin(), joined.indices.end());
    return {joined.split_points, joined.welded_points};
}

}  // namespace

void join_uvs(ControlCage& cage) { cage.uv_join += join(cage.view(), cage.uv_points, cage.uv_indices); }

void join_uvs(const CageView& cage, UvSource& uvs) { uvs.join += join(cage, uvs.points, uvs.indices); }

}  // namespace sds_model

// Charts of a UV map, the polygons that its edges join, are islands: what one holds never shows in another.
#include <gtest/gtest.h>

#include <map>

#include "oracles/uv_errors.h"
#include "qn_ctx/ctx_eval.h"

namespace {

using namespace sds_test;

constexpr unsigned int none = 0xFFFFFFFF;

// The chart of every polygon, named by one of its polygons; `none` where a corner is not mapped.
std::vector<unsigned int> find_charts(const ZooMesh& cage) {
    std::vector<unsigned int> charts(cage.counts.size());
    const std::vector<unsigned int> offsets = cage.polygon_offsets();
    std::map<std::pair<unsigned int, unsigned int>, unsigned int> sides;
    for (unsigned int p = 0; p < charts.size(); ++p) {
        const unsigned int* uv = cage.uv_indices.data() + offsets[p];
        const unsigned int count = cage.counts[p];
        charts[p] = std::find(uv, uv + count, none) == uv + count ? p : none;
        for (unsigned int k = 0; k < count && charts[p] != none; ++k) {
            const unsigned int known = sides.try_emplace(std::minmax(uv[k], uv[(k + 1) % count]), p).first->second;
            const unsigned int from = charts[p], to = charts[known];
            std::replace(charts.begin(), charts.begin() + p + 1, from, to);
        }
    }
    return charts;
}

// Moves the UV points that only polygons of one chart use. False when there are none.
bool move_chart(const std::vector<unsigned int>& charts, unsigned int chart, ZooMesh& cage) {
    std::vector<unsigned char> is_inside(cage.uv_points.size(), 0), is_outside = is_inside;
    const std::vector<unsigned int> offsets = cage.polygon_offsets();
    for (unsigned int p = 0; p < charts.size(); ++p)
        for (unsigned int c = offsets[p]; c < offsets[p + 1]; ++c)
            if (cage.uv_indices[c] != none) (charts[p] == chart ? is_inside : is_outside)[cage.uv_indices[c]] = 1;
    bool has_moved = false;
    for (size_t i = 0; i < cage.uv_points.size(); ++i) {
        if (is_inside[i] == 0 || is_outside[i] != 0) continue;
        const Vec3f p = cage.uv_points[i];
        cage.uv_points[i] = {300.0f - 700.0f * p[1], 500.0f * p[0] * p[0] - 20.0f, 1.0f};
        has_moved = true;
    }
    return has_moved;
}

// u v w and both derivatives on 4 x 4 points of every quad.
std::vector<Vec3d> read_map(const BuiltSurface& surface) {
    static const CtxShader shader;
    std::vector<Vec3d> read;
    for (unsigned int q = 0; q < surface.quad_count(); ++q)
        for (unsigned int i = 0; i < 16; ++i) {
            Vec3d uvw{0, 0, 0}, du = uvw, dv = uvw;
            const GeometryFragment fragment{q, (i % 4) / 3.0, static_cast<double>(i / 4) / 3.0, 0.0, 0.0};
            if (surface.mesh.is_primitive_uv_mapped(q, 0))
                surface.mesh.compute_fragment_uvw(CtxEval(shader), fragment, 0, uvw, du, dv);
            read.insert(read.end(), {uvw, du, dv});
        }
    return read;
}

TEST(UvCharts, NothingBleedsAcrossSeams) {
    constexpr size_t per_quad = 16 * 3;
    unsigned int pairs = 0;
    for (const ZooMesh* cage : cages_in(uvs)) {
        const std::vector<unsigned int> charts = find_charts(*cage);
        for (const unsigned int chart : {charts.front(), charts.back()}) {
            ZooMesh moved = *cage;
            const bool is_alone =
                std::all_of(charts.begin(), charts.end(), [&](unsigned int c) { return c == chart || c == none; });
            if (chart == none || is_alone || !move_chart(charts, chart, moved)) continue;
            for (const UvMode mode : uv_modes) {
                SCOPED_TRACE(cage->name + ", " + name_of(mode));
                BuiltSurface::Options options;
                options.uv_mode = mode;
                const BuiltSurface before_surface(*cage, options), after_surface(moved, options);
                const std::vector<Vec3d> before = read_map(before_surface), after = read_map(after_surface);
                size_t bled = 0, changed = 0;
                for (size_t i = 0; i < before.size(); ++i) {
                    const auto quad = static_cast<unsigned int>(i / per_quad);
                    const bool is_own = charts[before_surface.base.get_primitive_polygon_id(quad)] == chart;
                    if (before[i] != after[i]) ++(is_own ? changed : bled);
                }
                EXPECT_EQ(bled, 0u);
                EXPECT_GT(changed, 0u);
                ++pairs;
            }
        }
    }
    EXPECT_GT(pairs, 0u);
    RecordProperty("pairs", static_cast<int>(pairs));
}

}  // namespace

// Boxes and area records of shading groups and of the whole surface.
#include <algorithm>
#include <cmath>
#include <limits>

#include "qn_ctx/ctx_eval.h"
#include "qn_gmath/gmath.h"
#include "qn_simd/simd_float4.h"
#include "sds/common/control_lanes.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/task_chunks.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using AreaRecord = SdsMeshGeometry::AreaRecord;

namespace {

// Cubic Bernstein weights at 0, 1/3, 2/3 and 1, to within two units in the last place of n/27. These exact bits are
// part of the area records that hosts store and compare, so they are neither rounded afresh nor mirrored.
constexpr float third_weights[4][4] = {{1.0f, 0.0f, 0.0f, 0.0f},
                                       {0.29629624f, 0.4444444f, 0.22222224f, 0.03703704f},
                                       {0.03703703f, 0.2222222f, 0.44444448f, 0.29629633f},
                                       {0.0f, 0.0f, 0.0f, 1.0f}};

constexpr unsigned int area_entries = 4;  // |x|, |y|, |z| and the area

// The surface at the 4 x 4 grid of thirds, per coordinate: rows[axis][j] at v = j / 3, lanes at u = i / 3.
struct ThirdsGrid {
    SimdFloat4 rows[3][4];

    explicit ThirdsGrid(const Vec3f* controls) {
        const sds::ControlLanes grid(controls);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const float* c = grid.coords[axis];
            SimdFloat4 p0 = SimdFloat4::load_unaligned(c), p1 = SimdFloat4::load_unaligned(c + 4),
                       p2 = SimdFloat4::load_unaligned(c + 8), p3 = SimdFloat4::load_unaligned(c + 12);
            // Rows first: lanes are then rows, one vector per parameter.
            transpose(p0, p1, p2, p3);
            SimdFloat4 u0 = blend(0, p0, p1, p2, p3), u1 = blend(1, p0, p1, p2, p3), u2 = blend(2, p0, p1, p2, p3),
                       u3 = blend(3, p0, p1, p2, p3);
            transpose(u0, u1, u2, u3);
            for (unsigned int j = 0; j < 4; ++j) rows[axis][j] = blend(j, u0, u1, u2, u3);
        }
    }

private:
    static SimdFloat4 blend(unsigned int i, SimdFloat4 a, SimdFloat4 b, SimdFloat4 c, SimdFloat4 d) {
        const float* w = third_weights[i];
        return a * SimdFloat4(w[0]) + b * SimdFloat4(w[1]) + c * SimdFloat4(w[2]) + d * SimdFloat4(w[3]);
    }
};

// Three rows of four, of which the first has no cell: its edges are 0, and so are its areas.
constexpr unsigned int cell_count = 12;

// The two edges that meet at the highest corner of each of the 9 cells, per coordinate.
struct CellEdges {
    float along_u[3][cell_count];
    float along_v[3][cell_count];

    explicit CellEdges(const ThirdsGrid& grid) {
        const SimdFloat4 zero(0.0f), has_cell(0.0f, 1.0f, 1.0f, 1.0f);
        for (unsigned int axis = 0; axis < 3; ++axis)
            for (unsigned int j = 1; j < 4; ++j) {
                const SimdFloat4 row = grid.rows[axis][j];
                const unsigned int cell = 4 * (j - 1);
                select_positive(has_cell, row - previous_lanes(row), zero).store_unaligned(along_u[axis] + cell);
                select_positive(has_cell, row - grid.rows[axis][j - 1], zero).store_unaligned(along_v[axis] + cell);
            }
    }
};

void add_patch_area(const Vec3f* controls, double* area) {
    const CellEdges edges{ThirdsGrid(controls)};
    double c[3][cell_count];
    double length[cell_count];
    for (unsigned int cell = 0; cell < cell_count; ++cell) {
        const auto u = [&](unsigned int axis) { return static_cast<double>(edges.along_u[axis][cell]); };
        const auto v = [&](unsigned int axis) { return static_cast<double>(edges.along_v[axis][cell]); };
        c[0][cell] = u(1) * v(2) - u(2) * v(1);
        c[1][cell] = u(2) * v(0) - u(0) * v(2);
        c[2][cell] = u(0) * v(1) - u(1) * v(0);
        length[cell] = std::sqrt(c[0][cell] * c[0][cell] + c[1][cell] * c[1][cell] + c[2][cell] * c[2][cell]);
    }
    // Pairs of cells side by side, so that sums take two at a time.
    double sums[4][2] = {};
    for (unsigned int cell = 0; cell < cell_count; cell += 2)
        for (unsigned int i = 0; i < 2; ++i) {
            for (unsigned int axis = 0; axis < 3; ++axis) sums[axis][i] += std::fabs(c[axis][cell + i]);
            sums[3][i] += length[cell + i];
        }
    if (gmath_isfinited(sums[3][0] + sums[3][1])) {
        for (unsigned int i = 0; i < area_entries; ++i) area[i] += sums[i][0] + sums[i][1];
        return;
    }
    for (unsigned int cell = 0; cell < cell_count; ++cell) {
        if (!gmath_isfinited(length[cell])) continue;
        for (unsigned int axis = 0; axis < 3; ++axis) area[axis] += std::fabs(c[axis][cell]);
        area[3] += length[cell];
    }
}

// The length of (x, y, z), the least area with these projections. Its squares leave single precision long before the
// areas do.
float lower_bound_of_area(float x, float y, float z) {
    const float square = x * x + y * y + z * z;
    if (square > 1e-30f && square <= std::numeric_limits<float>::max()) return std::sqrt(square);
    return static_cast<float>(Vec3d(Vec3f(x, y, z)).length());
}

float blend_ratio(float x, float y, float z, float area) {
    const float lower = lower_bound_of_area(x, y, z);
    const float range = x + y + z - lower;
    return range > GMath<float>::s_epsilon ? (area - lower) / range : 0.0f;
}

double scaled_area(const AreaRecord& record, const GMathMatrix4x4<double>& matrix) {
    const Vec3d s = matrix.get_scales();
    const double sx = std::fabs(s[0]);
    const double sy = std::fabs(s[1]);
    const double sz = std::fabs(s[2]);
    const auto x = static_cast<float>(sz * sy * static_cast<double>(record.x));
    const auto y = static_cast<float>(sz * sx * static_cast<double>(record.y));
    const auto z = static_cast<float>(sy * sx * static_cast<double>(record.z));
    const float lower = lower_bound_of_area(x, y, z);
    return static_cast<double>(((x + y + z) - lower) * record.blend + lower);
}

GMathBbox3<double> controls_bbox(const Vec3f* controls) {
    GMathBbox3<float> box(controls[0], controls[0]);
    for (unsigned int i = 1; i < 16; ++i) box.grow(controls[i]);
    return GMathBbox3<double>(box);
}

// Groups to account for: a mesh without group names is one unnamed group.
unsigned int get_group_count(const SdsMeshBase& base) {
    return std::max(1u, base.get_shading_group_names().get_count());
}

// Grows a box by the controls whose coordinates are all finite.
void grow_by_finite(const Vec3f* controls, GMathBbox3<float>& box) {
    SimdFloat4 low = SimdFloat4::load3(box.get_min().get_data()), high = SimdFloat4::load3(box.get_max().get_data());
    SimdFloat4 difference(0.0f);
    for (unsigned int k = 0; k < 16; ++k) {
        const SimdFloat4 point = SimdFloat4::load3(controls[k].get_data());
        low = min(low, point);
        high = max(high, point);
        // Zero for finite numbers, NaN otherwise.
        difference = difference + (point - point);
    }
    if (less_equal_mask(difference, SimdFloat4(0.0f)) == 15) {
        Vec3f lowest, highest;
        low.store3(lowest.get_data());
        high.store3(highest.get_data());
        box = {lowest, highest};
        return;
    }
    for (unsigned int k = 0; k < 16; ++k)
        if (gmath_isfinitef(controls[k][0]) && gmath_isfinitef(controls[k][1]) && gmath_isfinitef(controls[k][2]))
            box.grow(controls[k]);
}

// Grows the boxes and areas of the patches' groups.
void accumulate_patch(const SdsBezierMesh& mesh, const SdsMeshBase& base, unsigned int q, GMathBbox3<float>* boxes,
                      double* areas) {
    Vec3f controls[16];
    mesh.get_patch_controls(q, controls);
    const unsigned int group = base.get_primitive_shading_group_index(q);
    grow_by_finite(controls, boxes[group]);
    add_patch_area(controls, areas + area_entries * size_t{group});
}

}  // namespace

class ComputeSdsBboxesTask : public SysThreadTask {
public:
    ComputeSdsBboxesTask() = default;
    ComputeSdsBboxesTask(const SdsMeshGeometry& geometry, unsigned int begin, unsigned int end,
                         unsigned int group_count, GMathBbox3<float>* boxes, double* areas, AppProgressBar* progress,
                         float share)
        : m_geometry(&geometry),
          m_begin(begin),
          m_end(end),
          m_group_count(group_count),
          m_boxes(boxes),
          m_areas(areas),
          m_progress(progress),
          m_share(share) {}

    void run(const unsigned int& worker) override {
        GMathBbox3<float>* row_boxes = m_boxes + size_t{worker} * m_group_count;
        double* row_areas = m_areas + area_entries * size_t{worker} * m_group_count;
        // Local buffers: neighbouring rows share cache lines.
        CoreArray<GMathBbox3<float>> boxes(CoreBasicArray<GMathBbox3<float>>(m_group_count, row_boxes));
        CoreArray<double> areas(CoreBasicArray<double>(area_entries * m_group_count, row_areas));
        for (unsigned int q = m_begin; q < m_end; ++q)
            accumulate_patch(m_geometry->get_bezier_mesh(), *m_geometry->get_base(), q, boxes.get_data(),
                             areas.get_data());
        for (unsigned int g = 0; g < m_group_count; ++g) row_boxes[g] = boxes[g];
        for (unsigned int i = 0; i < area_entries * m_group_count; ++i) row_areas[i] = areas[i];
        sds::progress_increment(m_progress, static_cast<float>(m_end - m_begin) * m_share);
    }

private:
    const SdsMeshGeometry* m_geometry = nullptr;
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
    unsigned int m_group_count = 0;
    GMathBbox3<float>* m_boxes = nullptr;
    double* m_areas = nullptr;
    AppProgressBar* m_progress = nullptr;
    float m_share = 0.0f;
};

void SdsMeshGeometry::store_bboxes_and_areas(const GMathBbox3<float>* boxes, const double* areas) {
    const unsigned int group_count = get_group_count(*base);
    group_bboxes.resize(group_count);
    group_area_records.resize(group_count);
    float sum[area_entries] = {};
    GMathBbox3<double> all = GMathBbox3<double>::empty(1e308);
    for (unsigned int g = 0; g < group_count; ++g) {
        group_bboxes[g] = boxes[g];
        float record[area_entries];
        for (unsigned int i = 0; i < area_entries; ++i) {
            record[i] = static_cast<float>(areas[area_entries * size_t{g} + i]);
            sum[i] += record[i];
        }
        group_area_records[g] = {record[0], record[1], record[2],
                                 blend_ratio(record[0], record[1], record[2], record[3])};
        all.grow(GMathBbox3<double>(boxes[g]));
    }
    bbox = GMathBbox3<float>(all);
    area_record = {sum[0], sum[1], sum[2], blend_ratio(sum[0], sum[1], sum[2], sum[3])};
}

void SdsMeshGeometry::update_bbox_and_area(AppProgressBar* progress) {
    const unsigned int group_count = get_group_count(*base);
    const bool has_points = !point_cloud.is_empty();
    const GMathBbox3<float> zero({0, 0, 0}, {0, 0, 0});
    CoreArray<GMathBbox3<float>> boxes(group_count, has_points ? GMathBbox3<float>::empty() : zero);
    CoreArray<double> areas(area_entries * group_count, 0.0);
    if (has_points) {
        const unsigned int quad_count = base->get_primitive_count();
        sds::progress_steps(progress, quad_count);
        for (unsigned int q = 0; q < quad_count; ++q) {
            accumulate_patch(bezier_mesh, *base, q, boxes.get_data(), areas.get_data());
            sds::progress_step(progress, q + 1);
        }
    }
    store_bboxes_and_areas(boxes.get_data(), areas.get_data());
    sds::progress_value(progress, 1.0f);
}

void SdsMeshGeometry::update_bbox_and_area(SysThreadTaskManager& manager, AppProgressBar* progress) {
    if (point_cloud.is_empty()) {
        update_bbox_and_area(progress);
        return;
    }
    const unsigned int group_count = get_group_count(*base);
    const unsigned int quad_count = base->get_primitive_count();
    const unsigned int workers = manager.get_max_thread_count();
    CoreArray<GMathBbox3<float>> boxes(workers * group_count, GMathBbox3<float>::empty());
    CoreArray<double> areas(area_entries * workers * group_count, 0.0);
    const float share = 1.0f / static_cast<float>(quad_count);
    sds::run_chunked<ComputeSdsBboxesTask>(manager, quad_count, 4, [&](unsigned int begin, unsigned int end) {
        return ComputeSdsBboxesTask(*this, begin, end, group_count, boxes.get_data(), areas.get_data(), progress,
                                    share);
    });
    for (unsigned int w = 1; w < workers; ++w)
        for (unsigned int g = 0; g < group_count; ++g) {
            boxes[g].grow(boxes[w * group_count + g]);
            for (unsigned int i = 0; i < area_entries; ++i)
                areas[area_entries * g + i] += areas[area_entries * (w * group_count + g) + i];
        }
    store_bboxes_and_areas(boxes.get_data(), areas.get_data());
    sds::progress_value(progress, 1.0f);
}

double SdsMeshGeometry::estimate_area(const CtxEval&, const GMathMatrix4x4<double>& matrix) const {
    return scaled_area(area_record, matrix);
}

double SdsMeshGeometry::estimate_shading_group_area(const CtxEval&, const unsigned int& group,
                                                    const GMathMatrix4x4<double>& matrix) const {
    return scaled_area(group_area_records[group], matrix);
}

double SdsMeshGeometry::estimate_primitive_area(const CtxEval&, const unsigned int& patch,
                                                const GMathMatrix4x4<double>& matrix) const {
    Vec3f controls[16];
    bezier_mesh.get_patch_controls(patch, controls);
    const CellEdges edges{ThirdsGrid(controls)};
    float area = 0.0f;
    for (unsigned int cell = 0; cell < cell_count; ++cell) {
        const auto edge = [&](const float(*e)[cell_count]) { return Vec3d(Vec3f(e[0][cell], e[1][cell], e[2][cell])); };
        const Vec3f u(matrix.transform_vector(edge(edges.along_u)));
        const Vec3f v(matrix.transform_vector(edge(edges.along_v)));
        area += std::sqrt(u.cross(v).length_squared());
    }
    return static_cast<double>(area);
}

void SdsMeshGeometry::compute_primitive_bbox(const CtxEval&, const unsigned int& patch, GMathBbox3<double>& box) const {
    Vec3f controls[16];
    bezier_mesh.get_patch_controls(patch, controls);
    box = controls_bbox(controls);
}

void SdsMeshGeometry::compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& patch, const double& time,
                                                GMathBbox3<double>& box) const {
    Vec3f controls[16];
    get_bezier_controls_at(patch, time, ctx.get_shader_ctx()->get_motion_blur().get_time_sampling(), controls);
    box = controls_bbox(controls);
}

GMathBbox3<float> SdsMeshGeometry::get_bbox_at(const CtxEval& ctx, const double& time) const {
    if (point_cloud.is_empty() || !(std::fabs(time) > 1e-8) || !is_animated()) return bbox;
    const GeometryPositionArray positions =
        get_vertices_at(time, ctx.get_shader_ctx()->get_motion_blur().get_time_sampling());
    GMathBbox3<float> box = GMathBbox3<float>::empty();
    for (unsigned int i = 0; i < positions.get_count(); ++i) {
        const Vec3f p = positions[i];
        if (p.is_finite()) box.grow(p);
    }
    return box;
}

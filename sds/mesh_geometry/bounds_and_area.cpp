// Boxes and area records of shading groups and of the whole surface.
#include <algorithm>
#include <cmath>
#include <limits>

#include "qn_ctx/ctx_eval.h"
#include "qn_gmath/gmath.h"
#include "sds/common/control_grid.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/task_chunks.h"
#include "sds/mesh_geometry/patch_arrays.h"
#include "sds/mesh_geometry/third_weights.h"
#include "sds/refinement/patch_places.h"

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using AreaRecord = SdsMeshGeometry::AreaRecord;

namespace {

using sds::PatchSums;
using AddPatches = decltype(sds::PairKernels::add_boxes);

constexpr unsigned int area_entries = 4;  // |x|, |y|, |z| and the area

// The length of (x, y, z), the least area with these projections. Squares overflow or underflow single
// precision long before the areas do.
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

// The time between the shutter samples before and after a time; empty outside the shutter and without one.
struct TimeSpan {
    double begin, end;

    TimeSpan(const GMathTimeSampling& shutter, double time) : begin(time), end(time) {
        const unsigned int count = shutter.get_sample_count();
        if (count < 2 || !(time >= shutter.get_sample_time(0) && time <= shutter.get_sample_time(count - 1))) return;
        for (unsigned int i = 0; i < count; ++i) {
            const double sample = shutter.get_sample_time(i);
            if (sample < time) begin = sample;
            if (sample > time && end == time) end = sample;
        }
    }
    bool is_open() const { return begin < end; }
    bool holds(double time) const { return begin < time && time < end; }
};

// Groups to account for: a mesh without group names is one unnamed group.
unsigned int get_group_count(const SdsMeshBase& base) {
    return std::max(1u, base.get_shading_group_names().get_count());
}

PatchSums make_empty_sums() {
    constexpr float largest = std::numeric_limits<float>::max();
    return {{largest, largest, largest}, {-largest, -largest, -largest}, {0, 0, 0, 0}};
}

// The shading groups of the patches where the base has no array of them.
CoreArray<unsigned int> get_patch_groups(const SdsMeshGeometry& geometry, unsigned int group_count) {
    CoreArray<unsigned int> groups;
    const SdsMeshBase& base = *geometry.get_base();
    if (!geometry.is_refined() && !base.has_late_step()) return groups;
    groups.assign(geometry.get_patch_count(), 0u);
    if (group_count == 1) return groups;
    for (unsigned int p = 0; p < groups.get_count(); ++p) {
        const unsigned int quad = geometry.is_refined() ? geometry.get_places().get_patch(p).quad() : p;
        groups[p] = base.get_primitive_shading_group_index(quad);
    }
    return groups;
}

// use(first, end) for the runs between void patches: nearly always a single one.
template <class Use>
void for_each_run(const SdsMeshGeometry& geometry, unsigned int begin, unsigned int end, const Use& use) {
    if (geometry.is_refined()) return use(begin, end);
    const unsigned int* const quads = geometry.get_base()->get_quad_indices().get_data();
    for (unsigned int q = begin; q < end; ++q) {
        const unsigned int first = q;
        while (q < end && !sds::is_void_quad(quads + 4 * size_t{q})) ++q;
        use(first, q);
    }
}

// `groups` are those of the patches, or empty; `add` is a pair kernel's.
void add_patches(const SdsMeshGeometry& geometry, const CoreArray<unsigned int>& groups, AddPatches add,
                 unsigned int begin, unsigned int end, PatchSums* sums) {
    const unsigned int* const patch_groups =
        groups.is_empty() ? &geometry.get_base()->get_primitive_shading_group_index(0) : groups.get_data();
    const sds::PatchArrays surface = sds::get_patch_arrays(geometry);
    for_each_run(geometry, begin, end,
                 [&](unsigned int first, unsigned int last) { add(surface, patch_groups, first, last, sums); });
}

// Every worker adds to the sums of its own row, one entry per group.
struct SumPatches {
    const SdsMeshGeometry& geometry;
    AddPatches add;
    const CoreArray<unsigned int>& groups;
    unsigned int group_count;
    PatchSums* rows;

    void operator()(const sds::WorkRange& range) const {
        PatchSums* row = rows + size_t{range.worker} * group_count;
        // A local buffer: neighboring rows share cache lines.
        CoreArray<PatchSums> sums(CoreBasicArray<PatchSums>(group_count, row));
        const unsigned int size = range.steps != nullptr ? 1 : range.end - range.begin;
        for (unsigned int p = range.begin; p < range.end; p += size) {
            add_patches(geometry, groups, add, p, p + size, sums.get_data());
            range.step(p);
        }
        std::copy(sums.begin(), sums.end(), row);
    }
};

void merge(const PatchSums& part, PatchSums& sums) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        sums.low[axis] = std::min(sums.low[axis], part.low[axis]);
        sums.high[axis] = std::max(sums.high[axis], part.high[axis]);
    }
    for (unsigned int i = 0; i < area_entries; ++i) sums.areas[i] += part.areas[i];
}

// What all patches add up to, per group.
CoreArray<PatchSums> sum_patches(const SdsMeshGeometry& geometry, bool has_points, AddPatches add,
                                 SysThreadTaskManager* tasks, AppProgressBar* progress) {
    const unsigned int group_count = get_group_count(*geometry.get_base());
    const unsigned int workers = tasks != nullptr ? tasks->get_max_thread_count() : 1;
    CoreArray<PatchSums> sums(workers * group_count, has_points ? make_empty_sums() : PatchSums{});
    if (has_points) {
        const CoreArray<unsigned int> groups = get_patch_groups(geometry, group_count);
        sds::run_tasks<sds::RangeTask<SumPatches>>(tasks, geometry.get_patch_count(),
                                                   sds::tasks_per_thread(geometry.get_patch_count()), progress,
                                                   {geometry, add, groups, group_count, sums.get_data()});
    }
    for (unsigned int i = group_count; i < sums.get_count(); ++i) merge(sums[i], sums[i % group_count]);
    sums.resize(group_count);
    return sums;
}

}  // namespace

void SdsMeshGeometry::update_bbox(SysThreadTaskManager* tasks, AppProgressBar* progress) {
    are_areas_due = true;
    const CoreArray<PatchSums> sums =
        sum_patches(*this, has_vertices(), sds::get_pair_kernels().add_boxes, tasks, progress);
    const unsigned int group_count = sums.get_count();
    arrays.group_bboxes.resize(group_count);
    arrays.group_area_records.resize(group_count);
    GMathBbox3<double> all = GMathBbox3<double>::empty(1e308);
    for (unsigned int g = 0; g < group_count; ++g) {
        const float *low = sums[g].low, *high = sums[g].high;
        arrays.group_bboxes[g] = {{low[0], low[1], low[2]}, {high[0], high[1], high[2]}};
        all.grow(GMathBbox3<double>(arrays.group_bboxes[g]));
    }
    arrays.bbox = GMathBbox3<float>(all);
    sds::progress_value(progress, 1.0f);
}

void SdsMeshGeometry::build_areas() const {
    const SysThreadLockGuard guard(*area_lock);
    if (!are_areas_due.load(std::memory_order_relaxed)) return;
    const CoreArray<PatchSums> sums =
        sum_patches(*this, has_vertices(), sds::get_pair_kernels().add_areas, nullptr, nullptr);
    float total[area_entries] = {};
    for (unsigned int g = 0; g < sums.get_count(); ++g) {
        float record[area_entries];
        for (unsigned int i = 0; i < area_entries; ++i) {
            record[i] = static_cast<float>(sums[g].areas[i]);
            total[i] += record[i];
        }
        arrays.group_area_records[g] = {record[0], record[1], record[2],
                                        blend_ratio(record[0], record[1], record[2], record[3])};
    }
    arrays.area_record = {total[0], total[1], total[2], blend_ratio(total[0], total[1], total[2], total[3])};
    are_areas_due.store(false, std::memory_order_release);
}

double SdsMeshGeometry::estimate_area(const CtxEval&, const GMathMatrix4x4<double>& matrix) const {
    return scaled_area(get_area_record(), matrix);
}

double SdsMeshGeometry::estimate_shading_group_area(const CtxEval&, const unsigned int& group,
                                                    const GMathMatrix4x4<double>& matrix) const {
    sum_areas();
    return scaled_area(arrays.group_area_records[group], matrix);
}

double SdsMeshGeometry::estimate_primitive_area(const CtxEval&, const unsigned int& patch,
                                                const GMathMatrix4x4<double>& matrix) const {
    if (is_patch_void(patch)) return 0.0;
    Vec3f controls[16];
    bezier_mesh.get_patch_controls(patch, controls);
    // The 4 x 4 grid of thirds, row by row.
    Vec3f grid[4][4];
    for (unsigned int j = 0; j < 4; ++j)
        for (unsigned int i = 0; i < 4; ++i) {
            Vec3f rows[4];
            for (unsigned int r = 0; r < 4; ++r) {
                const unsigned char* row = sds::grid_order + 4 * r;
                rows[r] =
                    sds::blend_third<float>(i, controls[row[0]], controls[row[1]], controls[row[2]], controls[row[3]]);
            }
            grid[j][i] = sds::blend_third<float>(j, rows[0], rows[1], rows[2], rows[3]);
        }
    float area = 0.0f;
    for (unsigned int j = 1; j < 4; ++j)
        for (unsigned int i = 1; i < 4; ++i) {
            const Vec3f u(matrix.transform_vector(Vec3d(grid[j][i] - grid[j][i - 1])));
            const Vec3f v(matrix.transform_vector(Vec3d(grid[j][i] - grid[j - 1][i])));
            area += std::sqrt(u.cross(v).length_squared());
        }
    return static_cast<double>(area);
}

void SdsMeshGeometry::compute_primitive_bbox(const CtxEval&, const unsigned int& patch, GMathBbox3<double>& box) const {
    if (is_patch_void(patch)) {
        box = GMathBbox3<double>::empty();
        return;
    }
    Vec3f controls[16];
    bezier_mesh.get_patch_controls(patch, controls);
    box = controls_bbox(controls);
}

void SdsMeshGeometry::compute_primitive_bboxes(const unsigned int& first, const unsigned int& count,
                                               GMathBbox3<double>* boxes) const {
    static_assert(sizeof(GMathBbox3<double>) == 6 * sizeof(double));
    const sds::PatchArrays surface = sds::get_patch_arrays(*this);
    unsigned int done = 0;
    const auto leave_empty_to = [&](unsigned int end) {
        for (; done < end; ++done) boxes[done] = GMathBbox3<double>::empty();
    };
    for_each_run(*this, first, first + count, [&](unsigned int begin, unsigned int end) {
        leave_empty_to(begin - first);
        sds::get_pair_kernels().compute_boxes(surface, begin, end, reinterpret_cast<double*>(boxes + (begin - first)));
        done = end - first;
    });
    leave_empty_to(count);
}

void SdsMeshGeometry::compute_primitive_bbox_at(const CtxEval& ctx, const unsigned int& patch, const double& time,
                                                GMathBbox3<double>& box) const {
    if (is_patch_void(patch)) {
        box = GMathBbox3<double>::empty();
        return;
    }
    const GMathTimeSampling& shutter = ctx.get_shader_ctx()->get_motion_blur().get_time_sampling();
    Vec3f controls[16];
    get_bezier_controls_at(patch, time, shutter, controls);
    box = controls_bbox(controls);
    const TimeSpan span(shutter, time);
    if (!has_positions_sampling() || !span.is_open()) return;

    const auto grow = [&](const SdsBezierMesh& mesh) {
        mesh.get_patch_controls(patch, controls);
        box.grow(controls_bbox(controls));
    };
    const GMathTimeSampling& samples = get_positions_sampling();
    for (unsigned int i = 0; i < samples.get_sample_count(); ++i)
        if (span.holds(samples.get_sample_time(i)) && samples.get_sample_time(i) != time)
            grow(get_bezier_mesh_sample(i));
    // At time 0 the surface is the one at rest, and a moment beside it the one of its samples.
    if (is_rest_time(time))
        grow(get_bezier_mesh_at(time));
    else if (span.holds(0.0))
        grow(bezier_mesh);
}

GMathBbox3<float> SdsMeshGeometry::get_bbox_at(const CtxEval& ctx, const double& time) const {
    if (!has_vertices() || is_rest_time(time) || !is_animated()) return arrays.bbox;
    if (refinement) {
        // The vertices are not what the patches are made from.
        const SdsBezierMesh mesh = get_bezier_mesh_at(time);
        GMathBbox3<float> box = GMathBbox3<float>::empty();
        Vec3f controls[16];
        for (unsigned int p = 0; p < mesh.get_patch_count(); ++p) {
            mesh.get_patch_controls(p, controls);
            for (const Vec3f& c : controls)
                if (c.is_finite()) box.grow(c);
        }
        return box;
    }
    const GeometryPositionArray positions =
        get_vertices_at(time, ctx.get_shader_ctx()->get_motion_blur().get_time_sampling());
    GMathBbox3<float> box = GMathBbox3<float>::empty();
    for (unsigned int i = 0; i < positions.get_count(); ++i) {
        const Vec3f p = positions[i];
        if (p.is_finite()) box.grow(p);
    }
    return box;
}

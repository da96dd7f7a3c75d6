// Boxes and areas of patches, two at a time. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_double4.h"
#include "sds/mesh_geometry/pair_kernels/pair_controls.h"
#include "sds/mesh_geometry/third_weights.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;

constexpr unsigned int cell_row = 4;  // three cells and a place for none
constexpr unsigned int cell_count = 12;

// The two edges that meet at the highest corner of each of the 9 cells between thirds, one array per coordinate: the
// cells of the first patch, then those of the second. Places without a cell have edges of length 0.
struct CellEdges {
    float along_u[3][2 * cell_count], along_v[3][2 * cell_count];

    explicit CellEdges(const ControlPair& c) {
        SimdFloat8 rows[4][4], points[4][4];
        for (unsigned int r = 0; r < 4; ++r) {
            rows[r][0] = c[r][0];
            rows[r][1] = blend_third<SimdFloat8>(1, c[r][0], c[r][1], c[r][2], c[r][3]);
            rows[r][2] = blend_third<SimdFloat8>(2, c[r][0], c[r][1], c[r][2], c[r][3]);
            rows[r][3] = c[r][3];
        }
        for (unsigned int i = 0; i < 4; ++i) {
            points[0][i] = rows[0][i];
            points[1][i] = blend_third<SimdFloat8>(1, rows[0][i], rows[1][i], rows[2][i], rows[3][i]);
            points[2][i] = blend_third<SimdFloat8>(2, rows[0][i], rows[1][i], rows[2][i], rows[3][i]);
            points[3][i] = rows[3][i];
        }
        for (unsigned int j = 1; j < 4; ++j) {
            const SimdFloat8* row = points[j];
            const SimdFloat8* below = points[j - 1];
            store(along_u, j, row[1] - row[0], row[2] - row[1], row[3] - row[2]);
            store(along_v, j, row[1] - below[1], row[2] - below[2], row[3] - below[3]);
        }
    }

private:
    static void store(float (*out)[2 * cell_count], unsigned int j, SimdFloat8 x, SimdFloat8 y, SimdFloat8 z) {
        SimdFloat8 none(0.0f);
        transpose(x, y, z, none);
        const SimdFloat8 coords[3] = {x, y, z};
        for (unsigned int axis = 0; axis < 3; ++axis) {
            float* first = out[axis] + cell_row * (j - 1);
            coords[axis].store(first, first + cell_count);
        }
    }
};

// False for NaN.
inline bool is_finite(double x) { return __builtin_fabs(x) <= 1.7976931348623157e308; }

// The areas of two patches: those of their cells, projected on the three planes and true.
class CellAreas {
public:
    explicit CellAreas(const CellEdges& edges) : m_edges(edges) {}

    // Adds those of patch 0 or 1.
    SimdDouble4 add(unsigned int patch, SimdDouble4 sums) const {
        const unsigned int first = patch * cell_count;
        const Row a(m_edges, first), b(m_edges, first + cell_row), c(m_edges, first + 2 * cell_row);
        const SimdDouble4 areas =
            sum_of_four((a.x + b.x) + c.x, (a.y + b.y) + c.y, (a.z + b.z) + c.z, (a.length + b.length) + c.length);
        double lanes[4];
        areas.store4(lanes);
        return is_finite(lanes[3]) ? sums + areas : add_finite(first, sums);
    }

private:
    // Absolute normals of a row of cells, and their lengths.
    struct Row {
        SimdDouble4 x, y, z, length;

        Row(const CellEdges& edges, unsigned int cell)
            : Row(SimdDouble4(edges.along_u[0] + cell), SimdDouble4(edges.along_u[1] + cell),
                  SimdDouble4(edges.along_u[2] + cell), SimdDouble4(edges.along_v[0] + cell),
                  SimdDouble4(edges.along_v[1] + cell), SimdDouble4(edges.along_v[2] + cell)) {}

    private:
        Row(SimdDouble4 ux, SimdDouble4 uy, SimdDouble4 uz, SimdDouble4 vx, SimdDouble4 vy, SimdDouble4 vz)
            : x(abs(uy * vz - uz * vy)),
              y(abs(uz * vx - ux * vz)),
              z(abs(ux * vy - uy * vx)),
              length(sqrt(x * x + y * y + z * z)) {}
    };

    // Of the cells with a finite area.
    SimdDouble4 add_finite(unsigned int first, SimdDouble4 sums) const {
        double areas[4];
        sums.store4(areas);
        for (unsigned int cell = first; cell < first + cell_count; ++cell) {
            double u[3], v[3], normal[3];
            for (unsigned int axis = 0; axis < 3; ++axis) {
                u[axis] = static_cast<double>(m_edges.along_u[axis][cell]);
                v[axis] = static_cast<double>(m_edges.along_v[axis][cell]);
            }
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const unsigned int j = (axis + 1) % 3, k = (axis + 2) % 3;
                normal[axis] = __builtin_fabs(u[j] * v[k] - u[k] * v[j]);
            }
            const double length = __builtin_sqrt(normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2]);
            if (!is_finite(length)) continue;
            for (unsigned int axis = 0; axis < 3; ++axis) areas[axis] += normal[axis];
            areas[3] += length;
        }
        return SimdDouble4::load4(areas);
    }

    const CellEdges& m_edges;
};

// The boxes of two patches' control points.
struct BoxPair {
    SimdFloat8 low, high;

    explicit BoxPair(const ControlPair& grid) {
        const SimdFloat8* controls = &grid[0][0];
        low = high = controls[0];
        SimdFloat8 sum = controls[0];
        for (unsigned int i = 1; i < 16; ++i) {
            low = min(low, controls[i]);
            high = max(high, controls[i]);
            sum = sum + controls[i];
        }
        // x - x is 0 for finite x only. A sum that overflows takes the slow path for nothing, which is not wrong.
        if (less_equal_mask(sum - sum, SimdFloat8(0.0f)) != 255) find_finite(controls);
    }

private:
    // Of the points whose three coordinates are finite; a box without any is empty.
    void find_finite(const SimdFloat8* controls) {
        float least[8], greatest[8];
        for (unsigned int i = 0; i < 8; ++i) {
            least[i] = 3.4028235e38f;
            greatest[i] = -3.4028235e38f;
        }
        for (unsigned int i = 0; i < 16; ++i) {
            float point[8];
            controls[i].store(point);
            for (unsigned int patch = 0; patch < 8; patch += 4) {
                bool is_good = true;
                for (unsigned int axis = patch; axis < patch + 3; ++axis)
                    is_good = is_good && is_finite(static_cast<double>(point[axis]));
                if (!is_good) continue;
                for (unsigned int axis = patch; axis < patch + 3; ++axis) {
                    least[axis] = point[axis] < least[axis] ? point[axis] : least[axis];
                    greatest[axis] = point[axis] > greatest[axis] ? point[axis] : greatest[axis];
                }
            }
        }
        low = SimdFloat8(least, least + 4);
        high = SimdFloat8(greatest, greatest + 4);
    }
};

// The box of one group while patches of no other come: neighbors mostly share their group.
class BoxRun {
public:
    BoxRun(PatchSums* sums, unsigned int group) : m_sums(sums) { begin(group); }

    void add(unsigned int group, const BoxPair& boxes) {
        set_group(group);
        m_low = min(boxes.low, m_low);
        m_high = max(boxes.high, m_high);
    }
    // One of the two patches.
    void add(unsigned int group, unsigned int patch, const BoxPair& boxes) {
        set_group(group);
        float low[8], high[8];
        boxes.low.store(low);
        boxes.high.store(high);
        m_low = min(SimdFloat8(low + 4 * patch, low + 4 * patch), m_low);
        m_high = max(SimdFloat8(high + 4 * patch, high + 4 * patch), m_high);
    }
    void end() {
        PatchSums& sums = m_sums[m_group];
        float low[8], high[8];
        m_low.store(low);
        m_high.store(high);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            sums.low[axis] = low[axis] < low[axis + 4] ? low[axis] : low[axis + 4];
            sums.high[axis] = high[axis] > high[axis + 4] ? high[axis] : high[axis + 4];
        }
    }

private:
    void set_group(unsigned int group) {
        if (group == m_group) return;
        end();
        begin(group);
    }
    void begin(unsigned int group) {
        m_group = group;
        const PatchSums& sums = m_sums[group];
        const float low[4] = {sums.low[0], sums.low[1], sums.low[2], 0.0f};
        const float high[4] = {sums.high[0], sums.high[1], sums.high[2], 0.0f};
        m_low = SimdFloat8(low, low);
        m_high = SimdFloat8(high, high);
    }

    PatchSums* m_sums;
    unsigned int m_group;
    SimdFloat8 m_low, m_high;
};

inline void get_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    if (surface.controls != nullptr)
        load_controls<false>(surface, primitives, grid);
    else if (surface.patches != nullptr)
        compute_controls<false>(surface, primitives, grid);
    else
        compute_linear_controls(surface, primitives, grid);
}

// use(q, count, grid) for the patches begin to end by the pair; the last of an odd number takes both groups of lanes.
template <class Use>
inline void for_each_pair(const PatchArrays& surface, unsigned int begin, unsigned int end, const Use& use) {
    for (unsigned int q = begin; q < end; q += 2) {
        const unsigned int count = end - q < 2 ? 1 : 2;
        const unsigned int primitives[2] = {q, q + count - 1};
        ControlPair grid;
        get_controls(surface, primitives, grid);
        use(q, count, grid);
    }
}

void compute_boxes(const PatchArrays& surface, unsigned int begin, unsigned int end, double* boxes) {
    for_each_pair(surface, begin, end, [&](unsigned int, unsigned int count, const ControlPair& grid) {
        // In the order of the controls, which tells of which zeros and NaN a box is made.
        SimdFloat8 low = grid[0][0], high = low;
        for (unsigned int i = 1; i < 16; ++i) {
            const SimdFloat8 control = (&grid[0][0])[grid_places[i]];
            low = min(control, low);
            high = max(control, high);
        }
        float lows[8], highs[8];
        low.store(lows);
        high.store(highs);
        for (unsigned int i = 0; i < count; ++i, boxes += 6)
            for (unsigned int axis = 0; axis < 3; ++axis) {
                boxes[axis] = static_cast<double>(lows[4 * i + axis]);
                boxes[3 + axis] = static_cast<double>(highs[4 * i + axis]);
            }
    });
}

// Adds the box of `count` patches' controls, 48 numbers each, to the box of their group: eight points at a time as they
// stand, none sorted by axes. False, with nothing added, where the order of points matters, as between 0
// and -0, and where numbers are not finite.
bool add_box_of_controls(const float* controls, size_t count, PatchSums& sums) {
    constexpr unsigned int row_count = 3;
    SimdFloat8 low[row_count], high[row_count], sum[row_count];
    for (unsigned int r = 0; r < row_count; ++r) low[r] = high[r] = SimdFloat8::load8(controls + 8 * r);
    for (SimdFloat8& s : sum) s = SimdFloat8(0.0f);
    for (const float *p = controls, *end = controls + 48 * count; p != end; p += 24)
#pragma GCC unroll 3
        for (unsigned int r = 0; r < row_count; ++r) {
            const SimdFloat8 numbers = SimdFloat8::load8(p + 8 * r);
            low[r] = min(numbers, low[r]);
            high[r] = max(numbers, high[r]);
            sum[r] = sum[r] + numbers;
        }
    float lows[24], highs[24];
    for (unsigned int r = 0; r < row_count; ++r) {
        if (less_equal_mask(sum[r] - sum[r], SimdFloat8(0.0f)) != 255) return false;
        low[r].store(lows + 8 * r);
        high[r].store(highs + 8 * r);
    }
    for (unsigned int i = 3; i < 24; ++i) {
        if (lows[i] < lows[i % 3]) lows[i % 3] = lows[i];
        if (highs[i] > highs[i % 3]) highs[i % 3] = highs[i];
    }
    for (unsigned int axis = 0; axis < 3; ++axis)
        if (lows[axis] == 0.0f || highs[axis] == 0.0f) return false;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        if (lows[axis] < sums.low[axis]) sums.low[axis] = lows[axis];
        if (highs[axis] > sums.high[axis]) sums.high[axis] = highs[axis];
    }
    return true;
}

void add_boxes_of_pairs(const PatchArrays& surface, const unsigned int* groups, unsigned int begin, unsigned int end,
                        PatchSums* sums) {
    BoxRun run(sums, groups[begin]);
    for_each_pair(surface, begin, end, [&](unsigned int q, unsigned int count, const ControlPair& grid) {
        const BoxPair boxes(grid);
        if (count == 2 && groups[q] == groups[q + 1]) return run.add(groups[q], boxes);
        for (unsigned int i = 0; i < count; ++i) run.add(groups[q + i], i, boxes);
    });
    run.end();
}

void add_boxes(const PatchArrays& surface, const unsigned int* groups, unsigned int begin, unsigned int end,
               PatchSums* sums) {
    if (surface.controls == nullptr && begin != end) return add_boxes_of_pairs(surface, groups, begin, end, sums);
    for (unsigned int last = begin; begin < end; begin = last) {
        while (last < end && groups[last] == groups[begin]) ++last;
        if (!add_box_of_controls(surface.controls + 48 * size_t{begin}, last - begin, sums[groups[begin]]))
            add_boxes_of_pairs(surface, groups, begin, last, sums);
    }
}

void add_areas(const PatchArrays& surface, const unsigned int* groups, unsigned int begin, unsigned int end,
               PatchSums* sums) {
    if (begin == end) return;
    unsigned int group = groups[begin];
    SimdDouble4 run = SimdDouble4::load4(sums[group].areas);  // of one group while patches of no other come
    for_each_pair(surface, begin, end, [&](unsigned int q, unsigned int count, const ControlPair& grid) {
        const CellEdges edges(grid);
        const CellAreas areas(edges);
        for (unsigned int i = 0; i < count; ++i) {
            if (groups[q + i] != group) {
                run.store4(sums[group].areas);
                group = groups[q + i];
                run = SimdDouble4::load4(sums[group].areas);
            }
            run = areas.add(i, run);
        }
    });
    run.store4(sums[group].areas);
}

}  // namespace

}  // namespace sds

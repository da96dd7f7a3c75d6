// Boxes and areas of patches, two at a time. Included once per instruction set, after pair_controls.inl.

inline SimdFloat8 blend_third(unsigned int i, SimdFloat8 a, SimdFloat8 b, SimdFloat8 c, SimdFloat8 d) {
    const float* w = third_weights[i];
    return ((a * SimdFloat8(w[0]) + b * SimdFloat8(w[1])) + c * SimdFloat8(w[2])) + d * SimdFloat8(w[3]);
}

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
            rows[r][1] = blend_third(1, c[r][0], c[r][1], c[r][2], c[r][3]);
            rows[r][2] = blend_third(2, c[r][0], c[r][1], c[r][2], c[r][3]);
            rows[r][3] = c[r][3];
        }
        for (unsigned int i = 0; i < 4; ++i) {
            points[0][i] = rows[0][i];
            points[1][i] = blend_third(1, rows[0][i], rows[1][i], rows[2][i], rows[3][i]);
            points[2][i] = blend_third(2, rows[0][i], rows[1][i], rows[2][i], rows[3][i]);
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
            float lanes[8];
            coords[axis].store(lanes);
            float* first = out[axis] + cell_row * (j - 1);
            for (unsigned int i = 0; i < cell_row; ++i) {
                first[i] = lanes[i];
                first[cell_count + i] = lanes[cell_row + i];
            }
        }
    }
};

// NaN is not.
inline bool is_finite(double x) { return __builtin_fabs(x) <= 1.7976931348623157e308; }

struct CellAreas {
    double normals[3][2 * cell_count], lengths[2 * cell_count];

    explicit CellAreas(const CellEdges& edges) {
        for (unsigned int cell = 0; cell < 2 * cell_count; ++cell) {
            const double ux = edges.along_u[0][cell], uy = edges.along_u[1][cell], uz = edges.along_u[2][cell];
            const double vx = edges.along_v[0][cell], vy = edges.along_v[1][cell], vz = edges.along_v[2][cell];
            const double x = uy * vz - uz * vy, y = uz * vx - ux * vz, z = ux * vy - uy * vx;
            normals[0][cell] = x;
            normals[1][cell] = y;
            normals[2][cell] = z;
            lengths[cell] = __builtin_sqrt(x * x + y * y + z * z);
        }
    }

    // Adds the areas of patch 0 or 1.
    void add(unsigned int patch, double* areas) const {
        const unsigned int first = patch * cell_count;
        double totals[4];
        for (unsigned int axis = 0; axis < 3; ++axis) totals[axis] = sum(normals[axis] + first);
        totals[3] = sum(lengths + first);
        if (is_finite(totals[3])) {
            for (unsigned int i = 0; i < 4; ++i) areas[i] += totals[i];
            return;
        }
        for (unsigned int cell = first; cell < first + cell_count; ++cell) {
            if (!is_finite(lengths[cell])) continue;
            for (unsigned int axis = 0; axis < 3; ++axis) areas[axis] += __builtin_fabs(normals[axis][cell]);
            areas[3] += lengths[cell];
        }
    }

private:
    // Of absolute values, a row of cells at a time.
    static double sum(const double* values) {
        double sums[cell_row];
        for (unsigned int i = 0; i < cell_row; ++i)
            sums[i] = (__builtin_fabs(values[i]) + __builtin_fabs(values[cell_row + i])) +
                      __builtin_fabs(values[2 * cell_row + i]);
        return (sums[0] + sums[1]) + (sums[2] + sums[3]);
    }
};

// The boxes of two patches' control points.
struct BoxPair {
    float low[8], high[8];

    explicit BoxPair(const ControlPair& grid) {
        const SimdFloat8* controls = &grid[0][0];
        SimdFloat8 least = controls[0], greatest = controls[0], sum = controls[0];
        for (unsigned int i = 1; i < 16; ++i) {
            least = min(least, controls[i]);
            greatest = max(greatest, controls[i]);
            sum = sum + controls[i];
        }
        least.store(low);
        greatest.store(high);
        // What is finite differs from itself by 0. Sums of large numbers may overflow: that is slow, not wrong.
        if (less_equal_mask(sum - sum, SimdFloat8(0.0f)) != 255) find_finite(controls);
    }

    void grow(unsigned int patch, PatchSums& sums) const {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const float least = low[4 * patch + axis], greatest = high[4 * patch + axis];
            sums.low[axis] = least < sums.low[axis] ? least : sums.low[axis];
            sums.high[axis] = greatest > sums.high[axis] ? greatest : sums.high[axis];
        }
    }

private:
    // Of the points whose three coordinates are finite; a box without any is empty.
    void find_finite(const SimdFloat8* controls) {
        for (unsigned int i = 0; i < 8; ++i) {
            low[i] = 3.4028235e38f;
            high[i] = -3.4028235e38f;
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
                    low[axis] = point[axis] < low[axis] ? point[axis] : low[axis];
                    high[axis] = point[axis] > high[axis] ? point[axis] : high[axis];
                }
            }
        }
    }
};

void add_patches(const PatchArrays& surface, const unsigned int* groups, unsigned int begin, unsigned int end,
                 PatchSums* sums) {
    for (unsigned int q = begin; q < end; q += 2) {
        // The last of an odd number takes both groups of lanes.
        const unsigned int count = end - q < 2 ? 1 : 2;
        const unsigned int primitives[2] = {q, q + count - 1};
        ControlPair grid;
        if (surface.patches != nullptr)
            compute_controls<false>(surface, primitives, grid);
        else
            compute_linear_controls(surface, primitives, grid);
        const BoxPair boxes(grid);
        const CellAreas areas{CellEdges(grid)};
        for (unsigned int i = 0; i < count; ++i) {
            PatchSums& group = sums[groups[q + i]];
            boxes.grow(i, group);
            areas.add(i, group.areas);
        }
    }
}

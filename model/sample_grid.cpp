#include "model/sample_grid.h"

#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"

#include <algorithm>
#include <limits>

namespace sds_model {

namespace {

using Vec3d = GMathVec3<double>;

double* put(const Vec3d& v, double* out) { return std::copy(v.get_data(), v.get_data() + 3, out); }

/// Calls sample(fragment, row) for every point of every quad's grid, on all threads.
template <class Sample>
std::vector<double> sample_grid(std::uint32_t quads, unsigned int n, std::size_t row_size, double time,
                                const Sample& sample) {
    const std::size_t side = std::size_t{n} + 1;
    std::vector<double> values(quads * side * side * row_size);
    sys_parallel_for(quads, [&](unsigned int q, unsigned int) {
        double* row = &values[q * side * side * row_size];
        for (unsigned int j = 0; j <= n; ++j)
            for (unsigned int i = 0; i <= n; ++i, row += row_size)
                sample(GeometryFragment{q, static_cast<double>(i) / n, static_cast<double>(j) / n, time, 0.0}, row);
    });
    return values;
}

}  // namespace

void sample_row(const GeometrySample& sample, double* out) {
    out = put(sample.get_geometric_position(), out);
    out = put(sample.get_geometric_dpdu(), out);
    out = put(sample.get_geometric_dpdv(), out);
    out = put(sample.get_geometric_normal(), out);
    put(sample.get_smoothing_normal(), out);
}

std::vector<double> sample_surface(const Surface& surface, unsigned int n, double time) {
    const CtxShader shader;
    const CtxEval ctx(shader);
    return sample_grid(surface.get_base().get_primitive_count(), n, sample_row_size, time,
                       [&](const GeometryFragment& fragment, double* row) {
                           GeometrySample sample;
                           surface.get_geometry().compute_fragment_sample(ctx, fragment, sample);
                           sample_row(sample, row);
                       });
}

std::vector<double> sample_uvs(const Surface& surface, unsigned int n, unsigned int uv_map) {
    const CtxShader shader;
    const CtxEval ctx(shader);
    const SdsMeshMaps& maps = surface.get_maps();
    return sample_grid(surface.get_base().get_primitive_count(), n, uv_row_size, 0.0,
                       [&](const GeometryFragment& fragment, double* row) {
                           if (!maps.is_primitive_uv_mapped(fragment.primitive, uv_map)) {
                               std::fill_n(row, uv_row_size, std::numeric_limits<double>::quiet_NaN());
                               return;
                           }
                           Vec3d uvw, du, dv;
                           maps.compute_fragment_uvw(ctx, fragment, uv_map, uvw, du, dv);
                           put(dv, put(du, put(uvw, row)));
                       });
}

std::vector<double> sample_property(const Surface& surface, const SurfaceProperty& property, unsigned int n,
                                    double time) {
    const CtxShader shader;
    const CtxEval ctx(shader);
    const std::size_t extent = property.get_extent();
    return sample_grid(surface.get_base().get_primitive_count(), n, 3 * extent, time,
                       [&](const GeometryFragment& fragment, double* row) {
                           property.evaluate(ctx, fragment, row, row + extent, row + 2 * extent);
                       });
}

std::vector<float> patch_controls(const Surface& surface, double time) {
    const std::uint32_t quads = surface.get_base().get_primitive_count();
    const SdsBezierMesh patches = surface.get_geometry().get_bezier_mesh_at(time);
    std::vector<float> values(48 * std::size_t{quads});
    for (std::uint32_t q = 0; q < quads; ++q) {
        GMathVec3<float> controls[16];
        patches.get_patch_controls(q, controls);
        float* out = &values[48 * std::size_t{q}];
        for (const GMathVec3<float>& c : controls) out = std::copy(c.get_data(), c.get_data() + 3, out);
    }
    return values;
}

}  // namespace sds_model

#include "model/sample_grid.h"

#include "model/array_size.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"
#include "sds/refinement/patch_places.h"

#include <algorithm>
#include <limits>

namespace sds_model {

namespace {

using Vec3d = GMathVec3<double>;

double* put(const Vec3d& v, double* out) { return std::copy(v.get_data(), v.get_data() + 3, out); }

/// Calls sample(fragment, row) for every point of every quad's grid, on all threads. The progress may be null.
template <class Sample>
std::vector<double> sample_grid(std::uint32_t quads, unsigned int n, std::size_t row_size, double time,
                                AppProgressBar* progress, const Sample& sample) {
    const std::size_t side = std::size_t{n} + 1;
    std::vector<double> values(checked_count({quads, side, side, row_size}, sizeof(double)));
    const std::uint32_t quads_per_step = std::max(quads / 1024, 1u);
    sys_parallel_for(quads, [&](unsigned int q, unsigned int) {
        if (progress != nullptr && q % quads_per_step == 0)
            progress->increment(static_cast<float>(quads_per_step) / static_cast<float>(quads));
        double* row = &values[q * side * side * row_size];
        for (unsigned int j = 0; j <= n; ++j)
            for (unsigned int i = 0; i <= n; ++i, row += row_size)
                sample(GeometryFragment{q, static_cast<double>(i) / n, static_cast<double>(j) / n, time, 0.0}, row);
    });
    return values;
}

}  // namespace

std::vector<double> sample_surface(const Surface& surface, unsigned int n, double time, AppProgressBar* progress) {
    surface.check_time(time);
    const CtxShader shader;
    const CtxEval ctx(shader);
    const SdsMesh mesh = surface.make_mesh(0);
    return sample_grid(
        surface.get_base().get_primitive_count(), n, sample_row_size, time, progress,
        [&](const GeometryFragment& fragment, double* row) { sample_on_quad(mesh, ctx, fragment, row); });
}

std::vector<double> sample_uvs(const Surface& surface, unsigned int n, unsigned int uv_map, AppProgressBar* progress) {
    const CtxShader shader;
    const CtxEval ctx(shader);
    const SdsMeshMaps& maps = surface.get_maps();
    return sample_grid(surface.get_base().get_primitive_count(), n, uv_row_size, 0.0, progress,
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

std::vector<double> sample_property(const SdsMesh& mesh, const SurfaceProperty& property, unsigned int n, double time,
                                    AppProgressBar* progress) {
    const CtxShader shader;
    const CtxEval ctx(shader);
    return sample_grid(
        mesh.get_base()->get_primitive_count(), n, 3 * std::size_t{property.get_extent()}, time, progress,
        [&](const GeometryFragment& fragment, double* row) { evaluate_on_quad(property, mesh, ctx, fragment, row); });
}

std::vector<float> patch_controls(const Surface& surface, double time) {
    surface.check_time(time);
    const std::uint32_t count = surface.get_geometry().get_patch_count();
    const SdsBezierMesh patches = surface.get_geometry().get_bezier_mesh_at(time);
    std::vector<float> values(48 * std::size_t{count});
    for (std::uint32_t p = 0; p < count; ++p) {
        GMathVec3<float> controls[16];
        patches.get_patch_controls(p, controls);
        float* out = &values[48 * std::size_t{p}];
        for (const GMathVec3<float>& c : controls) out = std::copy(c.get_data(), c.get_data() + 3, out);
    }
    return values;
}

std::vector<std::int32_t> patch_places(const Surface& surface) {
    const SdsMeshGeometry& geometry = surface.get_geometry();
    std::vector<std::int32_t> values;
    values.reserve(patch_place_size * std::size_t{geometry.get_patch_count()});
    for (std::uint32_t p = 0; p < geometry.get_patch_count(); ++p) {
        const sds::RefinedPatch patch =
            geometry.is_refined() ? geometry.get_places().get_patch(p) : sds::RefinedPatch(p, 0, 0, 0, false);
        for (const std::uint32_t value :
             {patch.quad(), static_cast<std::uint32_t>(patch.level()), patch.x(), patch.y()})
            values.push_back(static_cast<std::int32_t>(value));
    }
    return values;
}

}  // namespace sds_model

#include "surface_state.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "model/array_view.h"
#include "model/sample_grid.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"
#include "render/batch.h"

namespace sds_python {

namespace {

constexpr std::size_t fragments_per_task = 1024;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

double item(std::span<const double> values, std::size_t i) { return values[values.size() == 1 ? 0 : i]; }

GMathVec3<double> vector(std::span<const double> values, std::size_t i) {
    if (values.size() == 3) i = 0;
    return {values[3 * i], values[3 * i + 1], values[3 * i + 2]};
}

void turn_to_quad(const GeometryPlace& turned, SdsMeshGeometry::LimitPoint& point) {
    for (unsigned int c = 0; c < 3; ++c) {
        double du = static_cast<double>(point.du[c]), dv = static_cast<double>(point.dv[c]);
        turned.turn_to_face(du, dv);
        point.du[c] = static_cast<float>(du);
        point.dv[c] = static_cast<float>(dv);
    }
}

class ArraySampleLoader : public SdsMeshGeometry::SampleLoader {
public:
    ArraySampleLoader(std::vector<float> positions, std::size_t times)
        : m_positions(std::move(positions)), m_size(m_positions.size() / times) {}

    void get_positions(const GMathTimeSampling&, const unsigned int& sample, GMathVec3<float>* out) override {
        const float* xyz = &m_positions[sample * m_size];
        for (std::size_t i = 0; i < m_size / 3; ++i) out[i] = {xyz[3 * i], xyz[3 * i + 1], xyz[3 * i + 2]};
    }

private:
    std::vector<float> m_positions;
    std::size_t m_size;
};

}  // namespace

GeometryFragment Fragments::at(std::size_t i) const {
    return {static_cast<unsigned int>(primitives[i]), uv[2 * i], uv[2 * i + 1], item(times, i), 0.0};
}

sds_model::CageView CageProperties::get_cage() const {
    sds_model::CageView cage{};
    cage.polygon_counts = face_counts;
    cage.polygon_indices = face_indices;
    cage.corner_creases = corner_creases;
    return cage;
}

GeometryRay RayArrays::at(std::size_t i) const {
    GeometryRay ray;
    ray.origin = vector(origins, i);
    ray.direction = vector(directions, i);
    ray.tnear = item(tnear, i);
    ray.tfar = item(tfar, i);
    ray.time = item(times, i);
    return ray;
}

SurfaceState::SurfaceState(std::unique_ptr<sds_model::Surface> surface, TimeSamples samples,
                           std::shared_ptr<const CageProperties> properties)
    : m_surface(std::move(surface)), m_traced(*m_surface), m_properties(std::move(properties)) {
    if (samples.times.empty()) return;
    using Loader = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;
    m_surface->get_geometry().set_positions_sampling(
        GMathTimeSampling(sds_model::view_of(samples.times)),
        Loader(new ArraySampleLoader(std::move(samples.positions), samples.times.size())));
}

void SurfaceState::check(const Fragments& fragments) const {
    const std::int64_t count = m_surface->get_base().get_primitive_count();
    const auto is_unit = [](double x) { return x >= 0.0 && x <= 1.0; };
    for (std::size_t i = 0; i < fragments.size(); ++i) {
        const std::int64_t primitive = fragments.primitives[i];
        if (primitive < -1 || primitive >= count)
            throw std::out_of_range("fragment " + std::to_string(i) + ": primitive " + std::to_string(primitive) +
                                    ", the surface has 0 to " + std::to_string(count - 1) + ", -1 is none");
        if (primitive == -1) continue;
        if (!is_unit(fragments.uv[2 * i]) || !is_unit(fragments.uv[2 * i + 1]))
            throw std::invalid_argument("fragment " + std::to_string(i) + ": u and v are between 0 and 1");
    }
    for (const double time : fragments.times) m_surface->check_time(time);
}

template <class Visit>
void SurfaceState::for_each_range(const Fragments& fragments, const Visit& visit) const {
    check(fragments);
    const std::size_t count = fragments.size();
    const auto tasks = static_cast<unsigned int>((count + fragments_per_task - 1) / fragments_per_task);
    sys_parallel_for(tasks, [&](unsigned int task, unsigned int) {
        const std::size_t first = task * fragments_per_task;
        visit(first, std::min(first + fragments_per_task, count));
    });
}

template <class Visit>
void SurfaceState::for_each_fragment(const Fragments& fragments, const Visit& visit) const {
    const CtxShader shader;
    const CtxEval ctx(shader);
    for_each_range(fragments, [&](std::size_t first, std::size_t last) {
        for (std::size_t i = first; i < last; ++i) visit(ctx, i);
    });
}

void SurfaceState::compute_limit_points(const Fragments& fragments, float* out) const {
    const SdsMesh mesh = m_surface->make_mesh(0);
    const auto find = [&](std::size_t i) {
        return fragments.primitives[i] == -1 ? sds_model::PatchFragment{}
                                             : sds_model::find_patch(mesh, fragments.at(i));
    };
    for_each_range(fragments, [&](std::size_t first, std::size_t last) {
        SdsMeshGeometry::LimitPlace places[fragments_per_task] = {};
        SdsMeshGeometry::LimitPoint points[fragments_per_task];
        unsigned int count = 0;
        for (std::size_t i = first; i < last; ++i)
            if (const sds_model::PatchFragment found = find(i); found.has_surface)
                places[count++] = {found.fragment.primitive, static_cast<float>(found.fragment.u),
                                   static_cast<float>(found.fragment.v)};
        m_surface->get_geometry().compute_limit_points(places, count, points);
        SdsMeshGeometry::LimitPoint* point = points;
        for (std::size_t i = first; i < last; ++i) {
            float* row = out + i * limit_row_size;
            const sds_model::PatchFragment found = find(i);
            if (!found.has_surface) {
                std::fill_n(row, limit_row_size, static_cast<float>(nan));
                continue;
            }
            if (mesh.get_geometry()->is_refined()) turn_to_quad(found.turned, *point);
            for (const GMathVec3<float>& v : {point->position, point->du, point->dv, point->normal})
                row = std::copy_n(v.get_data(), 3, row);
            ++point;
        }
    });
}

void SurfaceState::sample(const Fragments& fragments, unsigned int level, double* out) const {
    const SdsMesh mesh = m_surface->make_mesh(level);
    for_each_fragment(fragments, [&](const CtxEval& ctx, std::size_t i) {
        double* row = out + i * sds_model::sample_row_size;
        if (fragments.primitives[i] == -1) {
            std::fill_n(row, sds_model::sample_row_size, nan);
            return;
        }
        sds_model::sample_on_quad(mesh, ctx, fragments.at(i), row);
    });
}

void SurfaceState::look_up_uvs(const Fragments& fragments, unsigned int map, double* out) const {
    const SdsMeshMaps& maps = m_surface->get_maps();
    for_each_fragment(fragments, [&](const CtxEval& ctx, std::size_t i) {
        double* row = out + i * sds_model::uv_row_size;
        const GeometryFragment fragment = fragments.at(i);
        if (fragments.primitives[i] == -1 || !maps.is_primitive_uv_mapped(fragment.primitive, map)) {
            std::fill_n(row, sds_model::uv_row_size, nan);
            return;
        }
        GMathVec3<double> uvw[3];
        maps.compute_fragment_uvw(ctx, fragment, map, uvw[0], uvw[1], uvw[2]);
        for (const GMathVec3<double>& v : uvw) row = std::copy_n(v.get_data(), 3, row);
    });
}

void SurfaceState::look_up_property(const Fragments& fragments, unsigned int property, double* out) const {
    std::call_once(m_is_bound, [&] {
        const CageProperties& of = *m_properties;
        m_property_mesh = m_surface->make_mesh(0);
        m_bound = std::make_unique<sds_model::MeshProperties>(of.sources, of.get_cage(), m_property_mesh);
    });
    const sds_model::SurfaceProperty& bound = m_bound->get_all()[property];
    const std::size_t row_size = 3 * std::size_t{bound.get_extent()};
    for_each_fragment(fragments, [&](const CtxEval& ctx, std::size_t i) {
        if (fragments.primitives[i] == -1)
            std::fill_n(out + i * row_size, row_size, nan);
        else
            sds_model::evaluate_on_quad(bound, m_property_mesh, ctx, fragments.at(i), out + i * row_size);
    });
}

void SurfaceState::look_up_colors(const Fragments& fragments, unsigned int map, float* out) const {
    const SdsMeshMaps& maps = m_surface->get_maps();
    for_each_fragment(fragments, [&](const CtxEval& ctx, std::size_t i) {
        GMathVec4<float> color(0, 0, 0, 0);
        if (fragments.primitives[i] == -1)
            color = {static_cast<float>(nan), static_cast<float>(nan), static_cast<float>(nan),
                     static_cast<float>(nan)};
        else
            maps.compute_fragment_color(ctx, fragments.at(i), map, color);
        for (unsigned int c = 0; c < 4; ++c) out[4 * i + c] = color[c];
    });
}

std::vector<GeometryRay> SurfaceState::trace(const RayArrays& rays, std::size_t first, std::size_t last,
                                             const TracedMesh& traced, GeometryRayMode mode) const {
    std::vector<GeometryRay> records;
    records.reserve(last - first);
    for (std::size_t i = first; i < last; ++i) {
        records.push_back(rays.at(i));
        records.back().mode = mode;
    }
    sds_render::intersect_batch(traced.scene, records.data(), records.size(), {});
    return records;
}

void SurfaceState::find_occluded(const RayArrays& rays, std::size_t first, std::size_t last, unsigned int level,
                                 const sds_render::Shutter& shutter, bool* is_occluded) const {
    const std::shared_ptr<const TracedMesh> traced = m_traced.get(level, shutter);
    const std::vector<GeometryRay> records = trace(rays, first, last, *traced, GeometryRayMode::any);
    for (std::size_t i = first; i < last; ++i)
        is_occluded[i] = records[i - first].hit.primitive != sds_render::no_index;
}

void SurfaceState::intersect(const RayArrays& rays, std::size_t first, std::size_t last, unsigned int level,
                             const sds_render::Shutter& shutter, const HitArrays& hits) const {
    const std::shared_ptr<const TracedMesh> traced = m_traced.get(level, shutter);
    std::vector<GeometryRay> records = trace(rays, first, last, *traced, GeometryRayMode::closest);
    for (std::size_t i = first; i < last; ++i) {
        GeometryHit& hit = records[i - first].hit;
        sds_model::move_to_quad(traced->mesh, hit);
        const bool is_hit = hit.primitive != sds_render::no_index;
        hits.primitives[i] = is_hit ? static_cast<std::int32_t>(hit.primitive) : -1;
        hits.u[i] = is_hit ? hit.u : 0.0;
        hits.v[i] = is_hit ? hit.v : 0.0;
        hits.t[i] = is_hit ? hit.t : std::numeric_limits<double>::infinity();
    }
}

std::vector<unsigned int> SurfaceState::select(const GeometryFrustum& frustum, sds_render::SelectMode mode,
                                               unsigned int level) const {
    return sds_model::select_quads(m_surface->make_mesh(level), frustum, mode);
}

}  // namespace sds_python

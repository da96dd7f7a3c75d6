// Positions and patches in time: lazily loaded samples with their limit corners, or motion vectors.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "qn_ctx/ctx_eval.h"
#include "qn_poly/poly_mesh.h"
#include "sds/mesh_geometry/corner_cache.h"
#include "sds/mesh_geometry/refined_surface.h"

using Vec3f = GMathVec3<float>;

namespace {

// Sources of a smaller share are dropped, so that a time on a sample costs one source.
constexpr float min_share = 0.0001f;

}  // namespace

// Between the host's loader of control positions and the point cloud, which holds subdivided ones.
class SdsMeshGeometry::PointCloudSampleLoader : public GeometryPointCloud::SampleLoader {
public:
    PointCloudSampleLoader(const SdsMeshGeometry& geometry,
                           const CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>& loader)
        : m_geometry(&geometry), m_loader(loader) {}

    void load(const GMathTimeSampling& sampling, const unsigned int& sample, Vec3f* out) override {
        const SdsMeshBase::SubdivisionTopology* subdivision = m_geometry->base->get_subdivision();
        if (subdivision != nullptr) {
            CoreArray<Vec3f> positions(subdivision->first_edge_point);
            m_loader->get_positions(sampling, sample, positions.get_data());
            if (m_geometry->is_refined()) keep_control_positions(sampling, sample, positions);
            std::fill(out, out + m_geometry->point_cloud.get_count(), Vec3f(0, 0, 0));
            SdsMeshBase::compute_subdivision_positions(positions, m_geometry->get_topology_context(), out,
                                                       m_geometry->mode == InterpolationMode::all_fixed, nullptr);
        } else {
            m_loader->get_positions(sampling, sample, out);
        }
        m_geometry->advert_memory_changed();
    }

    // Hands over those of a sample that was loaded: they can be taken once.
    CoreArray<Vec3f> take_control_positions(unsigned int sample) {
        const SysThreadLockGuard guard(m_lock);
        CoreArray<Vec3f> taken;
        taken.swap(m_control_positions[sample]);
        return taken;
    }

private:
    // Several clouds may load through one loader.
    void keep_control_positions(const GMathTimeSampling& sampling, unsigned int sample,
                                const CoreArray<Vec3f>& positions) {
        const SysThreadLockGuard guard(m_lock);
        if (m_control_positions.is_empty()) m_control_positions.resize(sampling.get_sample_count());
        m_control_positions[sample] = positions;
    }

    const SdsMeshGeometry* m_geometry;
    CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter> m_loader;
    SysThreadLock m_lock;
    // By sample, of refined surfaces that begin at polygons: the patches are made from these and not from the vertices.
    CoreArray<CoreArray<Vec3f>> m_control_positions;
};

SdsMeshGeometry::SampleLoader::~SampleLoader() = default;

void SdsMeshGeometry::PolyMeshSampleLoader::get_positions(const GMathTimeSampling&, const unsigned int& sample,
                                                          Vec3f* out) {
    const Vec3f* positions = m_mesh->get_sample_positions(sample);
    std::copy(positions, positions + m_mesh->get_point_cloud().get_count(), out);
}

void SdsMeshGeometry::set_positions_sampling(const GMathTimeSampling& sampling,
                                             CoreSharedPointer<SampleLoader, CoreSharedCounter> loader) {
    if (refinement && sampling.get_sample_count() != 0) keep_refined_levels();
    make_late_vertices();
    cloud_loader = CoreSharedPointer<GeometryPointCloud::SampleLoader, CoreSharedCounter>(
        new PointCloudSampleLoader(*this, loader));
    point_cloud.init_sampling(sampling, cloud_loader);
    corner_cache = sampling.get_sample_count() != 0
                       ? std::make_shared<CornerCache>(sampling.get_sample_count(), is_refined())
                       : nullptr;
    sample_loader = std::move(loader);
}

CoreArray<Vec3f> SdsMeshGeometry::take_control_positions(const unsigned int& sample) const {
    return static_cast<PointCloudSampleLoader*>(cloud_loader.get())->take_control_positions(sample);
}

const CoreBasicArray<Vec3f> SdsMeshGeometry::get_vertices_sample(const unsigned int& sample) const {
    return {point_cloud.get_count(), const_cast<Vec3f*>(point_cloud.get_sample_positions(sample))};
}

const Vec3f* SdsMeshGeometry::get_bezier_corners_sample(const unsigned int& sample) const {
    if (mode == InterpolationMode::all_fixed) return nullptr;
    const auto make = [&] {
        const CoreBasicArray<Vec3f> positions = get_vertices_sample(sample);
        std::unique_ptr<Vec3f[]> corners(new Vec3f[positions.get_count()]);
        std::copy(positions.begin(), positions.end(), corners.get());
        SdsMeshBase::compute_bezier_corners(get_topology_context(), positions, corners.get(), nullptr);
        return corners;
    };
    return corner_cache->corners.get(sample, *sample_lock, make, [this] { advert_memory_changed(); });
}

SdsBezierMesh SdsMeshGeometry::get_bezier_mesh_sample(const unsigned int& sample) const {
    if (refinement) {
        SdsBezierMesh mesh = make_view();
        add_sample(sample, 1.0f, mesh);
        return mesh;
    }
    return {base->get_primitive_count(),
            point_cloud.get_count(),
            base->get_quad_indices().get_data(),
            arrays.bezier_patches.get_data(),
            get_vertices_sample(sample).get_data(),
            get_bezier_corners_sample(sample),
            nullptr};
}

SdsBezierMesh SdsMeshGeometry::make_view() const {
    // No quads are seen through stored controls.
    if (are_vertices_due.load(std::memory_order_acquire)) return {get_patch_count(), 0, nullptr, nullptr, nullptr};
    return {get_patch_count(), point_cloud.get_count(), base->get_quad_indices().get_data(),
            arrays.bezier_patches.get_data(), nullptr};
}

void SdsMeshGeometry::add_sample(const unsigned int& sample, const float& weight, SdsBezierMesh& mesh) const {
    const Vec3f* vertices = get_vertices_sample(sample).get_data();
    if (refinement)
        mesh.add_controls(vertices, get_refined_sample(sample).get_controls(), weight);
    else
        mesh.add_vertices(vertices, get_bezier_corners_sample(sample), weight);
}

void SdsMeshGeometry::add_motion(const float& weight, SdsBezierMesh& mesh) const {
    if (refinement)
        mesh.add_controls(get_view_motion(), refinement->motion.get_controls(), weight);
    else
        mesh.add_vertices(get_view_motion(), arrays.bezier_corner_motion_vectors.get_data(), weight);
}

SdsMeshGeometry::SampleBlend SdsMeshGeometry::get_sample_blend(const double& time) const {
    unsigned int sample = 0;
    double fraction = 0.0;
    get_positions_sampling().get_span(time, sample, fraction);
    const auto f = static_cast<float>(fraction);
    SampleBlend blend;
    const bool has_first = 1.0f - f > min_share, has_second = f > min_share;
    const auto add = [&blend](unsigned int i, float weight) {
        blend.samples[blend.count] = i;
        blend.weights[blend.count++] = weight;
    };
    // A sample that stands alone has the whole share.
    if (has_first) add(sample, has_second ? 1.0f - f : 1.0f);
    if (has_second) add(sample + 1, has_first ? f : 1.0f);
    return blend;
}

SdsBezierMesh SdsMeshGeometry::get_bezier_mesh_at(const double& time) const {
    if (has_positions_sampling()) {
        SdsBezierMesh mesh = make_view();
        const SampleBlend blend = get_sample_blend(time);
        for (unsigned int i = 0; i < blend.count; ++i) add_sample(blend.samples[i], blend.weights[i], mesh);
        return mesh;
    }
    SdsBezierMesh mesh = bezier_mesh;
    if (has_motion_vectors()) add_motion(static_cast<float>(time), mesh);
    return mesh;
}

// The shutter has no say in where the surface is: a place that depended on it would be another one for every renderer.
SdsBezierMesh SdsMeshGeometry::get_bezier_mesh_at(const double& time, const GMathTimeSampling&) const {
    return is_rest_time(time) ? bezier_mesh : get_bezier_mesh_at(time);
}

bool SdsMeshGeometry::get_bezier_velocities(const GeometryFragment& fragment, Vec3f* out) const {
    if (!is_animated() || !(std::fabs(fragment.time_interval) > 1e-8)) return false;
    SdsBezierMesh velocities = make_view();
    if (!has_positions_sampling())
        add_motion(1.0f, velocities);
    else
        add_sampled_velocities(fragment.time, fragment.time_interval, velocities);
    if (velocities.get_source_count() != 0)
        velocities.get_patch_controls(fragment.primitive, out);
    else
        std::fill_n(out, 16, Vec3f(0, 0, 0));
    return true;
}

// The difference of two blends, as one blend whose weights add up to zero: no digits are lost between the two places,
// however near they are. Within one span it is the span's own slope, which holds at both ends of the samples too.
void SdsMeshGeometry::add_sampled_velocities(const double& time, const double& interval,
                                             SdsBezierMesh& velocities) const {
    const GMathTimeSampling& sampling = get_positions_sampling();
    const unsigned int count = sampling.get_sample_count();
    if (count < 2) return;
    const double first = sampling.get_sample_time(0), last = sampling.get_sample_time(count - 1);
    // Outside its samples the surface stands still; a time that was rounded out of them is not outside.
    const double slack = static_cast<double>(min_share) * (last - first);
    if (!(time >= first - slack && time <= last + slack)) return;
    const double begin = std::clamp(time, first, last), end = std::clamp(begin + interval, first, last);
    unsigned int from = 0, to = 0;
    double from_fraction = 0.0, to_fraction = 0.0;
    sampling.get_span(begin, from, from_fraction);
    sampling.get_span(end, to, to_fraction);
    const auto add = [&](unsigned int sample, double weight) {
        if (weight != 0.0) add_sample(sample, static_cast<float>(weight), velocities);
    };
    if (from == to) {
        const double slope = 1.0 / (sampling.get_sample_time(from + 1) - sampling.get_sample_time(from));
        add(from, -slope);
        add(from + 1, slope);
        return;
    }
    const double rate = 1.0 / (end - begin);
    add(from, (from_fraction - 1.0) * rate);
    add(from + 1, -from_fraction * rate);
    add(to, (1.0 - to_fraction) * rate);
    add(to + 1, to_fraction * rate);
}

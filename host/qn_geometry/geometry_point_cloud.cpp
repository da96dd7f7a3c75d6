#include "qn_geometry/geometry_point_cloud.h"

#include <cstring>

GeometryPointCloud::SampleLoader::~SampleLoader() = default;

GeometryPointCloud::GeometryPointCloud() : m_lock(std::make_unique<SysThreadLock>()) {}

GeometryPointCloud::GeometryPointCloud(const GeometryPointCloud& other) : GeometryPointCloud() { *this = other; }

GeometryPointCloud& GeometryPointCloud::operator=(const GeometryPointCloud& other) {
    if (this == &other) return *this;
    m_positions = other.m_positions;
    m_radii = other.m_radii;
    m_velocities = other.m_velocities;
    drop_samples();
    if (other.has_sampling()) init_sampling(other.m_sampling, other.m_loader);
    return *this;
}

void GeometryPointCloud::init(const unsigned int& count, const GMathVec3<float>* positions, const float* radii,
                              const GMathVec3<float>* velocities) {
    init(count, radii != nullptr, velocities != nullptr, false);
    if (count == 0) return;
    std::memcpy(static_cast<void*>(m_positions.get_data()), positions, sizeof(GMathVec3<float>) * count);
    if (radii != nullptr) std::memcpy(m_radii.get_data(), radii, sizeof(float) * count);
    if (velocities != nullptr)
        std::memcpy(static_cast<void*>(m_velocities.get_data()), velocities, sizeof(GMathVec3<float>) * count);
}

void GeometryPointCloud::init(const unsigned int& count, const bool& has_radii, const bool& has_velocities,
                              const bool& zeroed) {
    drop_samples();
    m_positions.resize(count);
    m_radii.resize(has_radii ? count : 0);
    m_velocities.resize(has_velocities ? count : 0);
    if (!zeroed) return;
    m_positions.assign(count, {0, 0, 0});
    m_radii.assign(m_radii.get_count(), 0.0f);
    m_velocities.assign(m_velocities.get_count(), {0, 0, 0});
}

void GeometryPointCloud::init_sampling(const GMathTimeSampling& sampling,
                                       const CoreSharedPointer<SampleLoader, CoreSharedCounter>& loader) {
    drop_samples();
    m_sampling = sampling;
    m_loader = loader;
    m_samples.reset(sampling.get_sample_count());
}

const GMathVec3<float>* GeometryPointCloud::get_sample_positions(const unsigned int& sample) const {
    const auto load = [&] {
        std::unique_ptr<GMathVec3<float>[]> positions(new GMathVec3<float>[get_count()]);
        m_loader->load(m_sampling, sample, positions.get());
        return positions;
    };
    return m_samples.get(sample, *m_lock, load, [] {});
}

size_t GeometryPointCloud::get_memory_size() const {
    size_t size = sizeof(*this) +
                  sizeof(GMathVec3<float>) * (size_t{m_positions.get_count()} + m_velocities.get_count()) +
                  sizeof(float) * m_radii.get_count();
    for (unsigned int i = 0; i < m_samples.get_count(); ++i)
        if (m_samples.find(i) != nullptr) size += sizeof(GMathVec3<float>) * get_count();
    return size;
}

void GeometryPointCloud::drop_samples() {
    m_samples.reset(0);
    m_sampling = GMathTimeSampling();
    m_loader.reset();
}

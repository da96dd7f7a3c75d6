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

GeometryPointCloud::~GeometryPointCloud() { drop_samples(); }

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
    m_samples = std::make_unique<std::atomic<GMathVec3<float>*>[]>(sampling.get_sample_count());
}

const GMathVec3<float>* GeometryPointCloud::get_sample_positions(const unsigned int& sample) const {
    std::atomic<GMathVec3<float>*>& slot = m_samples[sample];
    if (const GMathVec3<float>* loaded = slot.load(std::memory_order_acquire)) return loaded;
    const SysThreadLockGuard guard(*m_lock);
    if (const GMathVec3<float>* loaded = slot.load(std::memory_order_relaxed)) return loaded;
    // At least one point, so that a loaded sample of an empty cloud differs from an absent one.
    std::unique_ptr<GMathVec3<float>[]> positions(new GMathVec3<float>[get_count() + 1u]);
    m_loader->load(m_sampling, sample, positions.get());
    slot.store(positions.get(), std::memory_order_release);
    return positions.release();
}

size_t GeometryPointCloud::get_memory_size() const {
    size_t size = sizeof(*this) +
                  sizeof(GMathVec3<float>) * (size_t{m_positions.get_count()} + m_velocities.get_count()) +
                  sizeof(float) * m_radii.get_count();
    for (unsigned int i = 0; i < m_sampling.get_sample_count(); ++i)
        if (m_samples[i].load(std::memory_order_acquire) != nullptr) size += sizeof(GMathVec3<float>) * get_count();
    return size;
}

void GeometryPointCloud::drop_samples() {
    for (unsigned int i = 0; i < m_sampling.get_sample_count(); ++i)
        delete[] m_samples[i].load(std::memory_order_relaxed);
    m_samples.reset();
    m_sampling = GMathTimeSampling();
    m_loader.reset();
}

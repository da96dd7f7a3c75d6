// Points with optional radii, velocities and time samples.
#pragma once

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"
#include "qn_core/core_shared_pointer.h"
#include "qn_gmath/gmath_time_sampling.h"
#include "qn_gmath/gmath_vec.h"
#include "qn_sys/sys_lazy_slots.h"

class QN_EXPORT GeometryPointCloud {
public:
    // Gives the positions of one time sample: get_count() points into `out`. Called at most once per sample, under the
    // cloud's lock.
    class QN_EXPORT SampleLoader {
    public:
        virtual ~SampleLoader();
        virtual void load(const GMathTimeSampling& sampling, const unsigned int& sample, GMathVec3<float>* out) = 0;
    };

    GeometryPointCloud();
    // Copies points and velocities; the time samples are shared through their loader and loaded anew.
    GeometryPointCloud(const GeometryPointCloud& other);
    GeometryPointCloud& operator=(const GeometryPointCloud& other);
    ~GeometryPointCloud() = default;

    // Copies `count` points; null radii or velocities mean none. Time samples are dropped.
    void init(const unsigned int& count, const GMathVec3<float>* positions, const float* radii,
              const GMathVec3<float>* velocities);
    // Makes room for `count` points. Values are zero when `zeroed`, undefined otherwise. Time samples are dropped.
    void init(const unsigned int& count, const bool& has_radii, const bool& has_velocities, const bool& zeroed);
    // Installs lazily loaded time samples; those loaded before are dropped. Not concurrent with readers.
    void init_sampling(const GMathTimeSampling& sampling,
                       const CoreSharedPointer<SampleLoader, CoreSharedCounter>& loader);

    const unsigned int& get_count() const { return m_positions.get_count(); }
    bool is_empty() const { return m_positions.is_empty(); }
    const CoreArray<GMathVec3<float>>& get_positions() const { return m_positions; }
    CoreArray<GMathVec3<float>>& get_positions() { return m_positions; }
    const CoreArray<float>& get_radii() const { return m_radii; }
    bool has_velocities() const { return !m_velocities.is_empty(); }
    const CoreArray<GMathVec3<float>>& get_velocities() const { return m_velocities; }
    CoreArray<GMathVec3<float>>& get_velocities() { return m_velocities; }

    bool has_sampling() const { return m_sampling.get_sample_count() != 0; }
    const GMathTimeSampling& get_sampling() const { return m_sampling; }
    const CoreSharedPointer<SampleLoader, CoreSharedCounter>& get_loader() const { return m_loader; }
    // The get_count() positions of one sample, loaded on first use; any thread. `sample` is below the sampling's count.
    const GMathVec3<float>* get_sample_positions(const unsigned int& sample) const;

    size_t get_memory_size() const;

private:
    void drop_samples();

    CoreArray<GMathVec3<float>> m_positions;
    CoreArray<float> m_radii;
    CoreArray<GMathVec3<float>> m_velocities;
    GMathTimeSampling m_sampling;
    CoreSharedPointer<SampleLoader, CoreSharedCounter> m_loader;
    SysLazySlots<GMathVec3<float>[]> m_samples;
    std::unique_ptr<SysThreadLock> m_lock;
};

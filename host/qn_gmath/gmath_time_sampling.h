// The sample times of a motion set, strictly increasing.
#pragma once

#include "qn_core/core_array.h"

class GMathTimeSampling {
public:
    GMathTimeSampling() = default;  // no samples
    // `times` must be strictly increasing and finite.
    explicit GMathTimeSampling(const CoreBasicArray<double>& times) { m_times.copy_from(times); }

    unsigned int get_sample_count() const { return m_times.get_count(); }
    const double& get_sample_time(const unsigned int& sample) const { return m_times[sample]; }

    // The sample at or before `time` and the fraction in [0, 1] of the way to the next one. Times outside the samples
    // (and NaN) are clamped; the last sample answers as (count - 2, 1). One sample or none: (0, 0).
    void get_span(const double& time, unsigned int& sample, double& fraction) const {
        const unsigned int count = m_times.get_count();
        sample = 0;
        fraction = 0.0;
        if (count < 2 || !(time > m_times[0])) return;
        if (time >= m_times[count - 1]) {
            sample = count - 2;
            fraction = 1.0;
            return;
        }
        while (sample + 2 < count && time >= m_times[sample + 1]) ++sample;
        fraction = (time - m_times[sample]) / (m_times[sample + 1] - m_times[sample]);
    }

private:
    CoreArray<double> m_times;
};

#include "qn_gmath/gmath_time_sampling.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace {

GMathTimeSampling sampling_of(std::vector<double> times) {
    return GMathTimeSampling(CoreBasicArray<double>(static_cast<unsigned int>(times.size()), times.data()));
}

struct Span {
    unsigned int sample;
    double fraction;
    Span(const GMathTimeSampling& sampling, double time) { sampling.get_span(time, sample, fraction); }
};

TEST(GMathTimeSampling, SpansAreClampedAndNeverPastTheLastPair) {
    const GMathTimeSampling sampling = sampling_of({-1.0, 0.0, 0.5, 2.0});
    const struct {
        double time;
        unsigned int sample;
        double fraction;
    } cases[] = {{-5.0, 0, 0.0}, {-1.0, 0, 0.0}, {-0.25, 0, 0.75}, {0.0, 1, 0.0}, {0.25, 1, 0.5},
                 {0.5, 2, 0.0},  {1.25, 2, 0.5}, {2.0, 2, 1.0},    {9.0, 2, 1.0}};
    for (const auto& c : cases) {
        const Span span(sampling, c.time);
        EXPECT_EQ(span.sample, c.sample) << c.time;
        EXPECT_DOUBLE_EQ(span.fraction, c.fraction) << c.time;
    }
    const Span nan(sampling, std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(nan.sample, 0u);
    EXPECT_EQ(nan.fraction, 0.0);
}

TEST(GMathTimeSampling, OneSampleOrNoneHasOneSpan) {
    for (const GMathTimeSampling& sampling : {sampling_of({}), sampling_of({3.0})})
        for (const double time : {-1.0, 3.0, 7.0}) {
            const Span span(sampling, time);
            EXPECT_EQ(span.sample, 0u);
            EXPECT_EQ(span.fraction, 0.0);
        }
}

}  // namespace

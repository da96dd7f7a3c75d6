#include "bench/support/timing.h"

#include <time.h>

#include <algorithm>
#include <cmath>

namespace sds_bench {

double get_seconds(Clock clock) {
    const clockid_t id = clock == Clock::thread_cpu    ? CLOCK_THREAD_CPUTIME_ID
                         : clock == Clock::process_cpu ? CLOCK_PROCESS_CPUTIME_ID
                                                       : CLOCK_MONOTONIC;
    timespec now{};
    clock_gettime(id, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

namespace {

double quantile(std::vector<double> values, double share) {
    if (values.empty()) return std::nan("");
    std::sort(values.begin(), values.end());
    const double place = share * static_cast<double>(values.size() - 1);
    const auto below = static_cast<size_t>(place);
    const size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (place - static_cast<double>(below)) * (values[above] - values[below]);
}

}  // namespace

double median_of(std::vector<double> values) { return quantile(std::move(values), 0.5); }

double Timings::median() const { return quantile(seconds, 0.5); }
double Timings::fastest() const { return *std::min_element(seconds.begin(), seconds.end()); }
double Timings::spread() const { return (quantile(seconds, 0.75) - quantile(seconds, 0.25)) / median(); }

std::vector<Timings> run_interleaved(const std::vector<Job>& jobs, const Budget& budget, Clock clock) {
    std::vector<Timings> timings(jobs.size());
    const double begin = get_seconds(Clock::wall);
    for (const Job& job : jobs) {
        job.run();
        job.reset();
    }
    for (unsigned int round = 0; round < budget.max_rounds; ++round) {
        if (round >= budget.min_rounds && get_seconds(Clock::wall) - begin > budget.seconds) break;
        for (size_t j = 0; j < jobs.size(); ++j) {
            const Counts before = read_counts();
            const double start = get_seconds(clock);
            jobs[j].run();
            timings[j].seconds.push_back(get_seconds(clock) - start);
            timings[j].counts = read_counts() - before;
            jobs[j].reset();
        }
    }
    return timings;
}

double median_ratio(const Timings& a, const Timings& b) {
    std::vector<double> ratios;
    for (size_t i = 0; i < a.seconds.size(); ++i) ratios.push_back(a.seconds[i] / b.seconds[i]);
    return median_of(std::move(ratios));
}

}  // namespace sds_bench

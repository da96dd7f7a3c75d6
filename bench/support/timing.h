// Clocks, and jobs timed in turn.
//
// Two programs that are timed one after the other see different machines: the clock rate drifts, other processes come
// and go. Jobs here take turns, round by round, and ratios are taken within a round.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "bench/support/counters.h"

namespace sds_bench {

enum class Clock {
    thread_cpu,   // processor time of the calling thread: for work that stays on it
    process_cpu,  // processor time of all threads: for work that a library may spread
    wall,
};

double get_seconds(Clock clock);

struct Job {
    std::function<void()> run;
    std::function<void()> reset = [] {};  // after each run, outside the time
};

struct Timings {
    std::vector<double> seconds;  // per round
    Counts counts;                // of the last round

    double median() const;
    double fastest() const;
    // Distance of the quartiles, as a share of the median.
    double spread() const;
};

// Rounds go on until each job has run at least min_rounds times and the seconds are used up.
struct Budget {
    unsigned int min_rounds = 3;
    unsigned int max_rounds = 60;
    double seconds = 1.0;
};

// Runs every job once to warm up, then in turn. One Timings per job, of equal length.
std::vector<Timings> run_interleaved(const std::vector<Job>& jobs, const Budget& budget, Clock clock);

double median_of(std::vector<double> values);
// Median over the rounds of a's time over b's.
double median_ratio(const Timings& a, const Timings& b);

// Makes a value count as used, so that the work behind it cannot be left out.
template <class T>
inline void keep(const T& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace sds_bench

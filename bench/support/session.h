// What every suite works with: options, cages, the report.
#pragma once

#include <string>

#include "bench/support/cages.h"
#include "bench/support/counters.h"
#include "bench/support/own_process.h"
#include "bench/support/report.h"
#include "bench/support/timing.h"
#include "qn_sys/sys_thread.h"

namespace sds_bench {

struct Session {
    bool is_full = false;
    std::string filter;  // a part of the name of what is wanted, everything when empty
    CageStore cages;
    Report report;

    bool wants(const std::string& name) const { return name.find(filter) != std::string::npos; }
    // Runs work(cage) on the cage, when it is wanted and there, in a process of its own.
    template <class Work>
    void for_cage(const std::string& suite, const std::string& cage, Work&& work) {
        if (wants(suite + "/" + cage))
            run_apart([&] {
                if (const HostCage* found = cages.find(cage); found != nullptr) work(*found);
            });
    }
    // Runs work() in a process of its own.
    template <class Work>
    void run_apart(Work&& work) {
        run_in_own_process(report, [&](Report& own) {
            std::swap(report, own);
            work();
            std::swap(report, own);
        });
    }
    Budget get_budget(double quick_seconds) const {
        Budget budget;
        budget.seconds = is_full ? 4.0 * quick_seconds : quick_seconds;
        budget.min_rounds = is_full ? 7 : 3;
        return budget;
    }
};

// Runs work on the calling thread alone, without the memory that making its cage left.
template <class Work>
void run_alone(Work&& work) {
    give_back_freed_memory();
    SysThreadArena(1).execute(work);
}

// A row from one job's timings, or two. `amount` counts millions.
inline Row make_rate_row(const std::string& suite, const std::string& work, const std::string& cage,
                         const std::string& unit, double amount, const Timings& ours) {
    Row row{suite, work, cage, unit, amount / ours.median(), ours.spread()};
    row.unit_count = 1e6 * amount;
    row.counts = ours.counts;
    return row;
}
inline Row make_rate_row(const std::string& suite, const std::string& work, const std::string& cage,
                         const std::string& unit, double amount, const Timings& ours, const std::string& opponent_name,
                         const Timings& opponent) {
    Row row = make_rate_row(suite, work, cage, unit, amount, ours);
    row.opponent_name = opponent_name;
    row.opponent = amount / opponent.median();
    row.ratio = median_ratio(opponent, ours);
    return row;
}

// Every suite leaves out what the filter does not want and the cages that are not there.
void bench_build(Session& session);
void bench_animation(Session& session);
void bench_refined(Session& session);
void bench_scaling(Session& session);
void bench_memory(Session& session);
void bench_samples(Session& session);
void bench_rays(Session& session);
void bench_moving_rays(Session& session);
void bench_threads(Session& session);

}  // namespace sds_bench

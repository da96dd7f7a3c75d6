// What a job costs besides time: page faults, and where the processor lets the kernel count them, instructions and
// cache misses. And what this machine can do at best, to stand beside it.
#pragma once

#include <limits>

namespace sds_bench {

// Of the calling thread and those that it starts later; NaN where nothing counts them.
struct Counts {
    double page_faults = 0.0;
    double instructions = std::numeric_limits<double>::quiet_NaN();
    double cache_misses = std::numeric_limits<double>::quiet_NaN();
};
Counts read_counts();
Counts operator-(const Counts& a, const Counts& b);

// Measured once, on the calling thread.
struct MachineSpeed {
    double bytes_per_second = 0.0;  // read and written, of a copy that no cache holds
    double page_fault = 0.0;        // seconds for the first touch of a page of 4 KB
};
const MachineSpeed& get_machine_speed();

// Pages of freed memory, whoever kept them, so that what comes next touches its own as in a new process.
void give_back_freed_memory();

// While this lives, memory that is first touched has pages of 4 KB, on both sides of a comparison: an allocator that
// asks for large ones and one that does not are the same then. Both begin without memory kept from earlier work.
class SmallPages {
public:
    SmallPages();
    ~SmallPages();
    SmallPages(const SmallPages&) = delete;
    SmallPages& operator=(const SmallPages&) = delete;

private:
    bool m_was_off;
};

}  // namespace sds_bench

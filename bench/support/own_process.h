// Work in a process of its own.
//
// What ran before leaves an allocator with free memory, or with none, and a kernel with pages to clear or not; the same
// row then differs by a factor of two. In a new process each row is the same whichever others run.
#pragma once

#include <functional>

#include "bench/support/report.h"

namespace sds_bench {

// Runs `work` in a copy of this process and adds what it reports. What else it changes is lost. Throws
// std::runtime_error when that process fails. The calling process must have no other threads.
void run_in_own_process(Report& report, const std::function<void(Report&)>& work);

}  // namespace sds_bench

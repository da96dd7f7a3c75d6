// The test program's allocations, which can be made to fail.
#pragma once

#include <cstddef>

namespace sds_test {

// Bytes that are allocated now, on any thread.
std::size_t live_bytes();

// Makes the k-th allocation from now fail, on whichever thread, the same tried again there at once, and none after it;
// 0: none fails.
void fail_allocation(std::size_t k);
// True when the one to fail was reached.
bool has_failed();

}  // namespace sds_test

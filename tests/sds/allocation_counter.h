// How many times the test program has allocated, on any thread.
#pragma once

#include <cstddef>

namespace sds_test {

std::size_t allocation_count();

}  // namespace sds_test

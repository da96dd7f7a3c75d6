#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    sds_fuzz::QN_FUZZ_TARGET(data, size);
    return 0;
}

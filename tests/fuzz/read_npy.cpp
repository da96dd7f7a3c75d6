#include <cmath>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "io/input_error.h"
#include "io/npy.h"

void sds_fuzz::read_npy_bytes(const std::uint8_t* data, std::size_t size) {
    using namespace sds_io;
    try {
        const NpyArray array = read_npy_text({reinterpret_cast<const char*>(data), size}, "fuzz.npy");
        std::size_t count = 1;
        for (const std::size_t extent : array.shape) count *= extent;
        std::visit(
            [&](const auto& values) { require(values.size() == count && values.size() * sizeof(values[0]) < size); },
            array.values);
        require(!to_text(array.shape).empty());
    } catch (const InputError&) {
    }
}

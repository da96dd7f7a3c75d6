#include <cmath>
#include <sstream>
#include <string>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "io/input_error.h"
#include "io/npy.h"

void sds_fuzz::read_npy_bytes(const std::uint8_t* data, std::size_t size) {
    using namespace sds_io;
    std::istringstream file(std::string(reinterpret_cast<const char*>(data), size));
    try {
        const NpyArray array = read_npy(file, "fuzz.npy");
        std::size_t count = 1;
        for (const std::size_t extent : array.shape) count *= extent;
        std::visit(
            [&](const auto& values) { require(values.size() == count && values.size() * sizeof(values[0]) < size); },
            array.values);
        require(!to_text(array.shape).empty());
    } catch (const InputError&) {
    }
}

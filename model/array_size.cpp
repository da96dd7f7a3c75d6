#include "model/array_size.h"

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <stdexcept>

namespace sds_model {

std::size_t get_machine_memory() {
    const long pages = sysconf(_SC_PHYS_PAGES), page_size = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || page_size <= 0) return SIZE_MAX;
    return static_cast<std::size_t>(pages) * static_cast<std::size_t>(page_size);
}

std::size_t checked_count(std::initializer_list<std::size_t> extents, std::size_t element_size) {
    std::size_t count = 1, bytes = 0;
    bool is_held = true;
    for (const std::size_t extent : extents) is_held &= !__builtin_mul_overflow(count, extent, &count);
    is_held &= !__builtin_mul_overflow(count, element_size, &bytes);
    if (is_held && bytes <= get_machine_memory()) return count;
    std::string shape;
    for (const std::size_t extent : extents) shape += (shape.empty() ? "" : " x ") + std::to_string(extent);
    throw std::length_error("an array of " + shape + " numbers is more than this machine can hold");
}

std::size_t get_array_size(std::size_t count, std::size_t element_size) {
    std::size_t bytes = 0;
    return __builtin_mul_overflow(count, element_size, &bytes) ? SIZE_MAX : bytes;
}

std::string to_size_text(std::size_t bytes) {
    constexpr const char* units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    double size = static_cast<double>(bytes);
    unsigned int unit = 0;
    for (; size >= 1024.0 && unit < 4; ++unit) size /= 1024.0;
    char text[32];
    std::snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", size, units[unit]);
    return text;
}

void check_memory_limit(const std::string& what, std::size_t bytes, std::size_t limit) {
    if (limit == 0 || bytes <= limit) return;
    throw MemoryLimitError(what + " needs about " + to_size_text(bytes) + ", more than the limit of " +
                           to_size_text(limit));
}

}  // namespace sds_model

#pragma once

#include "io/atomic_file.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace sds_io {

/// An array as .npy files hold it: little-endian, C order (the last index runs fastest).
struct NpyArray {
    using Values =
        std::variant<std::vector<float>, std::vector<double>, std::vector<std::int8_t>, std::vector<std::uint8_t>,
                     std::vector<std::int16_t>, std::vector<std::uint16_t>, std::vector<std::int32_t>,
                     std::vector<std::uint32_t>, std::vector<std::int64_t>, std::vector<std::uint64_t>>;

    std::vector<std::size_t> shape;  ///< extents; empty for a single value
    Values values;                   ///< as many as the product of the extents
};

/// A shape as text: "(3, 7)".
std::string to_text(const std::vector<std::size_t>& shape);

/// Called with the number of values that a file announces and the bytes of each, before memory is taken for them; may
/// throw.
using NpyCheck = std::function<void(std::size_t count, std::size_t element_size)>;

/// Reads an .npy file of version 1.0 or 2.0. Throws InputError when it cannot be read or is no such file, for other
/// element types, Fortran order of two or more dimensions, big-endian data, and data shorter or longer than the shape
/// says.
NpyArray read_npy(const std::string& path, const NpyCheck& check = {});

/// The same from an open stream of bytes; `name` stands for the file in messages.
NpyArray read_npy(std::istream& file, const std::string& name, const NpyCheck& check = {});

/// Writes values with the given shape as an .npy file of version 1.0, whole or not at all; "-" is standard output. The
/// product of `shape` must be values.size(). Throws OutputError. T is one of the element
/// types of NpyArray.
template <class T>
void write_npy(const std::string& path, std::span<const std::size_t> shape, std::span<const T> values);

}  // namespace sds_io

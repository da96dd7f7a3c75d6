#include "io/npy.h"

#include "io/input_error.h"
#include "io/input_places.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <string_view>
#include <type_traits>
#include <utility>

namespace sds_io {

namespace {

static_assert(std::endian::native == std::endian::little, "arrays are read and written as they lie in memory");

using Shape = std::span<const std::size_t>;

constexpr std::string_view magic = "\x93NUMPY";
constexpr std::size_t alignment = 64;  // of the first value in the file

/// Byte order ('|' for none), kind and size, as in "<f4".
template <class T>
constexpr std::array<char, 3> type_letters{sizeof(T) == 1 ? '|' : '<',
                                           std::is_floating_point_v<T> ? 'f'
                                           : std::is_signed_v<T>       ? 'i'
                                                                       : 'u',
                                           '0' + sizeof(T)};
template <class T>
constexpr std::string_view type_code(type_letters<T>.data(), type_letters<T>.size());

class NpyReader {
public:
    NpyReader(std::istream& file, const std::string& path, const NpyCheck& check)
        : m_path(path), m_file(file), m_check(check) {
        if (!m_file) fail(std::strerror(errno));
    }

    NpyArray read() {
        read_header();
        NpyArray array;
        array.shape = read_shape();
        const std::string_view order = value_of("fortran_order");
        const bool c_order = order.starts_with("False");
        if (!c_order && !order.starts_with("True")) fail("malformed header: no memory order");
        if (!c_order && array.shape.size() > 1) fail("Fortran order; save it with numpy.ascontiguousarray");
        if (!read_any(array, &array.values))
            fail("element type " + std::string(m_type) + " is none of <f4 <f8 |i1 |u1 <i2 <u2 <i4 <u4 <i8 <u8");
        return array;
    }

private:
    [[noreturn]] void fail(const std::string& reason) const { throw InputError(m_path, reason); }

    std::size_t read_some(char* bytes, std::size_t size) {
        m_file.read(bytes, static_cast<std::streamsize>(size));
        if (m_file.bad()) fail("read error");
        return static_cast<std::size_t>(m_file.gcount());
    }

    void read_header() {
        std::array<char, 12> start{};
        if (read_some(start.data(), 8) != 8 || std::string_view(start.data(), magic.size()) != magic)
            fail("not an .npy file");
        const int version = static_cast<unsigned char>(start[6]), minor = static_cast<unsigned char>(start[7]);
        if ((version != 1 && version != 2) || minor != 0)
            fail("version " + std::to_string(version) + "." + std::to_string(minor) +
                 " of the format is not supported");
        const std::size_t length_size = version == 1 ? 2 : 4;
        std::uint32_t length = 0;
        if (read_some(start.data() + 8, length_size) != length_size) fail("truncated header");
        std::memcpy(&length, start.data() + 8, length_size);
        constexpr std::uint32_t longest_header = 1u << 16;
        if (length > longest_header) fail("malformed header: " + std::to_string(length) + " bytes long");
        m_header.resize(length);
        if (read_some(m_header.data(), length) != length) fail("truncated header");
        const std::string_view type = value_of("descr");
        const std::size_t end = type.empty() ? std::string_view::npos : type.find(type.front(), 1);
        if (end == std::string_view::npos || (type.front() != '\'' && type.front() != '"'))
            fail("malformed header: no simple element type");
        m_type = type.substr(1, end - 1);
    }

    /// What follows "'key':" in the header, a Python dictionary.
    std::string_view value_of(std::string_view key) const {
        const std::string_view header = m_header;
        for (const char quote : {'\'', '"'}) {
            const std::string quoted = quote + std::string(key) + quote;
            const std::size_t at = header.find(quoted);
            const std::size_t colon =
                at == std::string_view::npos ? at : header.find_first_not_of(' ', at + quoted.size());
            if (colon == std::string_view::npos || header[colon] != ':') continue;
            const std::size_t value = header.find_first_not_of(' ', colon + 1);
            if (value != std::string_view::npos) return header.substr(value);
        }
        fail("malformed header: no " + std::string(key));
    }

    std::vector<std::size_t> read_shape() const {
        std::string_view text = value_of("shape");
        const std::size_t close = text.find(')');
        if (!text.starts_with('(') || close == std::string_view::npos) fail("malformed header: no shape");
        text = text.substr(1, close - 1);
        std::vector<std::size_t> shape;
        const auto skip = [&text](std::string_view what) {
            text.remove_prefix(std::min(text.find_first_not_of(what), text.size()));
        };
        for (skip(" "); !text.empty(); skip(" ")) {
            std::size_t extent = 0;
            const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), extent);
            if (error != std::errc{}) fail("malformed header: shape");
            shape.push_back(extent);
            text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
            skip(" ");
            if (!text.empty() && text.front() != ',') fail("malformed header: shape");
            skip(",");
        }
        return shape;
    }

    template <class... T>
    bool read_any(NpyArray& array, const std::variant<std::vector<T>...>*) {
        return (read_values<T>(array) || ...);
    }

    /// False when the file's elements are not of type T.
    template <class T>
    bool read_values(NpyArray& array) {
        if (m_type != type_code<T>) return false;
        std::size_t count = 1;
        for (const std::size_t extent : array.shape)
            if (__builtin_mul_overflow(count, extent, &count) || count > SIZE_MAX / sizeof(T))
                fail("shape is too large");
        if (m_check) m_check(count, sizeof(T));
        // grows with the data that is really there: a wrong shape must not cost memory
        constexpr std::size_t block = (std::size_t{1} << 24) / sizeof(T);
        std::vector<T>& values = array.values.emplace<std::vector<T>>();
        while (values.size() < count) {
            const std::size_t have = values.size();
            const std::size_t wanted = std::min(count - have, std::max(block, have));
            values.resize(have + wanted);
            const std::size_t got = read_some(reinterpret_cast<char*>(values.data() + have), wanted * sizeof(T));
            if (got != wanted * sizeof(T))
                fail("truncated: " + std::to_string(count) + " values announced, " +
                     std::to_string(have + got / sizeof(T)) + " found");
        }
        if (m_file.peek() != std::istream::traits_type::eof())
            fail("more data than the " + std::to_string(count) + " values that its shape announces");
        return true;
    }

    const std::string& m_path;
    std::istream& m_file;
    const NpyCheck& m_check;
    std::string m_header;
    std::string_view m_type;  // within m_header
};

}  // namespace

std::string to_text(const std::vector<std::size_t>& shape) {
    std::string text = "(";
    for (const std::size_t extent : shape) text += (text.size() > 1 ? ", " : "") + std::to_string(extent);
    return text + ")";
}

NpyArray read_npy(std::istream& file, const std::string& name, const NpyCheck& check) {
    return NpyReader(file, name, check).read();
}

NpyArray read_npy(const std::string& path, const NpyCheck& check) {
    std::ifstream file(path == "-" ? "/dev/stdin" : locate_input(path), std::ios::binary);
    return read_npy(file, path, check);
}

template <class T>
void write_npy(const std::string& path, Shape shape, std::span<const T> values) {
    std::string header = "{'descr': '" + std::string(type_code<T>) + "', 'fortran_order': False, 'shape': (";
    [[maybe_unused]] std::size_t count = 1;
    for (const std::size_t extent : shape) {
        header += std::to_string(extent) + ", ";
        count *= extent;
    }
    assert(count == values.size());
    header += "), }";
    constexpr std::size_t prefix = 10;  // magic, version, length
    header.append(alignment - 1 - (prefix + header.size()) % alignment, ' ');
    header += '\n';
    const auto length = static_cast<std::uint16_t>(header.size());

    AtomicFile file(path);
    file.write(magic);
    file.write("\x01");
    file.write(std::string_view("\0", 1));
    file.write(&length, sizeof(length));
    file.write(header);
    file.write(values.data(), values.size_bytes());
    file.commit();
}

template void write_npy<float>(const std::string&, Shape, std::span<const float>);
template void write_npy<double>(const std::string&, Shape, std::span<const double>);
template void write_npy<std::int8_t>(const std::string&, Shape, std::span<const std::int8_t>);
template void write_npy<std::uint8_t>(const std::string&, Shape, std::span<const std::uint8_t>);
template void write_npy<std::int16_t>(const std::string&, Shape, std::span<const std::int16_t>);
template void write_npy<std::uint16_t>(const std::string&, Shape, std::span<const std::uint16_t>);
template void write_npy<std::int32_t>(const std::string&, Shape, std::span<const std::int32_t>);
template void write_npy<std::uint32_t>(const std::string&, Shape, std::span<const std::uint32_t>);
template void write_npy<std::int64_t>(const std::string&, Shape, std::span<const std::int64_t>);
template void write_npy<std::uint64_t>(const std::string&, Shape, std::span<const std::uint64_t>);

}  // namespace sds_io

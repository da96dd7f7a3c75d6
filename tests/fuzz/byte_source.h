// Bytes as numbers; zeros once they are used up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace sds_fuzz {

class ByteSource {
public:
    ByteSource(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    template <class T>
    T take() {
        T value{};
        const std::size_t count = m_size < sizeof(T) ? m_size : sizeof(T);
        if (count != 0) std::memcpy(&value, m_data, count);
        m_data += count;
        m_size -= count;
        return value;
    }
    // Mostly tame: one byte in units of 1/16, or any bit pattern after 0x80.
    float number() {
        const auto byte = take<std::int8_t>();
        return byte == -128 ? take<float>() : static_cast<float>(byte) / 16.0f;
    }
    bool is_empty() const { return m_size == 0; }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
};

inline void require(bool holds) {
    if (!holds) std::abort();
}

}  // namespace sds_fuzz

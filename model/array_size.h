#pragma once

#include <cstddef>
#include <exception>
#include <initializer_list>
#include <string>

namespace sds_model {

/// Elements of an array whose extents a caller names: their product. Every such array asks here before it is made.
/// Throws std::length_error, with the shape, when this machine cannot hold as many elements of `element_size` bytes.
std::size_t checked_count(std::initializer_list<std::size_t> extents, std::size_t element_size);

/// Bytes of memory that this machine has; where it does not say, all that can be addressed.
std::size_t get_machine_memory();

/// "1.5 GiB".
std::string to_size_text(std::size_t bytes);

/// More memory is needed than the user allows.
class MemoryLimitError : public std::exception {
public:
    explicit MemoryLimitError(std::string message) : m_message(std::move(message)) {}
    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

/// Bytes of `count` elements, as many as a size can say at most.
std::size_t get_array_size(std::size_t count, std::size_t element_size);

/// Throws MemoryLimitError when `what` needs more than `limit` bytes; 0 is no limit.
void check_memory_limit(const std::string& what, std::size_t bytes, std::size_t limit);

}  // namespace sds_model

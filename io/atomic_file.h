#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sds_io {

/// An output that could not be written: disk full, no permission, broken pipe. The program prints what() and exits
/// with 1.
class OutputError : public std::runtime_error {
public:
    OutputError(const std::string& file, const std::string& reason) : std::runtime_error(file + ": " + reason) {}
};

/// Throws when the work is to be given up, and does nothing otherwise.
using Cancel = std::function<void()>;

/// An output file that appears whole or not at all.
///
/// Bytes go to a temporary file beside the target, which commit() puts in the target's place; without commit() the
/// temporary file is removed and the target stays as it was. A symbolic link is followed, an existing target keeps its
/// permissions. Two kinds of target have no "before" to return to and are written directly: "-", which is standard
/// output, and what is no regular file (a pipe, /dev/null). Not thread-safe.
class AtomicFile {
public:
    /// Opens the output. Throws OutputError. `cancel` may be null; it is called before every block that goes to disk
    /// and gives the file up by throwing.
    explicit AtomicFile(const std::string& path, Cancel cancel = nullptr);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    /// Appends bytes, through a buffer of 1 MiB. Throws OutputError.
    void write(std::string_view bytes);
    void write(const void* bytes, std::size_t size) { write(std::string_view(static_cast<const char*>(bytes), size)); }

    /// Writes what is buffered and puts the file in place; nothing may be written afterwards. Throws OutputError.
    void commit();

private:
    void flush();
    void write_through(std::string_view bytes);
    [[noreturn]] void fail() const;

    std::string m_path;
    std::string m_target;  // path with symbolic links resolved
    Cancel m_cancel;
    std::string m_temporary;  // empty when the target is written directly
    std::string m_buffer;
    int m_descriptor = -1;
};

}  // namespace sds_io

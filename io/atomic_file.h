#pragma once

#include <cstddef>
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

/// An output file that appears whole or not at all; every file of this system is written through it.
///
/// Bytes go to a temporary file of an unpredictable name in the target's folder, which commit() puts in the target's
/// place; without commit() the temporary file is removed and the target stays as it was. Symbolic links are followed,
/// also one to a file that does not exist yet; an existing target keeps its permissions and, where the system lets us,
/// its owner. Two kinds of target have no "before" to return to and are written directly: "-", which is standard
/// output, and what is no regular file (a pipe, /dev/null). Opening a named pipe waits for its reader. Not thread-safe;
/// any number may be open at once.
class AtomicFile {
public:
    /// Opens the output. Throws OutputError.
    explicit AtomicFile(const std::string& path);
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;
    ~AtomicFile();

    /// Appends bytes, through a buffer of 1 MiB. Throws OutputError.
    void write(std::string_view bytes);
    void write(const void* bytes, std::size_t size) { write(std::string_view(static_cast<const char*>(bytes), size)); }

    /// Writes what is buffered and puts the file in place; nothing may be written afterwards. Throws OutputError.
    void commit();

private:
    struct Temporary;

    void open_temporary();
    void flush();
    void write_through(std::string_view bytes);
    [[noreturn]] void fail() const;

    friend void check_writable(const std::string& path);
    friend void remove_temporary_files() noexcept;

    std::string m_path;
    std::string m_target;              // path with symbolic links resolved
    Temporary* m_temporary = nullptr;  // null when the target is written directly
    std::string m_buffer;
    int m_descriptor = -1;
};

/// The file that `path` means: symbolic links at its end followed, whether or not they lead to a file. Throws
/// OutputError when they lead in a circle.
std::string follow_links(const std::string& path);

/// Throws OutputError when no output can be opened at `path`, by opening one where that has no effect: asked before
/// work that may take long. "-" is fine.
void check_writable(const std::string& path);

/// Removes the temporary file of every AtomicFile of the process, none of which may be used afterwards: for a signal
/// handler that ends the process.
void remove_temporary_files() noexcept;

}  // namespace sds_io

#include "io/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

namespace sds_io {

namespace {

constexpr std::size_t buffer_size = std::size_t{1} << 20;

/// Permissions of a file created now. The mask can only be read by setting it, so no other thread may create files
/// meanwhile.
mode_t default_permissions() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

AtomicFile::AtomicFile(const std::string& path, Cancel cancel)
    : m_path(path), m_target(path), m_cancel(std::move(cancel)) {
    if (path == "-") {
        m_descriptor = STDOUT_FILENO;
        return;
    }
    std::error_code not_there;
    if (const auto resolved = std::filesystem::canonical(path, not_there); !not_there) m_target = resolved.string();
    struct stat status {};
    const bool exists = stat(m_target.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        m_descriptor = open(m_target.c_str(), O_WRONLY | O_CLOEXEC);
        if (m_descriptor < 0) fail();
        return;
    }
    if (exists && access(m_target.c_str(), W_OK) != 0) fail();
    m_temporary = m_target + ".XXXXXX";
    m_descriptor = mkostemp(m_temporary.data(), O_CLOEXEC);
    if (m_descriptor < 0) {
        m_temporary.clear();
        fail();
    }
    if (fchmod(m_descriptor, exists ? status.st_mode & 07777 : default_permissions()) != 0) {
        const int reason = errno;
        close(m_descriptor);
        unlink(m_temporary.c_str());
        errno = reason;
        fail();
    }
}

AtomicFile::~AtomicFile() {
    if (m_descriptor >= 0 && m_descriptor != STDOUT_FILENO) close(m_descriptor);
    if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

void AtomicFile::write(std::string_view bytes) {
    if (m_buffer.size() + bytes.size() > buffer_size) flush();
    if (bytes.size() >= buffer_size)
        write_through(bytes);
    else
        m_buffer += bytes;
}

void AtomicFile::commit() {
    flush();
    if (m_descriptor == STDOUT_FILENO) return;
    // some file systems report a full disk only here
    const int closed = close(m_descriptor);
    m_descriptor = -1;
    if (closed != 0) fail();
    if (m_temporary.empty()) return;
    if (std::rename(m_temporary.c_str(), m_target.c_str()) != 0) fail();
    m_temporary.clear();
}

void AtomicFile::flush() {
    write_through(m_buffer);
    m_buffer.clear();
}

void AtomicFile::write_through(std::string_view bytes) {
    while (!bytes.empty()) {
        if (m_cancel) m_cancel();
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) fail();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void AtomicFile::fail() const { throw OutputError(m_path == "-" ? "standard output" : m_path, std::strerror(errno)); }

}  // namespace sds_io

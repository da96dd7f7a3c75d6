#include "io/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace sds_io {

namespace fs = std::filesystem;

/// The path of a temporary file, where a signal handler finds it. The records are never freed, only used again.
struct AtomicFile::Temporary {
    char path[PATH_MAX] = {};
    std::atomic<bool> is_used{true};
    Temporary* next = nullptr;

    static inline std::atomic<Temporary*> all{nullptr};

    static Temporary& claim() {
        for (Temporary* each = all; each != nullptr; each = each->next)
            if (bool is_used = false; each->is_used.compare_exchange_strong(is_used, true)) return *each;
        auto* made = new Temporary;
        made->next = all;
        while (!all.compare_exchange_weak(made->next, made)) {
        }
        return *made;
    }

    void release() {
        path[0] = '\0';
        is_used = false;
    }
};

namespace {

constexpr std::size_t buffer_size = std::size_t{1} << 20;

/// Permissions of a file created now. The mask can only be read by setting it, so no other thread may create files
/// meanwhile.
mode_t default_permissions() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

/// Gives a new file the permissions and the owner of the one that it will replace.
bool take_after(int descriptor, const struct stat* replaced) {
    if (replaced == nullptr) return fchmod(descriptor, default_permissions()) == 0;
    // Only the superuser gives files away; everybody else's stay their own.
    const bool is_given = fchown(descriptor, replaced->st_uid, replaced->st_gid) == 0;
    return fchmod(descriptor, replaced->st_mode & (is_given ? 07777 : 0777)) == 0;
}

}  // namespace

std::string follow_links(const std::string& path) {
    constexpr unsigned int most_links = 40;  // as the kernel has it
    fs::path end(path);
    std::error_code is_no_link;
    for (unsigned int links = 0; links < most_links; ++links) {
        const fs::path next = fs::read_symlink(end, is_no_link);
        if (is_no_link) return end.string();
        end = end.parent_path() / next;
    }
    throw OutputError(path, std::strerror(ELOOP));
}

AtomicFile::AtomicFile(const std::string& path) : m_path(path) {
    if (path == "-") {
        m_descriptor = STDOUT_FILENO;
        return;
    }
    struct stat status {};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (!exists && errno != ENOENT) fail();
    if (exists && !S_ISREG(status.st_mode)) {
        m_descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
        if (m_descriptor < 0) fail();
        return;
    }
    m_target = follow_links(path);
    if (exists && access(m_target.c_str(), W_OK) != 0) fail();
    open_temporary();
    if (!take_after(m_descriptor, exists ? &status : nullptr)) {
        const int reason = errno;
        close(m_descriptor);
        unlink(m_temporary->path);
        m_temporary->release();
        errno = reason;
        fail();
    }
}

void AtomicFile::open_temporary() {
    const std::string name = (fs::path(m_target).parent_path() / ".sds-XXXXXX").string();
    if (name.size() >= PATH_MAX) {
        errno = ENAMETOOLONG;
        fail();
    }
    // The record holds the path before there is a file of that name: at no moment can a signal leave one behind.
    m_temporary = &Temporary::claim();
    std::copy_n(name.c_str(), name.size() + 1, m_temporary->path);
    m_descriptor = mkostemp(m_temporary->path, O_CLOEXEC);
    if (m_descriptor >= 0) return;
    const int reason = errno;
    m_temporary->release();
    errno = reason;
    fail();
}

AtomicFile::~AtomicFile() {
    if (m_descriptor >= 0 && m_path != "-") close(m_descriptor);
    if (m_temporary == nullptr) return;
    unlink(m_temporary->path);
    m_temporary->release();
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
    if (m_path == "-") return;
    // some file systems report a full disk only here
    const int closed = close(m_descriptor);
    m_descriptor = -1;
    if (closed != 0) fail();
    if (m_temporary == nullptr) return;
    if (std::rename(m_temporary->path, m_target.c_str()) != 0) fail();
    m_temporary->release();
    m_temporary = nullptr;
}

void AtomicFile::flush() {
    write_through(m_buffer);
    m_buffer.clear();
}

void AtomicFile::write_through(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(m_descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) fail();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void AtomicFile::fail() const { throw OutputError(m_path == "-" ? "standard output" : m_path, std::strerror(errno)); }

void check_writable(const std::string& path) {
    if (path == "-") return;
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_directory(status)) throw OutputError(path, "is a folder");
    // Opening a pipe would wait for its reader and, closed again, tell it that this was all.
    if (!fs::exists(status) || fs::is_regular_file(status))
        AtomicFile{path};
    else if (access(path.c_str(), W_OK) != 0)
        throw OutputError(path, std::strerror(errno));
}

void remove_temporary_files() noexcept {
    using Temporary = AtomicFile::Temporary;
    for (const Temporary* each = Temporary::all; each != nullptr; each = each->next)
        if (each->path[0] != '\0') unlink(each->path);
}

}  // namespace sds_io

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
    : path_(path), target_(path), cancel_(std::move(cancel)) {
    if (path == "-") {
        descriptor_ = STDOUT_FILENO;
        return;
    }
    std::error_code not_there;
    if (const auto resolved = std::filesystem::canonical(path, not_there); !not_there) target_ = resolved.string();
    struct stat status {};
    const bool exists = stat(target_.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        descriptor_ = open(target_.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) fail();
        return;
    }
    if (exists && access(target_.c_str(), W_OK) != 0) fail();
    temporary_ = target_ + ".XXXXXX";
    descriptor_ = mkostemp(temporary_.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        temporary_.clear();
        fail();
    }
    if (fchmod(descriptor_, exists ? status.st_mode & 07777 : default_permissions()) != 0) {
        const int reason = errno;
        close(descriptor_);
        unlink(temporary_.c_str());
        errno = reason;
        fail();
    }
}

AtomicFile::~AtomicFile() {
    if (descriptor_ >= 0 && descriptor_ != STDOUT_FILENO) close(descriptor_);
    if (!temporary_.empty()) unlink(temporary_.c_str());
}

void AtomicFile::write(std::string_view bytes) {
    if (buffer_.size() + bytes.size() > buffer_size) flush();
    if (bytes.size() >= buffer_size)
        write_through(bytes);
    else
        buffer_ += bytes;
}

void AtomicFile::commit() {
    flush();
    if (descriptor_ == STDOUT_FILENO) return;
    // some file systems report a full disk only here
    const int closed = close(descriptor_);
    descriptor_ = -1;
    if (closed != 0) fail();
    if (temporary_.empty()) return;
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) fail();
    temporary_.clear();
}

void AtomicFile::flush() {
    write_through(buffer_);
    buffer_.clear();
}

void AtomicFile::write_through(std::string_view bytes) {
    while (!bytes.empty()) {
        if (cancel_) cancel_();
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) fail();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

void AtomicFile::fail() const { throw OutputError(path_ == "-" ? "standard output" : path_, std::strerror(errno)); }

}  // namespace sds_io

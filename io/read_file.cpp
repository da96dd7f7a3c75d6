#include "io/read_file.h"

#include "io/input_places.h"
#include "model/array_size.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

namespace sds_io {

namespace {

/// The standard input, or a file that is closed at the end.
class Input {
public:
    explicit Input(const std::string& path)
        : m_descriptor(path == "-" ? STDIN_FILENO : open(locate_input(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {
    }
    ~Input() {
        if (m_descriptor > STDIN_FILENO) close(m_descriptor);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    int get() const { return m_descriptor; }

private:
    int m_descriptor;
};

/// What is read at most: devices, some of which never end, are not where meshes lie.
std::size_t get_longest(const struct stat& status) {
    constexpr std::size_t longest_device = std::size_t{1} << 26;
    const bool is_device = S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
    return is_device ? longest_device : sds_model::get_machine_memory() / 2;
}

}  // namespace

std::string read_file(const std::string& path, std::string& bytes) {
    const Input input(path);
    struct stat status {};
    if (input.get() < 0 || fstat(input.get(), &status) != 0) return std::strerror(errno);
    constexpr std::size_t block = std::size_t{1} << 20;
    const std::size_t longest = get_longest(status);
    const auto size = static_cast<std::size_t>(S_ISREG(status.st_mode) ? status.st_size : 0);
    const auto is_too_long = [&] { return "longer than " + sds_model::to_size_text(longest); };
    if (size > longest) return is_too_long();
    bytes.clear();
    bytes.reserve(size + block);
    for (;;) {
        const std::size_t have = bytes.size();
        if (have > longest) return is_too_long();
        if (bytes.capacity() < have + block) bytes.reserve(2 * have);
        bytes.resize(have + block);
        const ssize_t got = read(input.get(), bytes.data() + have, block);
        bytes.resize(have + static_cast<std::size_t>(got > 0 ? got : 0));
        if (got < 0 && errno != EINTR) return std::strerror(errno);
        if (got == 0) return {};
    }
}

}  // namespace sds_io

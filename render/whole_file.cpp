#include "render/whole_file.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "render/image.h"

namespace sds_render {

WholeFile::WholeFile(std::string path) : m_path(std::move(path)) {
    static std::atomic<unsigned int> count{0};
    m_temporary = m_path + ".part-" + std::to_string(::getpid()) + "-" + std::to_string(count++);
}

WholeFile::~WholeFile() {
    if (!m_is_published) std::remove(m_temporary.c_str());
}

void WholeFile::publish() {
    if (std::rename(m_temporary.c_str(), m_path.c_str()) != 0) throw ImageError(m_path, std::strerror(errno));
    m_is_published = true;
}

}  // namespace sds_render

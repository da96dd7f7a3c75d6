// A file that appears complete or not at all.
#pragma once

#include <string>

namespace sds_render {

// Gives a name for a temporary file in the folder of `path`. `publish` moves it to `path`; without that, the destructor
// removes it.
class WholeFile {
public:
    explicit WholeFile(std::string path);
    ~WholeFile();
    WholeFile(const WholeFile&) = delete;
    WholeFile& operator=(const WholeFile&) = delete;

    const std::string& get_temporary_path() const { return m_temporary; }
    // Throws ImageError with the system's reason.
    void publish();

private:
    std::string m_path;
    std::string m_temporary;
    bool m_is_published = false;
};

}  // namespace sds_render

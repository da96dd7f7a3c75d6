#include "io/obj/write_obj.h"

#include "model/control_cage.h"

#include <array>
#include <charconv>
#include <utility>

namespace sds_io {

using namespace sds_model;

namespace {

class ObjWriter {
public:
    ObjWriter(const std::string& path, Cancel cancel) : m_file(path, std::move(cancel)) {}

    void points(std::string_view keyword, std::span<const float> xyz, std::size_t kept) {
        for (std::size_t i = 0; i + 3 <= xyz.size(); i += 3) {
            m_file.write(keyword);
            for (const float value : xyz.subspan(i, kept)) number(' ', value);
            m_file.write("\n");
        }
    }

    void polygon(std::span<const std::uint32_t> vertices, std::span<const std::uint32_t> uvs) {
        m_file.write("f");
        for (std::size_t k = 0; k < vertices.size(); ++k) {
            number(' ', std::uint64_t{vertices[k]} + 1);
            if (!uvs.empty() && uvs[k] != unmapped_corner) number('/', std::uint64_t{uvs[k]} + 1);
        }
        m_file.write("\n");
    }

    void commit() { m_file.commit(); }

private:
    template <class Number>
    void number(char separator, Number value) {
        std::array<char, 32> text;
        text[0] = separator;
        const char* end = std::to_chars(text.data() + 1, text.data() + text.size(), value).ptr;
        m_file.write({text.data(), static_cast<std::size_t>(end - text.data())});
    }

    AtomicFile m_file;
};

}  // namespace

void write_obj(const std::string& path, const ObjMesh& mesh, Cancel cancel) {
    ObjWriter writer(path, std::move(cancel));
    writer.points("v", mesh.positions, 3);
    writer.points("vt", mesh.uv_points, 2);
    std::size_t first = 0;
    for (const std::uint32_t count : mesh.polygon_counts) {
        const auto uvs = mesh.uv_indices.empty() ? mesh.uv_indices : mesh.uv_indices.subspan(first, count);
        writer.polygon(mesh.polygon_indices.subspan(first, count), uvs);
        first += count;
    }
    writer.commit();
}

}  // namespace sds_io

#include "io/obj/write_obj.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <utility>

namespace sds_io {

using namespace sds_model;

namespace {

class ObjWriter {
public:
    explicit ObjWriter(const std::string& path) : m_file(path) {}

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

    void tags(const ObjMesh& mesh);

    void commit() { m_file.commit(); }

private:
    void creases(const ObjMesh& mesh);
    template <class Number>
    void number(char separator, Number value) {
        std::array<char, 32> text;
        text[0] = separator;
        const char* end = std::to_chars(text.data() + 1, text.data() + text.size(), value).ptr;
        m_file.write({text.data(), static_cast<std::size_t>(end - text.data())});
    }

    AtomicFile m_file;
};

/// Every sharp edge once.
void ObjWriter::creases(const ObjMesh& mesh) {
    std::set<std::pair<std::uint32_t, std::uint32_t>> written;
    std::size_t first = 0;
    for (const std::uint32_t count : mesh.polygon_counts) {
        for (std::size_t k = 0; k < count; ++k) {
            const std::size_t c = first + k;
            const bool is_crease = !mesh.corner_creases.empty() && mesh.corner_creases[c] != 0;
            const float sharpness = is_crease ? 10.0f : mesh.corner_sharpness.empty() ? 0.0f : mesh.corner_sharpness[c];
            const std::uint32_t a = mesh.polygon_indices[c], b = mesh.polygon_indices[first + (k + 1) % count];
            if (!(sharpness > 0.0f) || !written.insert(std::minmax(a, b)).second) continue;
            m_file.write("t crease 2/1/0");
            number(' ', a);
            number(' ', b);
            number(' ', sharpness);
            m_file.write("\n");
        }
        first += count;
    }
}

void ObjWriter::tags(const ObjMesh& mesh) {
    if (!mesh.corner_creases.empty() || !mesh.corner_sharpness.empty()) creases(mesh);
    for (std::size_t v = 0; v < mesh.vertex_sharpness.size(); ++v) {
        if (!(mesh.vertex_sharpness[v] > 0.0f)) continue;
        m_file.write("t corner 1/1/0");
        number(' ', v);
        number(' ', mesh.vertex_sharpness[v]);
        m_file.write("\n");
    }
    for (std::size_t p = 0; p < mesh.holes.size(); ++p) {
        if (mesh.holes[p] == 0) continue;
        m_file.write("t hole 1/0/0");
        number(' ', p);
        m_file.write("\n");
    }
    if (mesh.rules.borders != CageRules::Borders::unsaid) {
        m_file.write("t interpolateboundary 1/0/0");
        number(' ',
               static_cast<unsigned int>(mesh.rules.borders) - static_cast<unsigned int>(CageRules::Borders::none));
        m_file.write("\n");
    }
    if (mesh.rules.chaikin) m_file.write("t creasemethod 0/0/1 chaikin\n");
    if (mesh.rules.smooth_triangles) m_file.write("t smoothtriangles 0/0/1 smooth\n");
}

}  // namespace

ObjMesh to_obj_mesh(const ControlCage& cage) {
    return {cage.positions,      cage.polygon_counts,   cage.polygon_indices,  cage.uv_points, cage.uv_indices,
            cage.corner_creases, cage.corner_sharpness, cage.vertex_sharpness, cage.holes,     cage.rules};
}

void write_obj(const std::string& path, const ObjMesh& mesh) {
    ObjWriter writer(path);
    writer.points("v", mesh.positions, 3);
    writer.points("vt", mesh.uv_points, 2);
    std::size_t first = 0;
    for (const std::uint32_t count : mesh.polygon_counts) {
        const auto uvs = mesh.uv_indices.empty() ? mesh.uv_indices : mesh.uv_indices.subspan(first, count);
        writer.polygon(mesh.polygon_indices.subspan(first, count), uvs);
        first += count;
    }
    writer.tags(mesh);
    writer.commit();
}

}  // namespace sds_io

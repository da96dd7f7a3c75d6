// Scenes of tests/usda/scenes against what they hold, told in the text file beside each.
#include "io/usda/scene.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <utility>

#include "support/scratch_folder.h"

namespace sds_usda {
namespace {

namespace fs = std::filesystem;

/// Lines of names and values; what is empty is left out.
class Dump {
public:
    template <class Values>
    void list(std::string_view name, const Values& values) {
        if (std::empty(values)) return;
        m_text << name;
        for (const auto& value : values) m_text << ' ' << value;
        m_text << '\n';
    }
    template <class T>
    void timed(std::string_view name, const Timed<T>& values) {
        list(std::string(name) + " times", values.times);
        for (std::size_t i = 0; i < values.get_sample_count(); ++i) list(name, values.sample(i));
    }
    template <class... Words>
    void line(const Words&... words) {
        const char* gap = "";
        ((m_text << std::exchange(gap, " ") << words), ...) << '\n';
    }
    std::string text() const { return m_text.str(); }

private:
    std::ostringstream m_text;
};

void add_mesh(Dump& dump, const UsdScene& scene, const UsdMesh& mesh) {
    const auto word = [](const auto& words, auto value) { return words[static_cast<std::size_t>(value)]; };
    dump.line("\nmesh", prim_path(scene, mesh.node), word(scheme_words, mesh.scheme),
              word(boundary_words, mesh.interpolate_boundary), word(face_varying_words, mesh.face_varying_linear),
              word(triangle_words, mesh.triangle_rule), mesh.is_left_handed ? "left-handed" : "right-handed",
              mesh.is_double_sided ? "double-sided" : "single-sided");
    dump.timed("points", mesh.points);
    dump.timed("velocities", mesh.velocities);
    dump.timed("accelerations", mesh.accelerations);
    dump.list("counts", mesh.counts);
    dump.list("indices", mesh.indices);
    dump.list("holes", mesh.hole_indices);
    dump.list("creases", mesh.crease_indices);
    dump.list("crease lengths", mesh.crease_lengths);
    dump.list("crease sharpnesses", mesh.crease_sharpnesses);
    dump.list("corners", mesh.corner_indices);
    dump.list("corner sharpnesses", mesh.corner_sharpnesses);
    for (const UsdPrimvar& primvar : mesh.primvars) {
        dump.line("primvar", primvar.name, primvar.type_name, word(interpolation_words, primvar.interpolation),
                  primvar.components, "x", primvar.element_size);
        std::visit([&dump](const auto& values) { dump.timed("  values", values); }, primvar.values);
        dump.timed("  indices", primvar.indices);
    }
    for (const UsdSubset& subset : mesh.subsets)
        dump.list("subset '" + subset.name + "' of '" + subset.family + "'", subset.faces);
}

std::string describe(const UsdSceneResult& result) {
    Dump dump;
    for (const UsdFinding& finding : result.findings.get_entries())
        dump.line("finding", to_name(finding.code), finding.count);
    if (!result.scene) return dump.text();
    const UsdScene& scene = *result.scene;
    dump.line("stage", scene.up_axis == UpAxis::z ? "Z" : "Y", scene.meters_per_unit, scene.time_codes_per_second,
              scene.start_time_code.value_or(-1), scene.end_time_code.value_or(-1), "'" + scene.default_prim + "'");
    dump.line("last node", prim_path(scene, static_cast<std::uint32_t>(scene.nodes.size() - 1)));
    for (const UsdCamera& camera : scene.cameras) {
        dump.line("camera", prim_path(scene, camera.node), camera.is_orthographic ? "orthographic" : "perspective");
        dump.timed("focal length", camera.focal_length);
        dump.timed("aperture", camera.horizontal_aperture);
        dump.timed("aperture down", camera.vertical_aperture);
        dump.timed("clipping range", camera.clipping_range);
        dump.timed("shutter opens", camera.shutter_open);
    }
    for (const UsdMesh& mesh : scene.meshes) add_mesh(dump, scene, mesh);
    return dump.text();
}

/// Whatever stands between the words: comments wherever blanks may be, and other ends of lines.
TEST(UsdScene, HoldsWhatItsTextSays) {
    unsigned int count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(QN_SOURCE_DIR "/tests/usda/scenes")) {
        if (entry.path().extension() != ".usda") continue;
        SCOPED_TRACE(entry.path().string());
        const std::string plain = ScratchFolder::read(entry.path());
        std::string commented, windows;
        bool is_quoted = false;
        for (const char c : plain) {
            is_quoted ^= c == '"';
            commented += c;
            if (std::string_view(",([{=").find(c) != std::string_view::npos && !is_quoted)
                commented += " /* ] , ) */ # ]\n // )\n";
            windows += c == '\n' ? "\r\n" : std::string(1, c);
        }
        const std::string expected = ScratchFolder::read(fs::path(entry.path()).replace_extension(".txt"));
        for (const std::string& text : {plain, commented, windows, "\xEF\xBB\xBF" + plain})
            EXPECT_EQ(describe(read_usd_scene(text)), expected);
        ++count;
    }
    EXPECT_GE(count, 8u);
}

}  // namespace
}  // namespace sds_usda

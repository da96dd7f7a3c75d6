#include "io/obj/read_obj.h"
#include "io/json.h"
#include "io/obj/write_obj.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numeric>
#include <sstream>
#include <tuple>

#include "support/scratch_folder.h"

namespace sds_io {

using namespace sds_model;
namespace {

using enum FindingCode;

const std::string square = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";

const Finding* find(const ReadObjResult& result, std::string_view name) {
    for (const Finding& finding : result.findings.get_entries())
        if (to_name(finding.code) == name) return &finding;
    return nullptr;
}
const Finding* find(const ReadObjResult& result, FindingCode code) { return find(result, to_name(code)); }

/// Asserts that `text` has the finding first at line `line` (0: the file as a whole), and a cage unless it is an error.
void expect_finding(const std::string& text, std::string_view name, int line, std::uint64_t count = 1,
                    const ReadObjOptions& options = {}) {
    SCOPED_TRACE(text.substr(0, 200));
    const ReadObjResult result = read_obj_text(text, "cage.obj", options);
    const Finding* finding = find(result, name);
    ASSERT_NE(finding, nullptr) << name << " not found among " << to_json(result.findings).dump(1);
    EXPECT_EQ(finding->first.place, line == 0 ? "cage.obj" : "cage.obj:" + std::to_string(line)) << name;
    EXPECT_EQ(finding->count, count);
    EXPECT_EQ(result.cage.has_value(), severity_of(finding->code) != Severity::error);
}
void expect_finding(const std::string& text, FindingCode code, int line, std::uint64_t count = 1,
                    const ReadObjOptions& options = {}) {
    expect_finding(text, to_name(code), line, count, options);
}

ControlCage cage_of(const std::string& text, std::size_t finding_count = 0) {
    const ReadObjResult result = read_obj_text(text, "cage.obj");
    EXPECT_TRUE(result.cage.has_value()) << to_json(result.findings).dump(1);
    EXPECT_EQ(result.findings.get_entries().size(), finding_count) << to_json(result.findings).dump(1);
    return result.cage.value_or(ControlCage{});
}

using Indices = std::vector<std::uint32_t>;

// Lines of a list beside this file: a code, where its first case stands, how many there are, and the file, which
// `visit` has too.
template <class Visit>
void expect_findings(const std::string& list, unsigned int least, const Visit& visit) {
    std::ifstream file(QN_SOURCE_DIR "/tests/io/" + list);
    unsigned int count = 0;
    for (std::string entry; std::getline(file, entry); ++count) {
        std::istringstream words(entry);
        std::string name, text;
        int line;
        std::uint64_t cases;
        std::getline((words >> name >> line >> cases).ignore(), text);
        for (const auto& [shown, meant] :
             {std::pair<std::string, std::string>("SQUARE ", square), {"\\n", "\n"}, {"\\r", "\r"}})
            for (std::size_t at; (at = text.find(shown)) != std::string::npos;) text.replace(at, shown.size(), meant);
        expect_finding(text, name, line, cases);
        visit(text);
    }
    EXPECT_GE(count, least);
}

TEST(ReadObj, FindingsStandAtTheirLine) {
    expect_findings("findings.txt", 60, [](const std::string&) {});
}

TEST(ReadObj, RefusesWhatIsNoMesh) {
    expect_finding("\x89PNG\r\n\x1a\n", not_obj, 0);
    expect_finding(std::string("v 0 0 0\0f 1 2 3", 15), not_obj, 0);
    const ReadObjResult ply = read_obj_text("ply\nformat ascii 1.0\nelement vertex 3\n", "cage.ply");
    ASSERT_EQ(ply.findings.get_entries().size(), 1u) << "no word on its records";
    EXPECT_EQ(to_text(ply.findings.get_entries()[0]), "cage.ply: error: not an OBJ file (a PLY file)");

    const ReadObjResult missing = read_obj("/nowhere/cage.obj");
    EXPECT_NE(find(missing, unreadable_file), nullptr);
    EXPECT_FALSE(missing.cage);
    EXPECT_NE(find(read_obj(std::filesystem::temp_directory_path().string()), unreadable_file), nullptr) << "a folder";
}

TEST(ReadObj, TakesWhatIsSoundAndNamesTheRest) {
    const ControlCage whole = cage_of(square + "f 1 2 3 4\n");
    const auto expect_whole = [&](const std::string& text) {
        const ReadObjResult read = read_obj_text(text, "cage.obj");
        ASSERT_TRUE(read.cage);
        EXPECT_EQ(std::tie(read.cage->positions, read.cage->polygon_indices, read.cage->polygon_counts),
                  std::tie(whole.positions, whole.polygon_indices, whole.polygon_counts));
        EXPECT_FALSE(read.cage->has_uvs() || read.cage->has_colors());
    };
    expect_findings("odd_quads.txt", 9, expect_whole);
    const std::string zeros = square + "f 1 2 3 4\n" + std::string(5, '\0');
    expect_finding(zeros, trailing_zeros, 0);
    expect_whole(zeros);
    EXPECT_EQ(cage_of(square + "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1/ 2/2/ 3/3/ 4/4/\n", 1).uv_indices,
              (Indices{0, 1, 2, 3}));
    EXPECT_EQ(cage_of("v 0 0 0 nan 0 0\nv 1 0 0 1 0 0\nv 1 1 0 0 1 0\nf 1 2 3\n", 1).vertex_colors,
              (std::vector<std::uint8_t>{255, 255, 255, 255, 255, 0, 0, 255, 0, 255, 0, 255}));
    EXPECT_EQ(to_text(*find(read_obj_text(square + "f 1 2 3 4\nvn 0 0 1\ns off\no box\nvn 0 1 0\nvp 1\n", "cage.obj"),
                            unused_record)),
              "cage.obj:6: note: record without a bearing on the surface ('vn', 's', 'o', 'vp'), ignored; 5 cases, "
              "first here");
}

TEST(ReadObj, UnpacksGzip) {
    const ScratchFolder folder;
    const std::string plain = folder.path("cage.obj"), packed = folder.path("cage.obj.gz");
    std::ofstream(plain) << square << "f 1 2 3 4\n";
    ASSERT_EQ(std::system(("gzip -c " + plain + " > " + packed + " && gzip -c " + plain + " >> " + packed).c_str()), 0);
    const ReadObjResult twice = read_obj(packed);
    ASSERT_TRUE(twice.cage) << to_json(twice.findings).dump(1);
    EXPECT_EQ(twice.cage->get_polygon_count(), 2u) << "members follow each other";
    std::filesystem::resize_file(packed, std::filesystem::file_size(packed) - 12);
    EXPECT_EQ(to_text(read_obj(packed).findings.get_entries().at(0)),
              packed + ": error: cannot read the file (gzipped and cut short)");
    std::ofstream(packed, std::ios::binary) << "\x1f\x8b\x08 and then nothing of the kind";
    EXPECT_NE(find(read_obj(packed), unreadable_file), nullptr);
}

TEST(ReadObj, StopsAtItsLimit) {
    ReadObjOptions options;
    options.max_corners = 4;
    EXPECT_TRUE(read_obj_text(square + "f 1 2 3 4\n", "cage.obj", options).cage);
    expect_finding(square + "f 1 2 3 4\nf 1 2 3 4\n", too_many_corners, 0, 1, options);
    expect_finding(square + "v 0 0 1\nf 1 2 3 4\n", too_many_corners, 0, 1, options);
}

TEST(ReadObj, CountsACauseOnceWithItsFirstPlace) {
    std::string text = square;
    for (int i = 0; i < 1000; ++i) text += "f 1 2 9\n";
    text += "f 0 1 2\n";
    const ReadObjResult result = read_obj_text(text, "cage.obj");
    ASSERT_EQ(result.findings.get_entries().size(), 2u);
    EXPECT_EQ(to_text(*find(result, vertex_index_out_of_range)),
              "cage.obj:5: error: vertex index out of range (index 9 of 4); 1000 cases, first here");
    EXPECT_EQ(to_text(*find(result, zero_index)), "cage.obj:1005: error: index 0, the first is 1 ('0')");
}

TEST(ReadObj, MessagesAreSafeToPrintAndToSerialise) {
    const ReadObjResult result = read_obj_text(square + "f 1 2 \xff\xfe\x1b[31m\n", "cage.obj");
    const nlohmann::json json = nlohmann::json::parse(to_json(result.findings).dump());
    EXPECT_EQ(json.at(0).at("code"), "not_a_number");
    EXPECT_EQ(json.at(0).at("severity"), "error");
    EXPECT_EQ(json.at(0).at("first"), "cage.obj:5");
    EXPECT_EQ(json.at(0).at("detail"), "'???[31m'");
}

TEST(ReadObj, AcceptsEveryWayToWriteAPolygon) {
    const Indices expected = {0, 1, 2, 3};
    for (const char* polygon :
         {"f 1 2 3 4", "f 1/1 2/2 3/3 4/4", "f 1//1 2//1 3//1 4//1", "f 1/1/1 2/2/1 3/3/1 4/4/1", "f -4 -3 -2 -1",
          "f\t-4/-4  -3/-3 \\\n -2/-2 \\\r\n-1/-1", "f 1 2 3 4 # the only one", "f +1 2 3 4\r"}) {
        SCOPED_TRACE(polygon);
        const ControlCage cage =
            cage_of("\xEF\xBB\xBF" + square + "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvn 0 0 1\n" + polygon, 1);
        EXPECT_EQ(cage.polygon_indices, expected);
        EXPECT_EQ(cage.polygon_counts, Indices{4});
        EXPECT_EQ(cage.corner_creases, std::vector<std::uint8_t>(4, 0));
        if (cage.has_uvs()) {
            EXPECT_EQ(cage.uv_indices, expected);
        }
    }
    EXPECT_EQ(cage_of("f 1 2 3 4\n" + square).polygon_indices, expected) << "vertices may follow";
    EXPECT_EQ(cage_of("v 0 0 0\rv 1 0 0\rv 1 1 0\rv 0 1 0\rf 1 2 3 4\r").polygon_indices, expected) << "bare CR";
}

TEST(ReadObj, RoundsNumbersToNearest) {
    const ControlCage cage = cage_of("v 0.1 +2.5e-1 -3E+2\nv 1e-60 16777217 0\nv 0 1 .5\nf 1 2 3\n");
    EXPECT_EQ(cage.positions, (std::vector<float>{0.1f, 0.25f, -300.0f, 0.0f, 16777216.0f, 0.0f, 0.0f, 1.0f, 0.5f}));
}

TEST(ReadObj, CountsLinesThroughContinuationsAndLineEnds) {
    expect_finding("v 0 0 \\\n0\r\nv 1 0 0\rv 1 1 0\n\n# c \\\nf 1 2 \\\n7\n", vertex_index_out_of_range, 7);
}

TEST(ReadObj, DropsTwoCornerPolygonsWithTheirGroup) {
    const std::string text = square + "g wire\nf 1 2\nf 3 4\ng skin\nf 1 2 3 4\n";
    const ControlCage cage = cage_of(text, 1);
    EXPECT_EQ(cage.polygon_counts, Indices{4});
    EXPECT_EQ(cage.group_names, std::vector<std::string>{"skin"});
    EXPECT_EQ(read_obj_text(text, "cage.obj").polygon_lines, Indices{9});
}

TEST(ReadObj, ReportsWhatDoesNotStop) {
    const std::string strip = square + "v 2 0 0\nv 2 1 0\nv 0 0 1\nv 1 0 1\n";
    const std::string tags = square + "f 1 2\nf 1 2 3 4\nt hole 1/0/0 1\nt corner 2/1/0 0 3 10\nt crease 2/1/0 0 1 3\n";
    expect_finding(tags, fractional_sharpness, 9, 1, {.fractional = FractionalSharpness::exact});
    expect_finding(tags + "t corner 1/1/0 0 3\n", fractional_corner, 10, 1, {.is_refined = true});
    EXPECT_EQ(find(read_obj_text(strip + "f 1 2 3 4\nf 2 5 6 3\nf 2 1 7 8", ""), opposite_winding), nullptr);
}

TEST(ReadObj, MarksCreasesOnEverySideOfTheirEdge) {
    const std::string strip = square + "v 2 0 0\nv 2 1 0\nf 1 2 3 4\nf 2 5 6 3\n";
    using Flags = std::vector<std::uint8_t>;
    EXPECT_EQ(cage_of(strip + "t crease 2/1/0 2 1 10\n").corner_creases, (Flags{0, 1, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(cage_of(strip + "t crease 2/1/0 0 3 inf\n").corner_creases, (Flags{0, 0, 0, 1, 0, 0, 0, 0}));
    EXPECT_EQ(cage_of(strip + "t crease 4/1/0 0 1 2 3 10\n").corner_creases, (Flags{1, 1, 1, 0, 0, 0, 0, 1}))
        << "chain";
    EXPECT_EQ(cage_of(strip + "t crease 3/2/0 0 1 2 10 0\n").corner_creases, (Flags{1, 0, 0, 0, 0, 0, 0, 0}))
        << "each its own";
    EXPECT_EQ(cage_of(strip + "t crease 2/1/0 1 2 -1\n", 1).corner_creases, Flags(8, 0));
    EXPECT_EQ(cage_of(strip + "t crease 2/1/0 1 2 10\nt crease 2/1/0 2 1 0\n").corner_creases, Flags(8, 0))
        << "last one";
    EXPECT_EQ(cage_of("t crease 2/1/0 1 2 10\n" + strip).corner_creases, (Flags{0, 1, 0, 0, 0, 0, 0, 1}))
        << "before its edge";
}

TEST(ReadObj, SettlesFractionalSharpnessOncePerEdge) {
    const std::string text =
        square + "f 1 2 3 4\nt crease 2/1/0 0 1 9.5\nt crease 2/1/0 1 0 9.5\nt crease 2/1/0 1 2 0.1\n";
    using Flags = std::vector<std::uint8_t>;
    EXPECT_EQ(cage_of(text, 1).corner_creases, (Flags{1, 1, 0, 0}));

    ReadObjOptions drop;
    drop.fractional = FractionalSharpness::drop;
    const ReadObjResult dropped = read_obj_text(text + "t crease 2/1/0 3 0 10\n", "cage.obj", drop);
    EXPECT_EQ(dropped.cage.value().corner_creases, (Flags{0, 0, 0, 1}));
    EXPECT_EQ(find(dropped, fractional_sharpness)->first.action, "left smooth");
    EXPECT_EQ(find(read_obj_text(text + "t crease 3/1/0 0 1 2 10\n", ""), fractional_sharpness), nullptr)
        << "overruled";
}

TEST(ReadObj, KeepsAllTagsForRefinedSurfaces) {
    const std::string quads = square + "v 2 0 0\nv 2 1 0\nf 1 2\nf 1 2 3 4\nf 2 5 6 3\n";
    const ReadObjOptions options{.fractional = FractionalSharpness::exact, .is_refined = true};
    const std::string tags =
        "t crease 3/2/0 1 2 3 2.5 10\nt crease 2/1/0 0 1 0.5\nt crease 2/1/0 0 1 0\nt corner 2/2/0 5 0 inf 0.75\n"
        "t hole 1/0/0 2\nt interpolateboundary 1/0/0 0\nt creasemethod 0/0/1 chaikin\n"
        "t smoothtriangles 0/0/1 smooth\n";
    const ReadObjResult result = read_obj_text(quads + tags, "cage.obj", options);
    ASSERT_TRUE(result.cage);
    EXPECT_EQ(result.findings.get_entries().size(), 1u) << "the polygon of two corners, which tags count";
    const ControlCage& cage = *result.cage;
    EXPECT_EQ(cage.corner_creases, (std::vector<std::uint8_t>{0, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(cage.corner_sharpness, (std::vector<float>{0, 2.5f, 0, 0, 0, 0, 0, 2.5f}));
    EXPECT_EQ(cage.vertex_sharpness, (std::vector<float>{0.75f, 0, 0, 0, 0, 10}));
    EXPECT_EQ(cage.holes, (std::vector<std::uint8_t>{0, 1}));
    EXPECT_EQ(cage.rules.borders, CageRules::Borders::none);
    EXPECT_TRUE(cage.rules.chaikin && cage.rules.smooth_triangles);

    expect_finding(quads + "t hole 2/0/0 0 3\n", tag_without_polygon, 10, 1, options);
    expect_finding(quads + "t corner 1/1/0 6 1\n", tag_index_out_of_range, 10, 1, options);
    expect_finding(quads + "t corner 2/3/0 0 1 1 1 1\n", malformed_tag, 10, 1, options);

    const ScratchFolder folder;
    write_obj(folder.path("out.obj"), to_obj_mesh(cage));
    const ControlCage again = read_obj(folder.path("out.obj"), options).cage.value();
    EXPECT_EQ(std::tie(again.corner_creases, again.corner_sharpness, again.vertex_sharpness, again.holes),
              std::tie(cage.corner_creases, cage.corner_sharpness, cage.vertex_sharpness, cage.holes));
    EXPECT_EQ(std::tie(again.rules.borders, again.rules.chaikin, again.rules.smooth_triangles),
              std::tie(cage.rules.borders, cage.rules.chaikin, cage.rules.smooth_triangles));
}

TEST(ReadObj, MaterialsMakeShadingGroupsBeforeGroupsDo) {
    const std::string faces = square + "f 1 2 3\ng left arm\nf 2 3 4\ng\nf 3 4 1\ng left arm\nf 4 1 2\n";
    const ControlCage by_group = cage_of(faces, 2);  // the triangles overlap with one winding
    EXPECT_EQ(by_group.group_names, (std::vector<std::string>{"default", "left arm"}));
    EXPECT_EQ(by_group.polygon_groups, (Indices{0, 1, 0, 1}));

    const ControlCage by_material = cage_of("usemtl unused\nusemtl red\n" + faces, 3);
    EXPECT_EQ(by_material.group_names, std::vector<std::string>{"red"});
    EXPECT_EQ(by_material.polygon_groups, (Indices{0, 0, 0, 0}));

    const ReadObjResult latin = read_obj_text(
        "mtllib a.mtl b.mtl\nusemtl Stra\xDF"
        "e\n" +
            faces,
        "cage.obj");
    EXPECT_EQ(latin.cage.value().group_names, std::vector<std::string>{"Stra\xC3\x9F"
                                                                       "e"});
    EXPECT_EQ(latin.material_libraries, (std::vector<std::string>{"a.mtl", "b.mtl"}));
    EXPECT_EQ(find(latin, name_not_utf8)->first.place, "cage.obj:2");
    // Well-formed; overlong, a surrogate, cut short.
    EXPECT_EQ(cage_of("usemtl \xE2\x82\xAC\xF0\x9F\x98\x80\n" + square + "f 1 2 3 4\n").group_names[0],
              "\xE2\x82\xAC\xF0\x9F\x98\x80");
    for (const char* name : {"\xC0\xAF", "\xED\xA0\x80", "\xE2\x82"})
        expect_finding(std::string("usemtl ") + name + "\n" + square + "f 1 2 3 4\n", name_not_utf8, 1);
}

TEST(ReadObj, UvsAreWholePolygonsOrNothing) {
    const std::string uvs = "vt 0.5\nvt 1 0.25\nvt 0 1 0.75\n";
    const ControlCage mixed = cage_of(square + uvs + "f 1/1 2/2 3/3\nf 1 3 4\n");
    EXPECT_EQ(mixed.uv_points, (std::vector<float>{0.5f, 0, 0, 1, 0.25f, 0, 0, 1, 0.75f}));
    EXPECT_EQ(mixed.uv_indices, (Indices{0, 1, 2, unmapped_corner, unmapped_corner, unmapped_corner}));

    const ControlCage half = cage_of(square + uvs + "f 1/1 2/2 3\nf 1/1 3/3 4/2\n", 1);
    EXPECT_EQ(half.uv_indices, (Indices{unmapped_corner, unmapped_corner, unmapped_corner, 0, 2, 1}));

    const ControlCage none = cage_of(square + uvs + "f 1 2 3 4\n");
    EXPECT_FALSE(none.has_uvs());
    EXPECT_EQ(none.get_uv_count(), 0u);
}

TEST(ReadObj, ColorsBelongToVertices) {
    const ControlCage cage = cage_of("v 0 0 0 1 0 0.5\nv 1 0 0 0 0.002 1\nv 0 1 0 0 0 0\nf 1 2 3\n");
    EXPECT_EQ(cage.vertex_colors, (std::vector<std::uint8_t>{255, 0, 128, 255, 0, 1, 255, 255, 0, 0, 0, 255}));

    const std::string partly = "v 0 0 0\nv 1 0 0\nv 0 1 0 0 0 -1\nv 1 1 0\nf 1 2 3\nf 4 3 2\n";
    const ControlCage filled = cage_of(partly, 2);
    ASSERT_EQ(filled.vertex_colors.size(), 16u);
    EXPECT_EQ(filled.vertex_colors[0], 255);
    EXPECT_EQ(filled.vertex_colors[8], 0);
    EXPECT_EQ(filled.vertex_colors[12], 255);
}

TEST(ReadObj, APoleOfHugeValenceIsLinear) {
    constexpr int count = 200000;  // quadratic work would outlast any patience
    std::string text = "v 0 0 0\n";
    for (int i = 0; i < count; ++i) text += "v 1 " + std::to_string(i) + " 0\n";
    for (int i = 0; i < count; ++i)
        text += "f 1 " + std::to_string(i + 2) + " " + std::to_string((i + 1) % count + 2) + "\n";
    for (int i = 0; i < count; ++i) text += "t crease 2/1/0 0 " + std::to_string(i + 1) + " 10\n";
    const ControlCage cage = cage_of(text);
    EXPECT_EQ(std::accumulate(cage.corner_creases.begin(), cage.corner_creases.end(), 0), 2 * count);
}

}  // namespace
}  // namespace sds_io

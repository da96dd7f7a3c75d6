// Property sidecars: the surface read through them, and what is refused.
#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "io/obj/read_obj.h"
#include "io/property_file.h"
#include "sds_process.h"

namespace sds_cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using Json = nlohmann::json;

// Positions of a cage by vertex, and the same numbers by face-corner in `indices`.
struct Positions {
    ControlCage cage;
    Json by_vertex = Json::array(), indices = Json::array();

    explicit Positions(const std::string& mesh) : cage(read_obj(mesh).cage.value()) {
        for (std::size_t v = 0; v < cage.get_vertex_count(); ++v)
            by_vertex.push_back({cage.positions[3 * v], cage.positions[3 * v + 1], cage.positions[3 * v + 2]});
        for (const std::uint32_t v : cage.polygon_indices) indices.push_back(v);
    }
};

std::string write_sidecar(const ScratchFolder& folder, const Json& list) {
    return folder.write("properties.json", list.dump());
}

// Exports a property on a grid of `cells`; rows of 3 x extent.
std::vector<double> export_property(const ScratchFolder& folder, const std::string& mesh, const std::string& sidecar,
                                    const std::string& name, unsigned int cells,
                                    const std::vector<std::string>& more = {}) {
    EXPECT_SUCCESS(run_sds(folder,
                           {"export", mesh, "--quiet", "--properties", sidecar, "--property", name,
                            folder.path("p.npy"), "--cells", std::to_string(cells)},
                           more));
    return std::get<std::vector<double>>(read_npy(folder.path("p.npy")).values);
}

using Properties = InFolder;

TEST_F(Properties, PositionsComeBackAsTheSurface) {
    const Positions positions(sheet);
    std::vector<float> flat;
    for (const float x : positions.cage.positions) flat.push_back(x);
    const std::size_t shape[] = {positions.cage.get_vertex_count(), 3};
    write_npy<float>(folder.path("p.npy"), shape, flat);
    const Json common = {{"kind", "vertex"}, {"type", "float64"}, {"extent", 3}};
    Json plain = common, indexed = common, file = common, half = common;
    plain.update({{"name", "plain"}, {"values", positions.by_vertex}});
    indexed.update({{"name", "indexed"}, {"values", positions.by_vertex}, {"indices", positions.indices}});
    file.update({{"name", "file"}, {"values", "values.npy"}});
    half.update({{"name", "half"}, {"values", positions.by_vertex}, {"type", "float16"}});
    std::filesystem::rename(folder.path("p.npy"), folder.path("values.npy"));
    const std::string sidecar = write_sidecar(folder, {plain, indexed, file, half});
    for (const char* mode : {"corners", "linear"}) {
        const std::vector<std::string> more{"--interpolation", mode, "--isolation", "0"};
        EXPECT_SUCCESS(run_sds(folder, {"export", sheet, "--samples", "3", folder.path("s.npy"), "--quiet"}, more));
        const std::vector<double> samples = read_doubles(folder.path("s.npy"), {15, 4, 4, 15});
        for (const char* name : {"plain", "indexed", "file", "half"}) {
            const std::vector<double> values = export_property(folder, sheet, sidecar, name, 3, more);
            ASSERT_EQ(values.size(), 15u * 16 * 9);
            const double tolerance = name == std::string("half") ? 1e-2 : 2e-6;
            for (std::size_t i = 0; i < 15u * 16; ++i)
                for (std::size_t c = 0; c < 3; ++c)
                    ASSERT_NEAR(values[9 * i + c], samples[15 * i + c], tolerance) << mode << ' ' << name << ' ' << i;
        }
    }
}

TEST_F(Properties, UniformAndConstantValuesKeepTheirExtremes) {
    // 4 polygons: 5, 3, 3 and 4 quads
    using Limits = std::numeric_limits<std::int64_t>;
    const std::string sidecar = write_sidecar(
        folder,
        {{{"name", "face"}, {"kind", "uniform"}, {"type", "int64"}, {"values", {Limits::min(), 7, -1, 1 << 30}}},
         {{"name", "one"}, {"kind", "constant"}, {"type", "uint64"}, {"extent", 2}, {"values", {~0ull, 5}}}});
    const std::vector<double> faces = export_property(folder, sheet, sidecar, "face", 1);
    const auto value_of_quad = [&](std::size_t q) { return faces[q * 4 * 3]; };
    const double expected[] = {-std::ldexp(1.0, 63), 7, -1, 1 << 30};
    for (std::size_t q = 0; q < 15; ++q) EXPECT_EQ(value_of_quad(q), expected[q < 5 ? 0 : q < 8 ? 1 : q < 11 ? 2 : 3]);
    const std::vector<double> one = export_property(folder, sheet, sidecar, "one", 1);
    for (std::size_t i = 0; i < one.size(); i += 6)
        EXPECT_THAT(std::vector<double>(&one[i], &one[i] + 6),
                    testing::ElementsAre(std::ldexp(1.0, 64), 5, 0, 0, 0, 0));
}

TEST_F(Properties, BlendBetweenTimes) {
    Json first = Json::array(), second = Json::array();
    for (int v = 0; v < 8; ++v) {
        first.push_back(v);
        second.push_back(10 * v * v);
    }
    const auto entry = [](const char* name, const Json& values) {
        return Json{{"name", name}, {"kind", "vertex"}, {"type", "float32"}, {"values", values}};
    };
    Json moving = entry("moving", {first, second});
    moving["times"] = {-1, 1};
    const std::string sidecar = write_sidecar(folder, {entry("a", first), entry("b", second), moving});
    const std::vector<double> a = export_property(folder, cube, sidecar, "a", 2),
                              b = export_property(folder, cube, sidecar, "b", 2);
    EXPECT_EQ(export_property(folder, cube, sidecar, "moving", 2, {"--time", "-5"}), a);
    EXPECT_EQ(export_property(folder, cube, sidecar, "moving", 2, {"--time", "1"}), b);
    const std::vector<double> between = export_property(folder, cube, sidecar, "moving", 2, {"--time", "-0.5"});
    for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(between[i], 0.75 * a[i] + 0.25 * b[i], 1e-9);
}

TEST_F(Properties, BecomeLayersOfThePicture) {
    const Positions positions(cube);
    const Json heat = {
        {"name", "heat"}, {"kind", "uniform"}, {"type", "uint8"}, {"values", {0, 50, 100, 150, 200, 250}}};
    const Json rest = {
        {"name", "rest"}, {"kind", "vertex"}, {"type", "float32"}, {"extent", 3}, {"values", positions.by_vertex}};
    const Json long_one = {
        {"name", "long"}, {"kind", "constant"}, {"type", "int8"}, {"extent", 5}, {"values", {1, 2, 3, 4, 5}}};
    const Json clash = {{"name", "Z"}, {"kind", "constant"}, {"type", "int8"}, {"values", {1}}};
    const std::string sidecar = write_sidecar(folder, {heat, rest, long_one, clash});
    const auto render = [&](const std::string& picture, const std::string& layers) {
        return run_sds(folder, {"render", cube, "-o", folder.path(picture), "--properties", sidecar, "--aov", layers,
                                "--width", "24", "--height", "24", "--samples", "1", "--quiet"});
    };
    EXPECT_SUCCESS(render("a.png", "prop:heat,prop:rest"));
    EXPECT_TRUE(std::filesystem::exists(folder.path("a.heat.png")));
    EXPECT_TRUE(std::filesystem::exists(folder.path("a.rest.png")));
    EXPECT_SUCCESS(render("a.exr", "Z,prop:heat,prop:rest"));
    const std::string exr = ScratchFolder::read(folder.path("a.exr"));
    for (const char* channel : {"heat", "rest.X", "rest.Z"})
        EXPECT_NE(exr.find(std::string(channel) + '\0'), std::string::npos) << channel;

    const std::size_t files = folder.file_count();
    const std::pair<const char*, const char*> wrong[] = {{"prop:cold", "known are heat, rest, long, Z"},
                                                         {"prop:long", "found an extent of 5"},
                                                         {"Z,prop:Z", "channel Z a second time"}};
    for (const auto& [layers, reason] : wrong) {
        const SdsRun run = render("b.exr", layers);
        EXPECT_EQ(run.code, 2) << layers;
        EXPECT_THAT(run.err, HasSubstr(reason));
    }
    EXPECT_EQ(folder.file_count(), files);

    const SdsRun info = run_sds(folder, {"info", cube, "--json", "--properties", sidecar});
    EXPECT_SUCCESS(info);
    const Json list = Json::parse(info.out)["properties"];
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[0]["type"], "uint8");
    EXPECT_EQ(list[1]["items"], 8);
    EXPECT_EQ(list[1]["kind"], "vertex");
}

TEST_F(Properties, RefusesWithNameExpectedAndFound) {
    const std::string out = folder.path("out.npy");
    const std::size_t shape[] = {3, 8};
    std::vector<double> numbers(24, 1.0);
    write_npy<double>(folder.path("turned.npy"), shape, numbers);
    const std::size_t right[] = {8, 3};
    numbers[10] = std::numeric_limits<double>::quiet_NaN();
    write_npy<double>(folder.path("nan.npy"), right, numbers);
    const Json cases = Json::parse(ScratchFolder::read(QN_SOURCE_DIR "/tests/cli/wrong_properties.json"));
    for (const Json& each : cases) {
        const Json& list = each["properties"];
        const std::string sidecar = write_sidecar(folder, list);
        const SdsRun run = run_sds(
            folder, {"export", cube, "--properties", sidecar, "--property", "heat", out, "--patches", "/dev/null"});
        EXPECT_EQ(run.code, 2) << list << run.err;
        EXPECT_THAT(run.err, HasSubstr(sidecar + ": "));
        for (const Json& reason : each["says"]) EXPECT_THAT(run.err, HasSubstr(reason.get<std::string>())) << list;
        EXPECT_FALSE(std::filesystem::exists(out)) << list;
    }
    for (const char* text : {"", "[{\"name\": ", "[{\"name\": NaN}]", "[1e999]", "[3]"})
        EXPECT_EQ(run_sds(folder, {"info", cube, "--properties", folder.write("bad.json", text)}).code, 2) << text;
    const std::string sidecar = write_sidecar(
        folder, Json::array({Json{{"name", "heat"}, {"kind", "constant"}, {"type", "int8"}, {"values", {1}}}}));
    EXPECT_EQ(run_sds(folder, {"export", cube, "--properties", sidecar, "--property", "cold", out}).code, 2);
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
}  // namespace sds_cli

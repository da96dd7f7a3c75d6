#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "io/usda/scene.h"

namespace sds_usda {
namespace {

namespace fs = std::filesystem;

const fs::path tests = fs::path(QN_SOURCE_DIR) / "tests";

std::string contents_of(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// expected.txt has the findings of every file of the folder, line by line.
TEST(BrokenUsda, EachIsRefusedAtItsLineAndColumn) {
    std::map<std::string, std::string> expected;
    std::ifstream list(tests / "cages/broken_usda/expected.txt");
    for (std::string line; std::getline(list, line);) expected[line.substr(0, line.find(':'))] += line + "\n";
    std::size_t count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(tests / "cages/broken_usda")) {
        if (entry.path().extension() != ".usda") continue;
        const std::string name = entry.path().stem().string();
        const UsdSceneResult result = read_usd_scene(contents_of(entry.path()));
        std::string found;
        for (const UsdFinding& finding : result.findings.get_entries()) found += to_text(finding, name) + "\n";
        EXPECT_EQ(found, expected[name]);
        EXPECT_FALSE(result.scene) << name;
        ++count;
    }
    EXPECT_EQ(count, expected.size());
    EXPECT_GT(count, 70u);
}

/// A layer that ends anywhere, or has a byte too few anywhere, gives a scene or a finding with a place inside of it.
TEST(BrokenUsda, NoCutIsTooMuch) {
    const std::string whole = contents_of(tests / "fuzz/corpus/read_usda/everything.usda");
    ASSERT_TRUE(read_usd_scene(whole).scene);
    const std::size_t last_brace = whole.rfind('}');
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string shorter = whole;
        shorter.erase(at, 1);
        for (const std::string& text : {whole.substr(0, at), shorter}) {
            const UsdSceneResult result = read_usd_scene(text);
            ASSERT_EQ(result.scene.has_value(), !result.findings.has_errors()) << at;
            const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
            for (const UsdFinding& finding : result.findings.get_entries()) ASSERT_LE(finding.line, lines + 1) << at;
        }
    }
    EXPECT_FALSE(read_usd_scene(whole.substr(0, last_brace)).scene);
}

TEST(BrokenUsda, FindingsAreBounded) {
    std::string text = "#usda 1.0\n";
    for (int i = 0; i < 1000; ++i)
        text += "def Kind" + std::to_string(i) + " \"p" + std::to_string(i) +
                "\" { float primvars:x = 1 (interpolation = \"vertex\") }\n";
    const UsdSceneResult result = read_usd_scene(text);
    EXPECT_EQ(result.findings.get_entries().size(), UsdFindings::max_details + 2);  // primvars and no mesh
    std::uint64_t count = 0;
    for (const UsdFinding& finding : result.findings.get_entries())
        if (finding.code == UsdFindingCode::unknown_schema) count += finding.count;
    EXPECT_EQ(count, 1000u);
}

}  // namespace
}  // namespace sds_usda

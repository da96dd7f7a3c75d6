// The fuzzers' seeds and everything they ever found, without a fuzzer.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/targets.h"

namespace sds_fuzz {
namespace {

void replay(const char* corpus, void (*target)(const std::uint8_t*, std::size_t)) {
    const std::filesystem::path folder = std::filesystem::path(QN_SOURCE_DIR) / "tests/fuzz/corpus" / corpus;
    unsigned int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        SCOPED_TRACE(entry.path().string());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
        target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++count;
    }
    EXPECT_GT(count, 0u);
    target(nullptr, 0);
}

TEST(FuzzReplay, Obj) { replay("read_obj", read_obj_bytes); }
TEST(FuzzReplay, Usda) { replay("read_usda", read_usda_bytes); }
TEST(FuzzReplay, Json) { replay("read_json", read_json_bytes); }
TEST(FuzzReplay, Npy) { replay("read_npy", read_npy_bytes); }
TEST(FuzzReplay, Frustum) { replay("read_frustum", read_frustum_bytes); }
TEST(FuzzReplay, Mesh) { replay("build_mesh", build_mesh_bytes); }
TEST(FuzzReplay, Patch) { replay("trace_patch", trace_patch_bytes); }

}  // namespace
}  // namespace sds_fuzz

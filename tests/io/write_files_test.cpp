#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <limits>

#include "io/atomic_file.h"
#include "io/obj/read_obj.h"
#include "io/obj/write_obj.h"
#include "support/scratch_folder.h"

namespace sds_io {

using namespace sds_model;
namespace {

TEST(AtomicFile, LeavesTheTargetAloneUntilCommit) {
    const ScratchFolder folder;
    const std::string target = folder.write("out.txt", "before");
    {
        AtomicFile file(target);
        file.write(std::string(3 << 20, 'x'));
        EXPECT_EQ(ScratchFolder::read(target), "before");
    }
    EXPECT_EQ(ScratchFolder::read(target), "before") << "given up";
    EXPECT_EQ(folder.file_count(), 1u) << "no temporary file stays";

    AtomicFile file(target);
    std::string expected;
    for (int i = 0; i < 5; ++i) {
        const std::string part(static_cast<std::size_t>(i) * 700000,
                               static_cast<char>('a' + i));  // around the buffer's size
        file.write(part);
        expected += part;
    }
    file.commit();
    EXPECT_EQ(ScratchFolder::read(target), expected);
    EXPECT_EQ(folder.file_count(), 1u);
}

TEST(AtomicFile, KeepsLinksAndPermissions) {
    const ScratchFolder folder;
    const std::string target = folder.write("real.txt", "before"), link = folder.path("link.txt");
    std::filesystem::permissions(target, std::filesystem::perms(0640));
    std::filesystem::create_symlink("real.txt", link);
    AtomicFile file(link);
    file.write("after");
    file.commit();
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ScratchFolder::read(target), "after");
    EXPECT_EQ(std::filesystem::status(target).permissions(), std::filesystem::perms(0640));

    const mode_t mask = umask(027);
    AtomicFile(folder.path("new.txt")).commit();
    umask(mask);
    EXPECT_EQ(std::filesystem::status(folder.path("new.txt")).permissions(), std::filesystem::perms(0640));
}

// A pipe of our own stands for all special files: were the rule broken, a test run as root would replace a real device.
TEST(AtomicFile, WritesThroughWhatIsNoRegularFile) {
    const ScratchFolder folder;
    const std::string pipe = folder.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    AtomicFile file(pipe);
    file.write("through");
    file.commit();
    std::array<char, 16> bytes{};
    EXPECT_EQ(read(reader, bytes.data(), bytes.size()), 7);
    EXPECT_STREQ(bytes.data(), "through");
    close(reader);
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));
    EXPECT_EQ(folder.file_count(), 1u);
}

TEST(WriteObj, ReadsBackBitForBit) {
    const ScratchFolder folder;
    using Limits = std::numeric_limits<float>;
    ControlCage cage;
    cage.positions = {0.1f, 1e18f, Limits::min(), -1.0f / 3.0f, 16777216.0f, 1e-7f, 0, 1, 2, -3, 4, 5, 1, 1, 1};
    cage.polygon_counts = {3, 5};
    cage.polygon_indices = {0, 1, 2, 3, 2, 1, 0, 4};
    cage.uv_points = {0.1f, 0.7f, 0, 1, 0, 0, 0.3f, 0.3f, 0};
    cage.uv_indices = {2, 1, 0, unmapped_corner, unmapped_corner, unmapped_corner, unmapped_corner, unmapped_corner};
    const std::string path = folder.path("out.obj");
    write_obj(path, {cage.positions, cage.polygon_counts, cage.polygon_indices, cage.uv_points, cage.uv_indices});
    const ReadObjResult result = read_obj(path);
    ASSERT_TRUE(result.cage) << ScratchFolder::read(path);
    EXPECT_EQ(result.cage->positions, cage.positions);
    EXPECT_EQ(result.cage->polygon_counts, cage.polygon_counts);
    EXPECT_EQ(result.cage->polygon_indices, cage.polygon_indices);
    EXPECT_EQ(result.cage->uv_points, cage.uv_points);
    EXPECT_EQ(result.cage->uv_indices, cage.uv_indices);

    write_obj(path, {cage.positions, cage.polygon_counts, cage.polygon_indices, {}, {}});
    EXPECT_EQ(read_obj(path).cage.value().polygon_indices, cage.polygon_indices);
}

}  // namespace
}  // namespace sds_io

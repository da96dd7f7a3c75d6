// What the program does where the system is against it: closed streams, signals, little memory, few threads, hostile
// targets and sizes.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <fstream>
#include <thread>

#include "sds_process.h"

namespace sds_cli {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::HasSubstr;
using testing::Not;

class Hardship : public InFolder {
protected:
    bool has_temporary_file() const {
        for (const auto& entry : std::filesystem::directory_iterator(folder.path("")))
            if (entry.path().filename().string().starts_with(".sds-")) return true;
        return false;
    }
};

TEST_F(Hardship, ClosedStreamsAreNotMistakenForFiles) {
    const std::string array = folder.path("a.npy"), export_array = "sds export " + cube + " --quiet --patches " + array;
    for (const char* closed : {" >&-", " <&-", " <&- >&- 2>&-"}) {
        EXPECT_EQ(run_shell(folder, export_array + closed).code, 0) << closed;
        EXPECT_EQ(read_npy(array).shape, (std::vector<std::size_t>{96, 16, 3})) << closed;
        std::filesystem::remove(array);
    }
}

TEST_F(Hardship, SignalsEndItAtOnceAndLeaveNothing) {
    const std::string picture = folder.write("out.exr", "old"), mesh = folder.write("out.obj", "old");
    const std::vector<std::string> trace{"render",   cube,   "-o",        picture, "--width", "4000",
                                         "--height", "4000", "--samples", "256",   "--quiet"};
    const std::vector<std::string> write{"export", cube, "--tessellation", mesh, "--level", "9", "--quiet"};
    struct Case {
        int signal;
        const std::vector<std::string>& command;
        const char* said;
    };
    const Case cases[] = {{SIGINT, trace, "sds: interrupted\n"},  {SIGINT, write, "sds: interrupted\n"},
                          {SIGTERM, write, "sds: interrupted\n"}, {SIGHUP, write, "sds: interrupted\n"},
                          {SIGXCPU, write, "sds: interrupted\n"}, {SIGPIPE, write, ""}};
    for (const Case& each : cases) {
        const auto interrupt = [&](pid_t pid) {
            const bool is_write = &each.command == &write;
            // The former is under way as soon as the signal has a handler.
            for (unsigned int i = 0; i < 100000; ++i) {
                std::ifstream status("/proc/" + std::to_string(pid) + "/status");
                std::uint64_t caught = 0;
                for (std::string line; std::getline(status, line);)
                    if (line.starts_with("SigCgt:")) caught = std::stoull(line.substr(7), nullptr, 16);
                if ((caught >> (each.signal - 1) & 1) != 0 && (!is_write || has_temporary_file())) break;
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
            kill(pid, each.signal);
        };
        const SdsRun run = run_sds_and(folder, each.command, interrupt);
        EXPECT_EQ(run.code, 128 + each.signal) << run.err;
        EXPECT_EQ(run.err, each.said);
        EXPECT_EQ(folder.file_count(), 4u) << "no temporary file is left";
        EXPECT_EQ(ScratchFolder::read(picture) + ScratchFolder::read(mesh), "oldold");
    }
}

TEST_F(Hardship, FilesBeyondTheSizeLimitFailLikeAFullDisk) {
    const std::string before = folder.write("old.npy", "old");
    const std::size_t files = folder.file_count();
    for (const std::string& out : {folder.path("new.npy"), before}) {
        const SdsRun run = run_shell(folder, "ulimit -f 8; sds export " + cube + " --quiet --samples 32 " + out);
        EXPECT_EQ(run.code, 1);
        EXPECT_THAT(run.err, HasSubstr("File too large"));
        EXPECT_EQ(folder.file_count(), files);
        EXPECT_EQ(ScratchFolder::read(before), "old");
    }
}

// Reached by every road: pictures, arrays and meshes.
TEST_F(Hardship, TargetsStayWhatTheyAre) {
    const std::string to = " --quiet --width 16 --height 16 -o ";
    const std::string victim = folder.write("victim.png", "old"), link = folder.path("link.png");
    const std::string dangling = folder.path("dangling.png"), pipe = folder.path("pipe.obj");
    std::filesystem::permissions(victim, std::filesystem::perms(0600));
    std::filesystem::create_symlink("victim.png", link);
    std::filesystem::create_symlink("new.png", dangling);
    EXPECT_EQ(run_shell(folder, "sds render " + cube + to + link + " && sds render " + cube + to + dangling).code, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link) && std::filesystem::is_symlink(dangling));
    EXPECT_EQ(std::filesystem::status(victim).permissions(), std::filesystem::perms(0600));
    EXPECT_THAT(ScratchFolder::read(victim), HasSubstr("PNG"));
    EXPECT_EQ(ScratchFolder::read(folder.path("new.png")), ScratchFolder::read(victim));

    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const SdsRun piped = run_shell(folder, "timeout 60 cat " + pipe + " & timeout 60 " QN_SDS_PROGRAM_PATH " export " +
                                               cube + " --quiet --level 1 --tessellation " + pipe + "; wait");
    EXPECT_THAT(piped.out, HasSubstr("\nf "));
    EXPECT_TRUE(std::filesystem::is_fifo(pipe));

    std::filesystem::create_symlink("/dev/full", folder.path("full.png"));
    std::filesystem::create_symlink("circle.png", folder.path("circle.png"));
    const std::string never = " --width 16384 --height 16384 --samples 65536 -o ";
    EXPECT_EQ(run_shell(folder, "sds render " + cube + to + folder.path("full.png")).code, 1);
    for (const std::string& path : {folder.path("circle.png"), std::string("/proc/x.png"), folder.path("no/x.png")})
        EXPECT_EQ(run_shell(folder, "sds render " + cube + never + path).code, 1) << "asked before the picture is made";
    EXPECT_FALSE(has_temporary_file());
}

// Whatever the limit, an answer or a sentence; the first ones do not even let the libraries be loaded.
TEST_F(Hardship, LittleAddressSpaceNeverAborts) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer needs more";
#endif
    const std::string render = " sds render " + cube + " --quiet --width 16 --height 16 -o " + folder.path("a.png");
    unsigned int done = 0;
    for (unsigned int limit = 40000; limit < 1500000; limit += limit / 5)
        for (const char* threads : {" --threads 0", " --threads 3", " --threads 64"}) {
            const SdsRun run =
                run_shell(folder, "ulimit -c 0; ulimit -v " + std::to_string(limit) + ";" + render + threads);
            EXPECT_THAT(run.code, AnyOf(0, 1, 127)) << limit << threads << run.err;
            EXPECT_THAT(run.err, Not(HasSubstr("terminate")));
            done += run.code == 0;
        }
    EXPECT_GT(done, 20u) << "it goes on with the threads there are";
}

// What stands still, or is held at its last sample, may be asked for at any time.
TEST_F(Hardship, AnyTimeIsGoodForWhatStaysInReach) {
    const std::string out = folder.path("out.npy"), next = folder.write("next.obj", moved(cube_obj, 0.5));
    EXPECT_SUCCESS(run_sds(folder, {"export", cube, "--patches", out, "--time", "1e39"}));
    EXPECT_SUCCESS(run_sds(folder, {"export", cube, "--time-samples", cube, next, "--patches", out, "--time", "1e39"}));
}

TEST_F(Hardship, PropertiesAtTheEndsOfTheirTypesStayFinite) {
    const std::pair<const char*, const char*> ends[] = {
        {"float16", "65504"}, {"float32", "3.4028234e38"}, {"float64", "1e300"}};
    for (const auto& [type, end] : ends) {
        std::string values;
        for (int i = 0; i < 8; ++i) values += (i > 0 ? "," : "") + std::string(i % 3 == 0 ? "-" : "") + end;
        const std::string json = folder.write("p.json", "[{\"name\": \"p\", \"kind\": \"vertex\", \"type\": \"" +
                                                            std::string(type) + "\", \"values\": [" + values + "]}]");
        const std::string out = folder.path("p.npy");
        EXPECT_SUCCESS(run_sds(folder, {"export", cube, "--properties", json, "--property", "p", out}));
        for (const double value : read_doubles(out, {6, 5, 5, 3})) ASSERT_TRUE(std::isfinite(value)) << type;
    }
}

TEST_F(Hardship, NamesCannotCommandTheTerminal) {
    const std::string name = folder.path("\x1b[31m\x9b\x7f\xc2\x9b\xc3\xa9.obj");
    const std::vector<std::vector<std::string>> commands = {
        {"info", name},
        {"info", cube, "--\x1b[2J"},
        {"render", cube, "-o", name},
        {"intersect", cube, "--rays", name, "--hits", folder.path("a.npy")},
        {"select", cube, "--mode", "touch", "--frustum", folder.write("f.json", "{\"a\\u001b[2J\": 1}")},
    };
    for (const auto& command : commands) {
        const std::string err = run_sds(folder, command).err;
        EXPECT_FALSE(err.empty());
        EXPECT_THAT(err, AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\x9b")), Not(HasSubstr("\x7f")))) << err;
    }
    EXPECT_THAT(run_sds(folder, commands[0]).err, HasSubstr("?[31m????\xc3\xa9.obj"));
}

}  // namespace
}  // namespace sds_cli

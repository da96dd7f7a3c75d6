// What the program says of itself: help, examples, completion, manual page; and "-" for its files.
#include <gmock/gmock.h>

#include <cmath>
#include <set>
#include <sstream>

#include "sds_process.h"

namespace sds_cli {
namespace {

using testing::HasSubstr;
using Words = std::set<std::string>;

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

Words words_of(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// First words of the indented lines below a heading.
std::vector<std::string> listed_below(const std::string& help, const std::string& heading) {
    std::vector<std::string> names;
    bool is_below = false;
    for (const std::string& line : lines_of(help)) {
        if (!line.starts_with(' ')) is_below = line == heading;
        const bool is_entry = is_below && line.starts_with("  ") && !line.starts_with("   ");
        if (is_entry) names.push_back(line.substr(2, line.find(' ', 2) - 2));
    }
    return names;
}

// "-o" and "--output" of every option in a command's help.
Words options_in_help(const ScratchFolder& folder, const std::string& command) {
    Words options;
    for (std::string names : listed_below(run_sds(folder, {command, "--help"}).out, "Options:")) {
        std::replace(names.begin(), names.end(), ',', ' ');
        options.merge(words_of(names));
    }
    return options;
}

std::vector<std::string> commands(const ScratchFolder& folder) {
    return listed_below(run_sds(folder, {"--help"}).out, "Subcommands:");
}

using Help = InFolder;

TEST_F(Help, EveryExampleRuns) {
    folder.write("cage.obj", cube_obj);
    write_doubles(folder.path("rays.npy"), {0.1, 0.2, 9, 0, 0, -1, 0, INFINITY}, 8);
    std::vector<std::string> all = commands(folder);
    ASSERT_GE(all.size(), 5u);
    all.push_back("");
    for (const std::string& command : all) {
        std::vector<std::string> arguments{"--help"};
        if (!command.empty()) arguments.insert(arguments.begin(), command);
        const std::string help = run_sds(folder, arguments).out;
        const std::size_t begin = help.find("Examples:\n");
        ASSERT_NE(begin, std::string::npos) << command;
        unsigned int count = 0;
        for (const std::string& line : lines_of(help.substr(begin))) {
            if (!line.starts_with("  ") || line.starts_with("  python3")) continue;
            // A stamp is enough of a picture.
            const bool is_picture = line.find("sds render") != std::string::npos;
            const SdsRun run = run_shell(folder, line + (is_picture ? " --width 24 --height 16" : ""));
            EXPECT_EQ(run.code, 0) << line << "\n" << run.err;
            ++count;
        }
        EXPECT_GE(count, 1u) << command;
    }
}

TEST_F(Help, UnderstandsSeveralSpellings) {
    const auto out = [&](const char* line) {
        const SdsRun run = run_shell(folder, line);
        EXPECT_EQ(run.code, 0) << line << run.err;
        return run.out;
    };
    EXPECT_EQ(out("sds help render"), out("sds render --help"));
    EXPECT_EQ(out("sds help"), out("sds --help"));
    EXPECT_EQ(out("sds -v"), out("sds --version"));
    out("sds info cube.obj --memory-limit 1.5g");
    out("sds export cube.obj --quiet --patches /dev/null --patch-places /dev/null");
    const std::string render = "sds render cube.obj --width 16 --height 12 --samples 1 -q -o ";
    EXPECT_EQ(out((render + "- --view -35 22 --up Z").c_str()), out((render + "- --view '-35,22' --up z").c_str()));
    out((render + "A.PNG --aov N").c_str());
    out((render + "A.Exr").c_str());
    EXPECT_EQ(ScratchFolder::read(folder.path("A.PNG")).substr(1, 3), "PNG");
    EXPECT_EQ(ScratchFolder::read(folder.path("A.Exr")).substr(0, 4), "\x76\x2f\x31\x01");
    EXPECT_EQ(out("sds info cube.obj --json --interpolation EDGEONLY | grep -v -i second"),
              out("sds info cube.obj --json --interpolation edgeOnly | grep -v -i second"));
    EXPECT_EQ(run_shell(folder, "sds info -v cube.obj").err, run_shell(folder, "sds info --log-level 2 cube.obj").err);
}

TEST_F(Help, BashCompletesEveryOptionAndItsWords) {
    const std::string script = QN_SOURCE_DIR "/cli/texts/sds.bash";
    folder.write("cage.obj", cube_obj);
    const auto complete = [&](const std::string& line) {
        const SdsRun run = run_shell(folder, ". '" + script + "'; COMP_WORDS=(" + line +
                                                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _sds; "
                                                 "echo \"${COMPREPLY[*]}\"");
        EXPECT_EQ(run.err, "") << line;
        return words_of(run.out);
    };
    const std::vector<std::string> all = commands(folder);
    for (const std::string& command : all) {
        EXPECT_EQ(complete("sds " + command + " -"), options_in_help(folder, command)) << command;
        EXPECT_EQ(complete("sds " + command.substr(0, command.size() - 1)), Words{command});
    }
    EXPECT_EQ(complete("sds render cage.obj --up ''"), (Words{"x", "y", "z"}));
    EXPECT_EQ(complete("sds select --mode t"), Words{"touch"});
    EXPECT_EQ(complete("sds info --interpolation edge"), (Words{"edgeAndCorner", "edgeOnly"}));
    EXPECT_EQ(complete("sds info ca"), Words{"cage.obj"});
    EXPECT_EQ(complete("sds render --width ''"), Words{});
}

TEST_F(Help, ZshTextIsSound) {
    if (run_shell(folder, "command -v zsh").code != 0) GTEST_SKIP() << "zsh is not installed";
    EXPECT_EQ(run_shell(folder, "zsh -n '" QN_SOURCE_DIR "/cli/texts/_sds'").err, "");
}

TEST_F(Help, FishCompletesCommandsOptionsAndWords) {
    if (run_shell(folder, "command -v fish").code != 0) GTEST_SKIP() << "fish is not installed";
    const auto complete = [&](const std::string& line) {
        const SdsRun run = run_shell(folder, "HOME='" + folder.path("") +
                                                 "' fish --no-config -c \"source '" QN_SOURCE_DIR
                                                 "/cli/texts/sds.fish'; complete -C '" +
                                                 line + "'\" | cut -f 1");
        EXPECT_EQ(run.err, "") << line;
        return words_of(run.out);
    };
    EXPECT_EQ(complete("sds rend"), Words{"render"});
    EXPECT_EQ(complete("sds select --mode t"), Words{"touch"});
    EXPECT_THAT(complete("sds render --wi"), testing::IsSupersetOf({"--width", "--wire"}));
}

TEST_F(Help, ManualPagesNameEveryOptionAndFormatCleanly) {
    const std::filesystem::path bin = std::filesystem::path(QN_SDS_PROGRAM_PATH).parent_path();
    const std::string pages = bin.parent_path() / "share/man/man1/sds";
    if (!std::filesystem::exists(pages + ".1")) GTEST_SKIP() << "built without help2man or with sanitizers";
    for (const std::string& command : commands(folder)) {
        const std::string page = ScratchFolder::read(pages + "-" + command + ".1");
        for (const std::string& option : options_in_help(folder, command)) {
            std::string escaped;
            for (const char c : option) escaped += c == '-' ? std::string("\\-") : std::string(1, c);
            EXPECT_THAT(page, HasSubstr(escaped)) << command;
        }
        EXPECT_EQ(run_shell(folder, "groff -man -ww -Wbreak -Tutf8 '" + pages + "-" + command + ".1'").err, "")
            << command;
    }
}

TEST_F(Help, EveryCommandOnAMeshTellsItsRates) {
    folder.write("cage.obj", cube_obj);
    folder.write("frustum.json", "{}");
    write_doubles(folder.path("rays.npy"), {0.1, 0.2, 9, 0, 0, -1, 0, INFINITY}, 8);
    for (const char* command : {"info cage.obj", "render cage.obj -o a.png --width 8 --height 8 --samples 1",
                                "export cage.obj --patches a.npy", "intersect cage.obj --rays rays.npy --hits a.npy",
                                "select cage.obj --frustum frustum.json --mode touch"}) {
        const std::string line = std::string("sds ") + command + " --quiet";
        EXPECT_EQ(run_shell(folder, line).err, "") << line;
        EXPECT_THAT(run_shell(folder, line + " --stats").err, HasSubstr("6 quads, ")) << line;
    }
}

using StandardStreams = InFolder;

TEST_F(StandardStreams, DashReadsAndWritesThem) {
    folder.write("cage.obj", cube_obj);
    write_doubles(folder.path("rays.npy"), {0.1, 0.2, 9, 0, 0, -1, 0, INFINITY}, 8);
    const SdsRun run = run_shell(folder,
                                 "set -eo pipefail\n"
                                 "sds export cage.obj --patches a.npy\n"
                                 "cat cage.obj | sds export - --patches - > b.npy\n"
                                 "cmp a.npy b.npy\n"
                                 "sds intersect cage.obj --rays rays.npy --hits a.npy\n"
                                 "sds intersect cage.obj --rays - --hits - < rays.npy > b.npy\n"
                                 "cmp a.npy b.npy\n");
    EXPECT_SUCCESS(run);
}

}  // namespace
}  // namespace sds_cli

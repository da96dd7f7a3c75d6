#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "io/npy.h"
#include "support/scratch_folder.h"

extern char** environ;

namespace sds_cli {

using namespace sds_io;

struct SdsRun {
    int code = -1;  // exit code, or minus the signal
    std::string out, err;
};

// Runs the built program; `meanwhile` is called with its id as soon as it is there.
template <class Meanwhile>
SdsRun run_sds_and(const ScratchFolder& folder, std::vector<std::string> arguments, Meanwhile&& meanwhile) {
    arguments.insert(arguments.begin(), QN_SDS_PROGRAM_PATH);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const std::string out = folder.path(".out"), err = folder.path(".err");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    // What the tests were started to ignore is none of the program's affair.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    const int failure = posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    SdsRun run;
    if (failure != 0) return run;
    meanwhile(pid);
    int status = 0;
    waitpid(pid, &status, 0);
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    run.out = ScratchFolder::read(out);
    run.err = ScratchFolder::read(err);
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return run;
}

inline SdsRun run_sds(const ScratchFolder& folder, std::vector<std::string> arguments,
                      const std::vector<std::string>& more = {}) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_sds_and(folder, std::move(arguments), [](pid_t) {});
}

#define EXPECT_SUCCESS(run) EXPECT_EQ((run).code, 0) << (run).err

inline std::vector<double> read_doubles(const std::string& path, const std::vector<std::size_t>& shape) {
    const NpyArray array = read_npy(path);
    EXPECT_EQ(array.shape, shape);
    return std::get<std::vector<double>>(array.values);
}

inline void write_doubles(const std::string& path, const std::vector<double>& values, std::size_t row_size) {
    const std::size_t shape[] = {values.size() / row_size, row_size};
    write_npy<double>(path, shape, values);
}

// A cube from -1 to 1, faces outwards, with a UV square per face.
inline const char* const cube_obj =
    "v -1 -1 -1\nv 1 -1 -1\nv 1 1 -1\nv -1 1 -1\nv -1 -1 1\nv 1 -1 1\nv 1 1 1\nv -1 1 1\n"
    "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
    "f 1/1 4/2 3/3 2/4\nf 5/1 6/2 7/3 8/4\nf 1/1 2/2 6/3 5/4\nf 2/1 3/2 7/3 6/4\nf 3/1 4/2 8/3 7/4\nf 4/1 1/2 5/3 "
    "8/4\n";

// A pentagon, a triangle and a quad side by side, with a crease: takes a subdivision step and has borders.
inline const char* const sheet_obj =
    "v 0 0 0\nv 1 0 0.3\nv 2 0 0\nv 2 1 0.2\nv 1.2 1.7 0\nv 0 1 0.4\nv 3 0.5 0.1\nv -1 0 0\nv -1 1 0\n"
    "f 1 2 4 5 6\nf 2 3 4\nf 3 7 4\nf 8 1 6 9\n"
    "t crease 2/1/0 1 3 inf\n";

// n x n vertices of a bumpy sheet; every `step`th quad is cut into two triangles.
inline std::string grid_obj(unsigned int n, unsigned int step = 0) {
    std::string text;
    for (unsigned int i = 0; i < n * n; ++i)
        text += "v " + std::to_string(i % n) + " " + std::to_string(i / n) + " " + std::to_string(i % 3) + "\n";
    for (unsigned int i = 0; i + n < n * n; ++i) {
        if (i % n == n - 1) continue;
        const auto at = [&](unsigned int v) { return " " + std::to_string(v + 1); };
        if (step != 0 && i % step == 0)
            text += "f" + at(i) + at(i + 1) + at(i + n + 1) + "\nf" + at(i) + at(i + n + 1) + at(i + n) + "\n";
        else
            text += "f" + at(i) + at(i + 1) + at(i + n + 1) + at(i + n) + "\n";
    }
    return text;
}

// The mesh with its points shifted along x and stretched along y.
inline std::string moved(const std::string& obj, double x_shift, double y_scale = 1.0) {
    std::string out;
    std::istringstream lines(obj);
    for (std::string line; std::getline(lines, line);) {
        double x, y, z;
        if (std::sscanf(line.c_str(), "v %lf %lf %lf", &x, &y, &z) == 3)
            line = "v " + std::to_string(x + x_shift) + " " + std::to_string(y * y_scale) + " " + std::to_string(z);
        out += line + "\n";
    }
    return out;
}

// A folder with a cube and a sheet to run the program on.
class InFolder : public testing::Test {
protected:
    const ScratchFolder folder;
    const std::string cube = folder.write("cube.obj", cube_obj), sheet = folder.write("sheet.obj", sheet_obj);
};

}  // namespace sds_cli

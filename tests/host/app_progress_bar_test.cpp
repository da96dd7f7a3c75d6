#include "qn_app_base/app_progress_bar.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <thread>
#include <vector>

#include "qn_app_base/app_terminal_progress.h"

namespace {

TEST(AppProgressBar, WeightsNestAndEndTaskStandsAtItsEnd) {
    AppProgressBar bar;
    bar.begin_task("a", 0.5f, false);
    bar.set_step_count(4);
    bar.step(1);
    EXPECT_FLOAT_EQ(bar.get_position(), 0.125f);
    bar.step(9);  // no further than the task's end
    EXPECT_FLOAT_EQ(bar.get_position(), 0.5f);
    bar.set_value(0.0f);
    bar.begin_task("b", 0.5f, false);
    bar.set_value(0.5f);
    EXPECT_FLOAT_EQ(bar.get_position(), 0.125f);
    bar.end_task();
    EXPECT_FLOAT_EQ(bar.get_position(), 0.25f);
    bar.end_task();
    EXPECT_FLOAT_EQ(bar.get_position(), 0.5f);
    bar.begin_task("c", 0.5f, false);
    bar.step(3);  // without a step count there is nothing to tell
    EXPECT_FLOAT_EQ(bar.get_position(), 0.5f);
    bar.end_task();
    EXPECT_FLOAT_EQ(bar.get_position(), 1.0f);
    bar.end_task();  // one too many
    EXPECT_FLOAT_EQ(bar.get_position(), 1.0f);
}

TEST(AppProgressBar, LabelIsThatOfTheInnermostVisibleTask) {
    AppProgressBar bar;
    bar.begin_task("shown", 1.0f, false);
    bar.begin_task("hidden", 1.0f, true);
    EXPECT_EQ(bar.get_label(), CoreString("shown"));
    bar.begin_task("inner", 1.0f, false);
    EXPECT_EQ(bar.get_label(), CoreString("inner"));
    bar.end_task();
    EXPECT_EQ(bar.get_label(), CoreString("shown"));
    bar.end_task();
    EXPECT_EQ(bar.get_label(), CoreString("shown"));
    bar.end_task();
    EXPECT_EQ(bar.get_label(), CoreString());
}

TEST(AppProgressBar, ConcurrentIncrementsAreAllCounted) {
    AppProgressBar bar;
    bar.begin_task("work", 0.5f, false);
    {
        std::vector<std::jthread> threads;
        for (unsigned int t = 0; t < 8; ++t)
            threads.emplace_back([&bar] {
                for (unsigned int i = 0; i < 512; ++i) bar.increment(1.0f / 4096.0f);
            });
    }
    EXPECT_FLOAT_EQ(bar.get_position(), 0.5f);
}

std::vector<std::string> read_lines(std::FILE* file) {
    std::rewind(file);
    std::vector<std::string> lines;
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, file) != nullptr) lines.emplace_back(buffer);
    std::fclose(file);
    return lines;
}

// A hundred steps of a millisecond each, given up after `last` of them.
std::vector<std::string> lines_of(std::chrono::milliseconds interval, unsigned int last) {
    std::FILE* file = std::tmpfile();
    try {
        AppTerminalProgress bar(file, "build", interval);
        const AppProgressTask task(&bar, "steps", 1.0f);
        for (unsigned int i = 1; i <= 100; ++i) {
            if (i > last) throw std::runtime_error("given up");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            bar.set_value(static_cast<float>(i) / 100.0f);
        }
    } catch (const std::runtime_error&) {
    }
    return read_lines(file);
}

TEST(AppTerminalProgress, WritesALineAnIntervalOffATerminal) {
    const std::vector<std::string> lines = lines_of(std::chrono::milliseconds(20), 100);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_LT(lines.size(), 90u);
    for (const std::string& line : lines) {
        EXPECT_TRUE(line.starts_with("build: ")) << line;
        EXPECT_EQ(line.find('\r'), std::string::npos);
    }
    EXPECT_TRUE(lines.back().starts_with("build: 100%")) << lines.back();
    EXPECT_TRUE(lines_of(std::chrono::minutes(10), 100).empty()) << "short work is silent";

    const std::vector<std::string> given_up = lines_of(std::chrono::milliseconds(1), 50);
    ASSERT_FALSE(given_up.empty());
    EXPECT_FALSE(given_up.back().starts_with("build: 100%")) << "what an exception leaves is not done";
}

TEST(AppTerminalProgress, WritesAPercentageOnce) {
    std::FILE* file = std::tmpfile();
    {
        AppTerminalProgress bar(file, "build", std::chrono::milliseconds(0));
        const AppProgressTask task(&bar, "steps", 1.0f);
        for (unsigned int i = 1; i <= 128; ++i) bar.set_value(static_cast<float>((i + 1) / 2) / 64.0f);
    }
    const std::vector<std::string> lines = read_lines(file);
    ASSERT_EQ(lines.size(), 66u) << "the end is said again";
    for (unsigned int i = 0; i <= 64; ++i)
        EXPECT_TRUE(lines[i].starts_with("build: " + std::to_string(i * 100 / 64) + "% after ")) << lines[i];
}

}  // namespace

#include "qn_core/core_log.h"

#include <gmock/gmock.h>

#include <thread>

#include "support/recorders.h"

namespace {

using sds_test::LogCapture;

CoreLogStream stream_of(const char* text) {
    CoreLogStream stream;
    stream << text << 7u;
    return stream;
}

TEST(CoreLog, WritesWhatTheLevelReaches) {
    LogCapture log(1);
    log.log(0, stream_of("error "));
    log.log(1, stream_of("warning "));
    log.log(2, stream_of("statistics "));
    EXPECT_THAT(log.lines, testing::ElementsAre(LogCapture::Line{0, "error 7"}, LogCapture::Line{1, "warning 7"}));
    EXPECT_TRUE(log.is_wanted(1));
    log.set_level(0);
    EXPECT_FALSE(log.is_wanted(1));
}

TEST(CoreLog, ConcurrentLinesArriveWholeAndOneAtATime) {
    LogCapture log(2);
    {
        std::vector<std::jthread> threads;
        for (unsigned int t = 0; t < 4; ++t)
            threads.emplace_back([&log] {
                for (unsigned int i = 0; i < 100; ++i) log.log(2, stream_of("line "));
            });
    }
    ASSERT_EQ(log.lines.size(), 400u);
    for (const auto& line : log.lines) EXPECT_EQ(line.text, "line 7");
}

}  // namespace

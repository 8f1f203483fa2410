// The page of counters: which window gets which line, and what is counted there.
#include <gtest/gtest.h> // before the X headers, which make words of its into macros

#include "transport/frame_statistics.h"

#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

using kor::gl::FrameStatistics;
using kor::gl::StatisticsLine;
using kor::gl::StatisticsPage;

namespace {

/// Gives each test a page of its own.
class FrameStatisticsTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(mkdtemp(m_folder.data()), nullptr);
        setenv(kor::gl::statisticsVariable, m_folder.c_str(), 1);
        kor::gl::openStatisticsPage();
    }
    void TearDown() override {
        unsetenv(kor::gl::statisticsVariable);
        std::filesystem::remove_all(m_folder);
    }

    /// What another process would see.
    std::unique_ptr<StatisticsPage> page() const {
        auto page = std::make_unique<StatisticsPage>();
        const std::string name = m_folder + "/kor-stats." + std::to_string(getpid());
        const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(pread(file, page.get(), sizeof *page, 0), static_cast<ssize_t>(sizeof *page));
        close(file);
        return page;
    }

    std::string m_folder = testing::TempDir() + "kor-statistics.XXXXXX";
};

void paint(FrameStatistics& statistics, Window window, bool sharedMemory = true) {
    statistics.begins(window);
    statistics.transferred();
    statistics.painted(640, 480, sharedMemory);
}

} // namespace

TEST_F(FrameStatisticsTest, PageTellsWhoseItIs) {
    EXPECT_EQ(page()->magic, kor::gl::statisticsMagic);
    EXPECT_EQ(page()->process, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(page()->lines[0].state, StatisticsLine::Free);
}

TEST_F(FrameStatisticsTest, FramesAreCountedFromTheFirst) {
    FrameStatistics statistics;
    statistics.rendered(false);
    statistics.rendered(true); // the first was never painted
    EXPECT_EQ(page()->lines[0].state, StatisticsLine::Free) << "nothing was painted yet";
    paint(statistics, 0x77);
    const auto before = page();
    const StatisticsLine& line = before->lines[0];
    EXPECT_EQ(line.state, StatisticsLine::Live);
    EXPECT_EQ(line.window, 0x77U);
    EXPECT_EQ(line.rendered, 2U);
    EXPECT_EQ(line.dropped, 1U);
    EXPECT_EQ(line.painted, 1U);
    EXPECT_EQ(line.width, 640U);
    EXPECT_EQ(line.height, 480U);
    EXPECT_EQ(line.strategy, StatisticsLine::SharedMemory);

    statistics.rendered(false);
    statistics.begins(0x77);
    statistics.transferred();
    statistics.failed();
    paint(statistics, 0x77, false);
    const auto after = page();
    EXPECT_EQ(after->lines[0].rendered, 3U);
    EXPECT_EQ(after->lines[0].dropped, 2U);
    EXPECT_EQ(after->lines[0].painted, 2U);
    EXPECT_EQ(after->lines[0].strategy, StatisticsLine::PlainRequests);
}

TEST_F(FrameStatisticsTest, HiddenWindowsAreCountedFromTheFirstFrame) {
    FrameStatistics statistics;
    EXPECT_TRUE(statistics.hidden(0x77)) << "its size is wanted";
    statistics.sized(300, 200);
    EXPECT_FALSE(statistics.hidden(0x77));
    const auto hidden = page();
    EXPECT_EQ(hidden->lines[0].state, StatisticsLine::Live);
    EXPECT_EQ(hidden->lines[0].window, 0x77U);
    EXPECT_EQ(hidden->lines[0].hidden, 2U);
    EXPECT_EQ(hidden->lines[0].rendered, 0U);
    EXPECT_EQ(hidden->lines[0].width, 300U);
    EXPECT_EQ(hidden->lines[0].height, 200U);
    EXPECT_EQ(hidden->lines[0].strategy, StatisticsLine::Unknown);

    statistics.rendered(false);
    paint(statistics, 0x77);
    EXPECT_FALSE(statistics.hidden(0x77));
    const auto shown = page();
    EXPECT_EQ(shown->lines[0].hidden, 3U);
    EXPECT_EQ(shown->lines[0].rendered, 1U);
    EXPECT_EQ(shown->lines[0].painted, 1U);
    EXPECT_EQ(shown->lines[0].width, 640U);
    EXPECT_EQ(shown->lines[1].state, StatisticsLine::Free) << "it is the same window";
}

TEST_F(FrameStatisticsTest, ThreadsThatCountAtTheSameTimeShareNoLine) {
    constexpr uint32_t threads = 8;
    std::vector<std::unique_ptr<FrameStatistics>> windows(threads);
    std::vector<std::thread> running;
    for (uint32_t i = 0; i < threads; ++i)
        running.emplace_back([&windows, i] {
            for (int round = 0; round < 200; ++round) {
                windows[i] = std::make_unique<FrameStatistics>(); // ends the line of the one before
                for (uint32_t frame = 0; frame <= i; ++frame)
                    windows[i]->hidden(100 + i);
            }
        });
    for (std::thread& thread : running)
        thread.join();
    uint32_t live = 0;
    const auto seen = page();
    for (const StatisticsLine& line : seen->lines)
        if (line.state == StatisticsLine::Live) {
            ++live;
            EXPECT_EQ(line.hidden, line.window - 99);
        }
    EXPECT_EQ(live, threads);
}

TEST_F(FrameStatisticsTest, TimesAreSummed) {
    FrameStatistics statistics;
    statistics.begins(0x77);
    usleep(3000);
    statistics.transferred();
    usleep(5000);
    statistics.painted(1, 1, true);
    const auto seen = page();
    EXPECT_EQ(seen->lines[0].timed, 1U);
    EXPECT_GE(seen->lines[0].readbackNanoseconds, 3'000'000U);
    EXPECT_GE(seen->lines[0].paintingNanoseconds, 5'000'000U);
    EXPECT_GE(seen->lines[0].last - seen->lines[0].begun, 8'000'000U);
}

TEST_F(FrameStatisticsTest, AsManyFramesAreTimedAsTheOneWhoLooksAskedFor) {
    const std::string name = m_folder + "/kor-stats." + std::to_string(getpid());
    const int file = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    const uint32_t two = 2;
    ASSERT_EQ(pwrite(file, &two, sizeof two, offsetof(StatisticsPage, timingBudget)),
              static_cast<ssize_t>(sizeof two));
    close(file);
    FrameStatistics statistics;
    for (uint32_t i = 0; i < 4; ++i)
        paint(statistics, 0x77);
    EXPECT_EQ(page()->lines[0].painted, 4U);
    EXPECT_EQ(page()->lines[0].timed, 2U);
    EXPECT_EQ(page()->timingBudget, 0U);
}

TEST_F(FrameStatisticsTest, LinesOfEndedWindowsStayUntilTheyAreNeeded) {
    std::vector<std::unique_ptr<FrameStatistics>> windows;
    for (uint32_t i = 0; i < kor::gl::statisticsLines; ++i) {
        windows.push_back(std::make_unique<FrameStatistics>());
        paint(*windows.back(), 100 + i);
    }
    FrameStatistics refused;
    paint(refused, 1);
    paint(refused, 1);
    const auto full = page();
    for (const StatisticsLine& line : full->lines)
        EXPECT_NE(line.window, 1U) << "a page that is full has no line for another window";

    windows[7].reset();
    windows[3].reset();
    EXPECT_EQ(page()->lines[3].state, StatisticsLine::Ended);
    EXPECT_EQ(page()->lines[3].window, 103U);
    FrameStatistics next;
    paint(next, 2);
    EXPECT_EQ(page()->lines[3].window, 2U) << "the one that was painted first goes first";
    EXPECT_EQ(page()->lines[3].state, StatisticsLine::Live);
    EXPECT_EQ(page()->lines[3].painted, 1U);
    EXPECT_EQ(page()->lines[7].window, 107U);
}

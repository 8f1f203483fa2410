#include "support/log.h"

#include "../support/log_lines.h"
#include "in_child.h"
#include "sandbox.h"

#include <array>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>

using kor::test::inChild;
using kor::test::LogLine;
using kor::test::parseLogLine;
using kor::test::Sandbox;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

/// A child's stderr, line by line.
std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        all.push_back(line);
    return all;
}

void logEveryLevel() {
    kor_printlog("KORGL", 4, "DEBUG", "void f()", false, "d");
    kor_printlog("KORGL", 3, "INFO", "void f()", false, "i");
    kor_printlog("KORGL", 2, "WARNING", "void f()", false, "w");
    kor_printlog("KORGL", 1, "ERROR", "void f()", false, "e");
}

/// The letters of the records that get through when every level is logged.
std::string lettersThrough() {
    const auto child = inChild([] {
        logEveryLevel();
        return 0;
    });
    std::string letters;
    for (const std::string& line : lines(child.errors))
        letters += parseLogLine(line).letter;
    return letters;
}

class LogTest : public testing::Test {
  protected:
    Sandbox sandbox;

    ~LogTest() override {
        kor::test::uptimeFile.clear();
        kor::test::executableLink.reset();
        kor::test::timeOfDay.reset();
    }
};

struct ThresholdCase {
    const char* name;
    const char* verbose;
    const char* level;
    int threshold;
};

class LogThreshold : public LogTest, public testing::WithParamInterface<ThresholdCase> {};

} // namespace

TEST_P(LogThreshold, ComesFromTheSettings) {
    const ThresholdCase& c = GetParam();
    if (c.verbose != nullptr)
        sandbox.set("KOR_GL_VERBOSE", c.verbose);
    if (c.level != nullptr)
        sandbox.set("KOR_GL_LOG_LEVEL", c.level);
    const auto child = inChild([] {
        kor_open_log();
        return kor::logThreshold.load();
    });
    EXPECT_EQ(child.status, c.threshold);
    EXPECT_EQ(lettersThrough(), std::string("DIWE").substr(4 - c.threshold));
}

INSTANTIATE_TEST_SUITE_P(By, LogThreshold,
                         testing::Values(ThresholdCase{"Default", nullptr, nullptr, 2},
                                         ThresholdCase{"LevelError", nullptr, "error", 1},
                                         ThresholdCase{"LevelWarning", nullptr, "warning", 2},
                                         ThresholdCase{"LevelInfo", nullptr, "info", 3},
                                         ThresholdCase{"LevelDebug", nullptr, "debug", 4},
                                         ThresholdCase{"LevelInMixedCase", nullptr, "Info", 3},
                                         ThresholdCase{"LevelInCapitals", nullptr, "ERROR", 1},
                                         ThresholdCase{"AnUnknownLevel", nullptr, "verbose", 2},
                                         ThresholdCase{"ANumberForALevel", nullptr, "4", 2},
                                         ThresholdCase{"AnAbbreviatedLevel", nullptr, "err", 2},
                                         ThresholdCase{"VerboseAlone", "true", nullptr, 4},
                                         ThresholdCase{"VerboseWhateverTheLevel", "true", "error",
                                                       4},
                                         ThresholdCase{"VerboseFalse", "false", "info", 3}),
                         [](const auto& info) { return info.param.name; });

TEST_F(LogTest, WritesRecordsWithLetterStampIdsTagAndFunctionOnStderr) {
    sandbox.set("TZ", "UTC");
    kor::test::timeOfDay = timeval{2000000000, 42};
    const auto child = inChild([] {
        kor_printlog("KORGL", 1, "ERROR", "void kor_init(void*)", false, "%s %d", "answer", 42);
        return 0;
    });
    const std::string process = std::to_string(child.process);
    EXPECT_EQ(child.errors, "E May 18 03:33:20:000042 " + process + ":" + process +
                                " KORGL (void kor_init(void*)): answer 42\n");
}

TEST_F(LogTest, StampsTheTimeWithAllSixDigitsOfTheMicroseconds) {
    sandbox.set("TZ", "UTC");
    kor::test::timeOfDay = timeval{1, 999999}; // a day of one digit is padded with a blank
    const auto child = inChild([] {
        kor_printlog("KOR", 2, "WARNING", "f", false, "m");
        return 0;
    });
    EXPECT_THAT(child.errors, testing::StartsWith("W Jan  1 00:00:01:999999 "));
}

TEST_F(LogTest, NamesTheKernelThreadThatLogs) {
    sandbox.set("KOR_GL_LOG_LEVEL", "debug");
    const auto child = inChild([] {
        long id = 0;
        std::thread([&id] {
            id = syscall(SYS_gettid);
            kor_printlog("KORGL", 4, "DEBUG", "f", false, "%ld", id);
        }).join();
        return 0;
    });
    const LogLine line = parseLogLine(lines(child.errors).at(0));
    EXPECT_EQ(line.process, std::to_string(child.process));
    EXPECT_EQ(line.thread, line.message);
    EXPECT_NE(line.thread, line.process);
}

TEST_F(LogTest, ANullFormatDoesNothingAndOpensNothing) {
    const auto child = inChild([] {
        const char* none = nullptr;
        kor_printlog("KORGL", 1, "ERROR", "f", true, none);
        return kor_close_log() ? 1 : 0;
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
}

TEST_F(LogTest, AnEchoBelowTheThresholdPrintsWordAndMessageButNoRecord) {
    const auto child = inChild([] {
        kor_printlog("KORGL", 4, "DEBUG", "f", true, "%s", "shown");
        return 0;
    });
    EXPECT_EQ(child.errors, "DEBUG: shown\n");
}

TEST_F(LogTest, AnEchoComesBeforeTheRecord) {
    const auto child = inChild([] {
        kor_printlog("KORGL", 1, "ERROR", "void f()", true, "%d%%", 7);
        return 0;
    });
    const auto all = lines(child.errors);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0], "ERROR: 7%");
    EXPECT_EQ(parseLogLine(all[1]).letter, "E");
    EXPECT_EQ(parseLogLine(all[1]).message, "7%");
}

TEST_F(LogTest, AnEchoGoesToStderrWhenTheRecordsGoToAFile) {
    sandbox.set("KOR_GL_LOG_DIR", sandbox.path("work"));
    const auto child = inChild([] {
        kor_printlog("KORGL", 1, "ERROR", "f", true, "m");
        return 0;
    });
    EXPECT_EQ(child.errors, "ERROR: m\n");
}

TEST_F(LogTest, TheWordIsTheCallersWhateverTheLevel) {
    const auto child = inChild([] {
        kor_printlog("KORGL", 1, "NOTICE", "f", true, "m");
        return 0;
    });
    const auto all = lines(child.errors);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0], "NOTICE: m");
    EXPECT_THAT(all[1], testing::StartsWith("N "));
}

TEST_F(LogTest, WritesThatFailAreIgnored) {
    const auto child = inChild([] {
        const int full = open("/dev/full", O_WRONLY);
        const int errors = dup(STDERR_FILENO);
        dup2(full, STDERR_FILENO);
        kor_printlog("KORGL", 1, "ERROR", "f", true, "lost");
        dup2(errors, STDERR_FILENO);
        kor_printlog("KORGL", 1, "ERROR", "f", true, "written");
        return full < 0 ? 1 : 0;
    });
    EXPECT_EQ(child.status, 0);
    const auto all = lines(child.errors);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0], "ERROR: written");
    EXPECT_EQ(parseLogLine(all[1]).message, "written");
}

TEST_F(LogTest, HeaderMessageAndNewlineAreThreeWrites) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0); // keeps writes apart
    const auto child = inChild([&] {
        dup2(ends[1], STDERR_FILENO);
        kor_printlog("KORGL", 1, "ERROR", "f", false, "message %d", 1);
        return 0;
    });
    EXPECT_EQ(child.status, 0);
    close(ends[1]);
    std::vector<std::string> writes;
    char piece[512];
    for (ssize_t got; (got = recv(ends[0], piece, sizeof piece, 0)) > 0;)
        writes.emplace_back(piece, static_cast<size_t>(got));
    close(ends[0]);
    ASSERT_EQ(writes.size(), 3U);
    EXPECT_THAT(writes[0], testing::EndsWith(" KORGL (f): "));
    EXPECT_EQ(writes[1], "message 1");
    EXPECT_EQ(writes[2], "\n");
}

TEST_F(LogTest, TheFirstRecordOpensTheLog) {
    const auto child = inChild([] {
        kor_printlog("KORGL", 4, "DEBUG", "f", false, "below the threshold");
        return kor_open_log() ? 1 : 0;
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
}

TEST_F(LogTest, CanBeOpenedOnceAndClosedOnce) {
    const auto child = inChild([] {
        if (kor_close_log() || !kor_open_log() || kor_open_log() || !kor_close_log())
            return 1;
        return kor_close_log() || !kor_open_log() ? 2 : 0;
    });
    EXPECT_EQ(child.status, 0);
}

TEST_F(LogTest, TheMacrosLetEverythingThroughWhileNoLogIsOpen) {
    const auto child = inChild([] {
        if (kor::logThreshold != kor::LogDebug)
            return 1;
        kor_open_log();
        if (kor::logThreshold != kor::LogWarning || kor::logs(3) || !kor::logs(2))
            return 2;
        kor_close_log();
        return kor::logThreshold == kor::LogDebug ? 0 : 3;
    });
    EXPECT_EQ(child.status, 0);
}

TEST_F(LogTest, KeepsItsThresholdWhenTheSettingsAreReloaded) {
    const auto child = inChild([this] {
        kor_open_log();
        sandbox.set("KOR_GL_VERBOSE", "true");
        kor::conf::Settings::reload();
        kor_printlog("KORGL", 4, "DEBUG", "f", false, "too low");
        kor_close_log();
        kor_printlog("KORGL", 4, "DEBUG", "f", false, "after opening it again");
        return 0;
    });
    const auto all = lines(child.errors);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(parseLogLine(all[0]).message, "after opening it again");
}

TEST_F(LogTest, OpeningItCreatesTheSettings) {
    sandbox.writeUser("bad\n");
    const auto child = inChild([] {
        kor_printlog("KORGL", 4, "DEBUG", "f", false, "m");
        return 0;
    });
    EXPECT_THAT(child.errors, HasSubstr("Cannot parse settings file"));
}

TEST_F(LogTest, WithoutMemoryForTheRecordNothingIsWrittenAndTheNextCallTriesAgain) {
    const auto child = inChild([] {
        kor::conf::Settings::init();
        kor::test::failingAllocations = 1;
        if (kor_open_log() || kor::test::failingAllocations != 0)
            return 1;
        kor::test::failingAllocations = 1;
        kor_printlog("KORGL", 1, "ERROR", "f", true, "lost, with its echo");
        if (kor_close_log() || kor::logThreshold != kor::LogDebug)
            return 2;
        kor_printlog("KORGL", 1, "ERROR", "f", false, "written");
        return kor_close_log() ? 0 : 3;
    });
    EXPECT_EQ(child.status, 0);
    const auto all = lines(child.errors);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(parseLogLine(all[0]).message, "written");
}

TEST_F(LogTest, ThreadsThatRaceToOpenItGetOneLog) {
    const auto child = inChild([] {
        std::atomic<int> opened{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&] { opened += kor_open_log() ? 1 : 0; });
        for (std::thread& thread : threads)
            thread.join();
        return opened.load();
    });
    EXPECT_EQ(child.status, 1);
}

namespace {

struct Caller {
    static void logAll(int number) {
        KOR_DEBUG("debug %d", number);
        KOR_INFO("info %d", number);
        KOR_WARNING("warning %d", number);
        KOR_ERROR("error %d", number);
        KOR_SUPPORT_DEBUG("support %d", number);
    }
};

} // namespace

TEST_F(LogTest, TheMacrosGiveTagLevelAndSignature) {
    sandbox.set("KOR_GL_LOG_LEVEL", "debug");
    const auto child = inChild([] {
        Caller::logAll(7);
        return 0;
    });
    std::vector<std::string> seen;
    for (const std::string& text : lines(child.errors)) {
        const LogLine line = parseLogLine(text);
        EXPECT_THAT(line.function, testing::EndsWith("Caller::logAll(int)"));
        EXPECT_THAT(line.function, testing::StartsWith("static void "));
        seen.push_back(line.letter + " " + line.tag + " " + line.message);
    }
    EXPECT_THAT(seen, ElementsAre("D KORGL debug 7", "I KORGL info 7", "W KORGL warning 7",
                                  "E KORGL error 7", "D KOR support 7"));
}

TEST_F(LogTest, AnEchoedErrorIsPrintedAndLogged) {
    const auto child = inChild([] {
        KOR_ERROR_ECHO("for the %s", "user");
        return 0;
    });
    const auto all = lines(child.errors);
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0], "ERROR: for the user");
    EXPECT_EQ(parseLogLine(all[1]).message, "for the user");
}

TEST_F(LogTest, ARecordBelowTheThresholdEvaluatesNoArgument) {
    const auto child = inChild([] {
        kor_open_log();
        int evaluated = 0;
        KOR_DEBUG("%d", ++evaluated);
        KOR_INFO("%d", ++evaluated);
        if (evaluated != 0)
            return 1;
        KOR_WARNING("%d", ++evaluated);
        return evaluated == 1 ? 0 : 2;
    });
    EXPECT_EQ(child.status, 0);
}

TEST(Sprintf, ReturnsTheNumberOfCharactersWritten) {
    char buffer[16];
    EXPECT_EQ(korSprintf(buffer, sizeof buffer, "%s-%d", "ab", 12), 5);
    EXPECT_STREQ(buffer, "ab-12");
}

TEST(Sprintf, AnExactFitIsNotCut) {
    char buffer[6];
    EXPECT_EQ(korSprintf(buffer, 6, "%s", "abcde"), 5);
    EXPECT_STREQ(buffer, "abcde");
}

TEST(Sprintf, ACutTextGivesOneLessThanTheBuffersSize) {
    char buffer[6] = "?????";
    EXPECT_EQ(korSprintf(buffer, 5, "%s", "abcdefgh"), 4);
    EXPECT_STREQ(buffer, "abcd");
    EXPECT_EQ(korSprintf(buffer, 1, "%s", "abcdefgh"), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(Sprintf, NoRoomAtAllIsLeftAlone) {
    char buffer[2] = {'?', '\0'};
    EXPECT_EQ(korSprintf(buffer, 0, "%s", "abc"), 0);
    EXPECT_STREQ(buffer, "?");
}

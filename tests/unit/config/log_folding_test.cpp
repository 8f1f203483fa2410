#include "../support/log_lines.h"
#include "config/log_folding.h"
#include "in_child.h"
#include "sandbox.h"
#include "support/log.h"

#include <gmock/gmock.h>
#include <sstream>
#include <thread>
#include <vector>

using kor::test::inChild;
using kor::test::parseLogLine;
using kor::test::Sandbox;
using testing::ElementsAre;

namespace {

/// The messages that reach stderr, in order; echoes as they are.
std::vector<std::string> messages(const std::string& errors) {
    std::vector<std::string> all;
    std::istringstream stream(errors);
    for (std::string line; std::getline(stream, line);)
        all.push_back(line.rfind("ERROR: ", 0) == 0 ? line : parseLogLine(line).message);
    return all;
}

void say(int level, const char* word, int times, const char* text, bool echo = false) {
    for (int i = 0; i < times; ++i)
        kor_printlog("KORGL", level, word, "void f()", echo, "%s", text);
}

class LogFolding : public testing::Test {
  protected:
    Sandbox sandbox;
};

} // namespace

TEST_F(LogFolding, AnErrorIsWrittenThreeTimesAndThenEverMoreSeldomWithItsCount) {
    const auto child = inChild([] {
        say(1, "ERROR", 1234, "lost");
        return 0;
    });
    EXPECT_THAT(messages(child.errors),
                ElementsAre("lost", "lost", "lost", "lost (repeated 10 times)",
                            "lost (repeated 100 times)", "lost (repeated 1000 times)"));
}

TEST_F(LogFolding, AWarningIsFoldedAndAnEchoWithItsRecord) {
    const auto child = inChild([] {
        say(2, "WARNING", 12, "w");
        say(1, "ERROR", 12, "e", true);
        return 0;
    });
    EXPECT_THAT(messages(child.errors),
                ElementsAre("w", "w", "w", "w (repeated 10 times)", "ERROR: e", "e", "ERROR: e",
                            "e", "ERROR: e", "e", "ERROR: e (repeated 10 times)",
                            "e (repeated 10 times)"));
}

TEST_F(LogFolding, AnotherTextOrFunctionCountsByItself) {
    const auto child = inChild([] {
        for (int i = 0; i < 5; ++i) {
            kor_printlog("KORGL", 1, "ERROR", "void f()", false, "frame %d", i);
            kor_printlog("KORGL", 1, "ERROR", i % 2 == 0 ? "void g()" : "void h()", false, "x");
        }
        return 0;
    });
    EXPECT_EQ(messages(child.errors).size(), 10U);
}

TEST_F(LogFolding, LowerLevelsAreNotFolded) {
    sandbox.set("KOR_GL_LOG_LEVEL", "debug");
    const auto child = inChild([] {
        say(3, "INFO", 20, "i");
        say(4, "DEBUG", 20, "d");
        return 0;
    });
    EXPECT_EQ(messages(child.errors).size(), 40U);
}

TEST_F(LogFolding, WhatIsBelowTheThresholdIsNotCounted) {
    sandbox.set("KOR_GL_LOG_LEVEL", "error");
    const auto child = inChild([] {
        say(2, "WARNING", 20, "w");
        const auto count = [](const char* format, ...) {
            va_list none;
            va_start(none, format);
            const unsigned times = kor::timesSaid("void f()", format, none);
            va_end(none);
            return static_cast<int>(times);
        };
        return count("w");
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_EQ(child.errors, "");
}

TEST_F(LogFolding, ManyDifferentLinesAtOnceAreAllWrittenAndNothingGrows) {
    const auto child = inChild([] {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread)
            threads.emplace_back([thread] {
                for (int i = 0; i < 500; ++i)
                    kor_printlog("KORGL", 1, "ERROR", "void f()", true, "%d of %d", i, thread);
            });
        for (std::thread& thread : threads)
            thread.join();
        return 0;
    });
    size_t echoes = 0;
    for (size_t at = 0; (at = child.errors.find("ERROR: ", at)) != std::string::npos; ++at)
        ++echoes;
    EXPECT_EQ(echoes, 2000U);
}

TEST(IsWritten, TheFirstThreeAndThePowersOfTen) {
    std::vector<unsigned> written;
    for (unsigned times = 1; times <= 100000; ++times)
        if (kor::isWritten(times))
            written.push_back(times);
    EXPECT_THAT(written, ElementsAre(1, 2, 3, 10, 100, 1000, 10000, 100000));
}

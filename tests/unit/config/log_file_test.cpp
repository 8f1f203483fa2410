#include "support/log.h"

#include "../support/log_lines.h"
#include "config/settings.h"
#include "in_child.h"
#include "sandbox.h"

#include <clocale>
#include <gmock/gmock.h>
#include <malloc.h>

using kor::test::ChildResult;
using kor::test::inChild;
using kor::test::parseLogLine;
using kor::test::Sandbox;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A folder for the log, a machine that was started at 03:16:40 on 18 May 2033 and is now at
/// 03:33:20, and an executable called "app".
class LogFile : public testing::Test {
  protected:
    Sandbox sandbox;

    LogFile() {
        std::filesystem::create_directory(sandbox.path("logs"));
        sandbox.set("KOR_GL_LOG_DIR", sandbox.path("logs"));
        sandbox.set("TZ", "UTC");
        kor::test::timeOfDay = timeval{2000000000, 250000};
        kor::test::uptimeFile = sandbox.write("uptime", "1000.50 77.25\n");
        kor::test::executableLink = "/opt/bin/app";
    }
    ~LogFile() override {
        kor::test::uptimeFile.clear();
        kor::test::executableLink.reset();
        kor::test::timeOfDay.reset();
    }

    static ChildResult logOnce(const char* message = "m") {
        return inChild([message] {
            kor_printlog("KORGL", 1, "ERROR", "void f()", false, "%s", message);
            return 0;
        });
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(sandbox.path("logs")))
            names.push_back(entry.path().filename().string());
        return names;
    }
    static std::string named(const std::string& middle, const ChildResult& child) {
        return "kor-gl." + middle + "." + std::to_string(child.process) + ".log";
    }
};

} // namespace

TEST_F(LogFile, IsNamedByBootTimeExecutableAndProcess) {
    const ChildResult child = logOnce();
    // 2000000000.25 - 1000.50 + 0.5 = 1999999000.25
    EXPECT_THAT(files(), ElementsAre(named("20330518-031640.app", child)));
    EXPECT_EQ(child.errors, "");
}

TEST_F(LogFile, RoundsTheBootTimeToTheNearestSecond) {
    kor::test::uptimeFile = sandbox.write("uptime", "1000.80 0.0"); // 1999998999.95 in all
    EXPECT_THAT(files(), IsEmpty());
    const ChildResult child = logOnce();
    EXPECT_THAT(files(), ElementsAre(named("20330518-031639.app", child)));
}

TEST_F(LogFile, TellsTheBootTimeInLocalTime) {
    sandbox.set("TZ", "XYZ-2");
    const ChildResult child = logOnce();
    EXPECT_THAT(files(), ElementsAre(named("20330518-051640.app", child)));
}

TEST_F(LogFile, HoldsTheRecords) {
    const ChildResult child = logOnce("message");
    const std::string process = std::to_string(child.process);
    EXPECT_EQ(sandbox.read("logs/" + named("20330518-031640.app", child)),
              "E May 18 03:33:20:250000 " + process + ":" + process +
                  " KORGL (void f()): message\n");
}

TEST_F(LogFile, IsAppendedTo) {
    const ChildResult child = inChild([] {
        kor_printlog("KORGL", 1, "ERROR", "f", false, "first");
        kor_close_log();
        kor_printlog("KORGL", 1, "ERROR", "f", false, "second");
        return 0;
    });
    const std::string text = sandbox.read("logs/" + named("20330518-031640.app", child));
    EXPECT_THAT(text, testing::ContainsRegex("first\n.*second\n"));
}

TEST_F(LogFile, StaysTheSameWhenTheSettingsAreReloadedWithAnotherFolder) {
    std::filesystem::create_directory(sandbox.path("others"));
    const ChildResult child = inChild([this] {
        kor_printlog("KORGL", 1, "ERROR", "f", false, "first");
        sandbox.set("KOR_GL_LOG_DIR", sandbox.path("others"));
        kor::conf::Settings::reload();
        kor_printlog("KORGL", 1, "ERROR", "f", false, "second");
        return std::string(kor::conf::settings().directory) == sandbox.path("others") ? 0 : 1;
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
    EXPECT_THAT(sandbox.read("logs/" + named("20330518-031640.app", child)),
                testing::ContainsRegex("first\n.*second\n"));
    EXPECT_TRUE(std::filesystem::is_empty(sandbox.path("others")));
}

TEST_F(LogFile, HasEveryRecordAtOnceAndTheStreamStaysOpenAfterClosingTheLog) {
    const ChildResult child = inChild([this] {
        kor_printlog("KORGL", 1, "ERROR", "f", false, "written through");
        const std::string name = files().at(0);
        if (sandbox.read("logs/" + name).find("written through\n") == std::string::npos)
            return 1;
        kor_close_log();
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry.path(), gone) == sandbox.path("logs/" + name))
                return 0;
        }
        return 2;
    });
    EXPECT_EQ(child.status, 0);
}

TEST_F(LogFile, OfTheOneThatOpensTheLogSecondIsClosedAgainAndTheFirstStays) {
    const ChildResult child = inChild([this] {
        mallopt(M_PERTURB, 165); // what is freed is no longer of use
        kor::test::onAllocation = [] {
            kor_printlog("KORGL", 1, "ERROR", "f", false, "from the first");
        };
        if (kor_open_log())
            return 1;
        int streams = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            if (std::filesystem::read_symlink(entry.path(), gone) ==
                sandbox.path("logs/" + files().at(0)))
                ++streams;
        }
        kor_printlog("KORGL", 1, "ERROR", "f", false, "from the second");
        return streams == 1 ? 0 : 2;
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
    ASSERT_EQ(files().size(), 1U);
    EXPECT_THAT(sandbox.read("logs/" + files().at(0)),
                testing::ContainsRegex("from the first\n.*from the second\n"));
}

TEST_F(LogFile, WithAnEmptyNameOfItsFolderIsNotLookedForAtAll) {
    sandbox.unset("KOR_GL_LOG_DIR");
    sandbox.writeSystem("[log]\ndirectory =\n");
    kor::test::uptimeFile = sandbox.path("missing"); // whoever makes up a file's name complains
    const ChildResult child = logOnce("message");
    ASSERT_EQ(std::count(child.errors.begin(), child.errors.end(), '\n'), 1) << child.errors;
    EXPECT_EQ(parseLogLine(child.errors.substr(0, child.errors.size() - 1)).message, "message");
}

TEST_F(LogFile, InAFolderThatDoesNotExistGivesStderrWithoutAnyMessage) {
    sandbox.set("KOR_GL_LOG_DIR", sandbox.path("missing"));
    const ChildResult child = logOnce("message");
    ASSERT_EQ(std::count(child.errors.begin(), child.errors.end(), '\n'), 1);
    EXPECT_EQ(parseLogLine(child.errors.substr(0, child.errors.size() - 1)).message, "message");
}

namespace {

struct ExecutableCase {
    const char* name;
    const char* link;
    const char* expected;
};

class LogFileOfExecutable : public LogFile, public testing::WithParamInterface<ExecutableCase> {};

} // namespace

TEST_P(LogFileOfExecutable, IsNamedAfterIt) {
    kor::test::executableLink = GetParam().link;
    const ChildResult child = logOnce();
    EXPECT_THAT(files(),
                ElementsAre(named(std::string("20330518-031640.") + GetParam().expected, child)));
}

INSTANTIATE_TEST_SUITE_P(
    By, LogFileOfExecutable,
    testing::Values(ExecutableCase{"ItsLastComponent", "/a/b/tool", "tool"},
                    ExecutableCase{"UnknownWithoutASlash", "tool", "unknown"},
                    ExecutableCase{"UnknownAfterATrailingSlash", "/a/tool/", "unknown"},
                    ExecutableCase{"UnknownWhereTheLinkCannotBeRead", "!", "unknown"},
                    ExecutableCase{"UnknownWhereTheLinkIsEmpty", "", "unknown"}),
    [](const auto& info) { return info.param.name; });

TEST_F(LogFile, HasAPathThatIsCutTo64BytesBeyondTheFolder) {
    const std::string executable(200, 'x');
    kor::test::executableLink = "/" + executable;
    logOnce();
    const std::string whole = "/kor-gl.20330518-031640." + executable;
    EXPECT_THAT(files(), ElementsAre(whole.substr(1, 62)));
}

TEST_F(LogFile, WithoutAnUptimeFileWarnsAndHasNoBootTimeInItsName) {
    kor::test::uptimeFile = sandbox.path("missing");
    const ChildResult child = logOnce();
    EXPECT_EQ(child.errors, "WARNING: Cannot open /proc/uptime file");
    EXPECT_THAT(files(), ElementsAre(named("app", child)));
}

TEST_F(LogFile, WithAnUnreadableUptimeFileWarnsAndHasNoBootTimeInItsName) {
    kor::test::uptimeFile = sandbox.path("work"); // a folder: opens, but cannot be read
    const ChildResult child = logOnce();
    EXPECT_EQ(child.errors, "WARNING: Cannot read /proc/uptime file: Is a directory");
    EXPECT_THAT(files(), ElementsAre(named("app", child)));
}

TEST_F(LogFile, WithBadUptimeDataWarnsAndHasNoBootTimeInItsName) {
    for (const char* content : {"1000.50\n", "up since 1\n", "1000,50 77,25\n"}) {
        kor::test::uptimeFile = sandbox.write("uptime", content);
        const ChildResult child = logOnce();
        EXPECT_EQ(child.errors, "WARNING: Bad data in /proc/uptime file") << content;
        EXPECT_THAT(files(), testing::Contains(named("app", child))) << content;
    }
}

TEST_F(LogFile, ReadsTheFirst1023BytesOfTheUptime) {
    const std::string first = "1000.50" + std::string(1022 - 7, ' '); // 1022 bytes
    kor::test::uptimeFile = sandbox.write("uptime", first + "7");
    ChildResult child = logOnce();
    EXPECT_EQ(child.errors, "");
    EXPECT_THAT(files(), ElementsAre(named("20330518-031640.app", child)));
    kor::test::uptimeFile = sandbox.write("uptime", first + " 7");
    child = logOnce();
    EXPECT_EQ(child.errors, "WARNING: Bad data in /proc/uptime file");
}

TEST_F(LogFile, ReadsTheUptimeWithADecimalPointInALocaleThatHasAComma) {
    // The smallest locale with a comma; the system's own are not installed everywhere.
    sandbox.write("comma.src", "LC_NUMERIC\ndecimal_point \"<U002C>\"\nthousands_sep \"\"\n"
                               "grouping -1\nEND LC_NUMERIC\n");
    const std::string make = "cd '" + sandbox.path("") +
                             "' && localedef --no-archive -c -i comma.src -f ANSI_X3.4-1968 "
                             "./xx_comma >localedef.out 2>&1";
    (void)!system(make.c_str()); // its warnings about the missing parts count as a failure
    sandbox.set("LOCPATH", sandbox.path(""));
    const ChildResult child = inChild([] {
        if (setlocale(LC_NUMERIC, "xx_comma") == nullptr || strtod("1,5", nullptr) != 1.5)
            return 1;
        kor_printlog("KORGL", 1, "ERROR", "f", false, "m");
        return strtod("1,5", nullptr) == 1.5 ? 0 : 2; // the caller's locale is back
    });
    EXPECT_EQ(child.status, 0);
    EXPECT_EQ(child.errors, "");
    EXPECT_THAT(files(), ElementsAre(named("20330518-031640.app", child)));
}

// What becomes of a program's frames: korrun --stats and kordoctor --watch.
#include "doctor_fixture.h"
#include "framework/wait_until.h"
#include "statistics.h"
#include "transport/statistics_page.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <regex>
#include <sys/mman.h>
#include <unistd.h>

using namespace kor::test;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace files = std::filesystem;

namespace {

class StatisticsTest : public SessionTest {
  protected:
    /// glxgears in the session, by the front.
    Command gears(Environment environment = {}) const {
        Command command;
        command.arguments = {"glxgears", "-geometry", "200x100"};
        command.environment = plainEnvironment();
        command.environment["DISPLAY"] = m_session.name();
        command.environment["LD_LIBRARY_PATH"] = buildLibrary("kor");
        for (const auto& [name, value] : environment)
            command.environment[name] = value;
        return command;
    }
    static CommandResult watch(pid_t process, const std::vector<std::string>& more = {}) {
        Command command;
        command.arguments = {buildProgram("kordoctor"), "--watch", std::to_string(process)};
        command.arguments.insert(command.arguments.end(), more.begin(), more.end());
        return runCommand(command);
    }
    /// Waits until the process has shown a frame.
    static bool showsFrames(pid_t process) {
        return waitUntil(
            [&] {
                return watch(process, {"--seconds", "0.01"}).status == 0;
            },
            std::chrono::seconds(30));
    }
};

/// The numbers of a line, by the words before them in JSON.
double numberAfter(const std::string& text, const std::string& name) {
    const size_t at = text.find("\"" + name + "\": ");
    return at == std::string::npos ? -1 : strtod(text.c_str() + at + name.size() + 4, nullptr);
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

TEST_F(StatisticsTest, RunningProcessIsWatched) {
    Child program(gears());
    ASSERT_TRUE(showsFrames(program.process())) << program.errors();
    const CommandResult seen = watch(program.process(), {"--seconds", "2.5", "--json"});
    EXPECT_EQ(seen.status, 0) << seen.errors;
    const auto lines = linesOf(seen.output);
    ASSERT_EQ(lines.size(), 3U) << seen.output;
    const std::string& line = lines[1];
    EXPECT_EQ(numberAfter(line, "process"), program.process());
    EXPECT_EQ(numberAfter(line, "width"), 200);
    EXPECT_EQ(numberAfter(line, "height"), 100);
    EXPECT_THAT(line, HasSubstr("\"strategy\": \"shared memory\""));
    const double rendered = numberAfter(line, "rendered");
    const double painted = numberAfter(line, "painted");
    EXPECT_GT(painted, 0);
    EXPECT_LE(painted, 31) << "the setting allows 30";
    EXPECT_GE(rendered + 1, painted);
    // What was rendered was painted or dropped, but for a frame that is on its way.
    EXPECT_NEAR(rendered, painted + numberAfter(line, "dropped"), 3);
    EXPECT_GT(numberAfter(line, "readbackMilliseconds"), 0);
    EXPECT_GT(numberAfter(line, "paintingMilliseconds"), 0);

    const CommandResult text = watch(program.process(), {"--seconds", "1"});
    EXPECT_THAT(text.output, HasSubstr("200x100     shared memory"));
}

TEST_F(StatisticsTest, StrategyInUseIsTold) {
    Child program(gears({{"KOR_GL_COPYBACK_STRATEGY", "2"}}));
    ASSERT_TRUE(showsFrames(program.process())) << program.errors();
    EXPECT_THAT(watch(program.process(), {"--seconds", "1"}).output,
                HasSubstr("200x100     plain requests"));
}

TEST_F(StatisticsTest, FramesOfHiddenWindowsAreCounted) {
    Child covered(gears());
    ASSERT_TRUE(showsFrames(covered.process())) << covered.errors();
    Command above = gears();
    above.arguments = {"glxgears", "-geometry", "220x120+0+0"};
    Child cover(above);
    EXPECT_TRUE(waitUntil(
        [&] {
            const CommandResult seen = watch(covered.process(), {"--seconds", "0.5", "--json"});
            return numberAfter(seen.output, "hidden") > 0 &&
                   numberAfter(seen.output, "rendered") == 0 &&
                   numberAfter(seen.output, "width") == 200;
        },
        std::chrono::seconds(30)))
        << watch(covered.process(), {"--seconds", "0.5"}).output;
    const CommandResult top = watch(cover.process(), {"--seconds", "1.2", "--json"});
    EXPECT_EQ(numberAfter(linesOf(top.output).back(), "hidden"), 0);
}

TEST_F(StatisticsTest, WindowThatWasNeverSeenIsCounted) {
    Command command = gears();
    command.arguments = {
        buildProgram("korrun"), "--stats", "--seconds", "3", "glxgears", "-geometry",
        "200x100+3000+0"};
    command.environment["TMPDIR"] = m_folder;
    const CommandResult result = runCommand(command, std::chrono::seconds(60));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(result.errors,
                MatchesRegex("(.|\n)*korrun: process [0-9]+, window 0x[0-9a-f]+, "
                             "200x100, not painted yet, [0-9.]+ s: rendered 0 (.|\n)*"
                             "painted 0 (.|\n)*hidden [1-9][0-9]*, (.|\n)*"));
}

TEST_F(StatisticsTest, WatchEndsWithTheProcessAndOnSignals) {
    Child program(gears());
    ASSERT_TRUE(showsFrames(program.process())) << program.errors();
    const Command watching{
        .arguments = {buildProgram("kordoctor"), "--watch", std::to_string(program.process())}};
    Child interrupted(watching);
    ASSERT_TRUE(waitUntil([&] { return !interrupted.output().empty(); }));
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.wait(std::chrono::seconds(5)), 0);
    Child watcher(watching);
    ASSERT_TRUE(waitUntil([&] { return !watcher.output().empty(); }));
    program.stop();
    EXPECT_EQ(watcher.wait(std::chrono::seconds(5)), 0) << watcher.errors();
}

TEST_F(StatisticsTest, NothingIsTimedWhenNobodyLooks) {
    Child program(gears());
    ASSERT_TRUE(showsFrames(program.process())) << program.errors();
    // Take the watchers' request back and see that no frame is timed any more.
    int page = -1;
    for (const auto& entry :
         files::directory_iterator("/proc/" + std::to_string(program.process()) + "/fd"))
        if (files::read_symlink(entry).string().find("kor-stats") != std::string::npos)
            page = open(entry.path().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(page, 0);
    ASSERT_TRUE(korrun::requestTiming(page, 0));
    usleep(100000);
    const auto before = korrun::readStatistics(page);
    ASSERT_TRUE(before);
    ASSERT_TRUE(waitUntil([&] {
        return korrun::readStatistics(page)->windows.at(0).painted >
               before->windows.at(0).painted + 3;
    }));
    EXPECT_EQ(korrun::readStatistics(page)->windows.at(0).timed, before->windows.at(0).timed);
    // And that a request is used up, so that a watcher that is gone costs nothing for long.
    ASSERT_TRUE(korrun::requestTiming(page, 2));
    ASSERT_TRUE(waitUntil([&] {
        return korrun::readStatistics(page)->windows.at(0).painted >
               before->windows.at(0).painted + 10;
    }));
    EXPECT_EQ(korrun::readStatistics(page)->windows.at(0).timed, before->windows.at(0).timed + 2);
    close(page);
}

TEST_F(StatisticsTest, ProcessesThatCannotBeWatchedAreToldApart) {
    Child sleeper(Command{.arguments = {"sleep", "60"}});
    const CommandResult other = watch(sleeper.process());
    EXPECT_EQ(other.status, 2);
    EXPECT_THAT(other.errors, HasSubstr("does not use KOR-GL"));
    const CommandResult none = watch(0x3ffffff);
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.errors, HasSubstr("no such process"));
    Child hidden(gears({{"KOR_GL_NO_READBACK", "1"}}));
    const std::string maps = "/proc/" + std::to_string(hidden.process()) + "/maps";
    ASSERT_TRUE(waitUntil([&] {
        std::ostringstream text;
        text << std::ifstream(maps).rdbuf();
        return text.str().find("libGL_KOR.so") != std::string::npos;
    }));
    EXPECT_THAT(watch(hidden.process()).errors, HasSubstr("has not finished a frame yet"));
}

TEST_F(StatisticsTest, LauncherTellsAtTheEnd) {
    Command command = gears();
    command.arguments = {
        buildProgram("korrun"), "--stats", "--seconds", "3", "glxgears", "-geometry", "200x100"};
    command.environment["TMPDIR"] = m_folder;
    const CommandResult result = runCommand(command, std::chrono::seconds(60));
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_THAT(
        result.errors,
        MatchesRegex(
            "(.|\n)*korrun: process [0-9]+, window 0x[0-9a-f]+, 200x100, shared "
            "memory, [0-9.]+ s: rendered [1-9][0-9]* \\([0-9.]+/s\\), painted "
            "[1-9][0-9]* \\([0-9.]+/s\\), dropped [0-9]+, hidden [0-9]+, readback [0-9.]+ ms, "
            "painting [0-9.]+ ms\n"));
    EXPECT_TRUE(files::is_empty(m_folder)) << "nothing is left behind";
}

TEST_F(DoctorTest, LauncherTellsWhenThereWereNoFrames) {
    const CommandResult result =
        runCommand({.arguments = {buildProgram("korrun"), "--stats", "sh", "-c", "exit 5"},
                    .environment = {{"TMPDIR", m_folder}}});
    EXPECT_EQ(result.status, 5) << "the command's own status";
    EXPECT_EQ(result.errors, "korrun: no frame was finished\n");
    const CommandResult refused =
        runCommand({.arguments = {buildProgram("korrun"), "--stats", "true"},
                    .environment = {{"TMPDIR", path("nowhere")}}});
    EXPECT_EQ(refused.status, 3);
    EXPECT_THAT(refused.errors, HasSubstr(path("nowhere")));
}

TEST_F(DoctorTest, LauncherLeavesNoCountersWhicheverWayTheCommandEnds) {
    for (const char* how : {"exit 1", "kill -INT $$", "kill -KILL $$"}) {
        const CommandResult result =
            runCommand({.arguments = {buildProgram("korrun"), "--stats", "sh", "-c", how},
                        .environment = {{"TMPDIR", m_folder}}});
        EXPECT_NE(result.status, 0) << how;
        EXPECT_EQ(result.errors, "korrun: no frame was finished\n") << how;
        for (const auto& entry : files::directory_iterator(m_folder))
            EXPECT_FALSE(entry.path().filename().string().starts_with("korrun-stats")) << how;
    }
}

TEST_F(StatisticsTest, FolderThatTakesNoFileHarmsNothing) {
    Child program(gears({{"KOR_GL_STATS", path("nowhere")}}));
    EXPECT_TRUE(showsFrames(program.process())) << "the page is in memory then";
}

TEST(KorrunStatistics, FilesThatAreNoneAreNotRead) {
    const int file = memfd_create("page", MFD_CLOEXEC);
    EXPECT_FALSE(korrun::readStatistics(file)) << "empty";
    ASSERT_EQ(ftruncate(file, sizeof(kor::gl::StatisticsPage)), 0);
    EXPECT_FALSE(korrun::readStatistics(file)) << "not complete yet";
    kor::gl::StatisticsPage page;
    page.magic = kor::gl::statisticsMagic;
    page.process = 7;
    page.lines[3].state = kor::gl::StatisticsLine::Ended;
    page.lines[3].window = 0x55;
    ASSERT_EQ(pwrite(file, &page, sizeof page, 0), static_cast<ssize_t>(sizeof page));
    const auto read = korrun::readStatistics(file);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->process, 7);
    ASSERT_EQ(read->windows.size(), 1U);
    EXPECT_EQ(read->windows[0].window, 0x55U);
    EXPECT_TRUE(read->windows[0].ended);
    ASSERT_EQ(ftruncate(file, 100), 0);
    EXPECT_FALSE(korrun::readStatistics(file)) << "cut short";
    close(file);
}

#include "support/process.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/time.h>

namespace {

std::string thisExecutable() {
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

long openFiles() {
    const std::filesystem::directory_iterator files("/proc/self/fd");
    return std::distance(begin(files), end(files));
}

} // namespace

TEST(ProcessExe, IsThePathOfTheExecutableAndItsLength) {
    char buffer[1024];
    const std::string expected = thisExecutable();
    EXPECT_EQ(korGetCurrentProcessExe(buffer, sizeof buffer), static_cast<int>(expected.size()));
    EXPECT_EQ(buffer, expected);
}

TEST(ProcessExe, IsCutToTheBuffer) {
    char buffer[6] = "?????";
    EXPECT_EQ(korGetCurrentProcessExe(buffer, sizeof buffer), 5);
    EXPECT_EQ(buffer, thisExecutable().substr(0, 5));
}

TEST(ProcessExe, IntoABufferOfTheLinksOwnLengthLosesItsLastCharacter) {
    const std::string expected = thisExecutable();
    std::string buffer(expected.size(), '?');
    EXPECT_EQ(korGetCurrentProcessExe(buffer.data(), static_cast<unsigned>(buffer.size())),
              static_cast<int>(expected.size()) - 1);
    EXPECT_STREQ(buffer.c_str(), expected.substr(0, expected.size() - 1).c_str());
}

TEST(ProcessExe, IntoNoRoomGivesMinusOne) {
    char buffer[1] = {'?'};
    EXPECT_EQ(korGetCurrentProcessExe(buffer, 0), -1);
    EXPECT_EQ(buffer[0], '?');
}

TEST(ProcessName, IsTheFirstArgument) {
    char buffer[4096];
    korGetCurrentProcessName(buffer, sizeof buffer);
    EXPECT_EQ(std::filesystem::path(buffer).filename(),
              std::filesystem::path(thisExecutable()).filename());
}

TEST(ProcessName, LeavesNoFileOpen) {
    const long before = openFiles();
    char buffer[64];
    korGetCurrentProcessName(buffer, sizeof buffer);
    EXPECT_EQ(openFiles(), before);
}

TEST(ProcessName, StopsAtSizeMinusOneCharacters) {
    char whole[4096];
    korGetCurrentProcessName(whole, sizeof whole);
    char buffer[4] = "???";
    EXPECT_EQ(korGetCurrentProcessName(buffer, sizeof buffer), 3);
    EXPECT_EQ(buffer, std::string(whole).substr(0, 3));
}

TEST(ProcessName, IntoNoRoomWritesNothing) {
    char buffer[1] = {'?'};
    EXPECT_EQ(korGetCurrentProcessName(buffer, 0), 0);
    EXPECT_EQ(buffer[0], '?');
}

TEST(CurrentTime, IsTheTimeOfDayInMilliseconds) {
    timeval before{};
    timeval after{};
    gettimeofday(&before, nullptr);
    const uint64_t now = korGetCurrentTime();
    gettimeofday(&after, nullptr);
    const auto milliseconds = [](const timeval& t) {
        return (static_cast<uint64_t>(t.tv_sec) * 1000000 + static_cast<uint64_t>(t.tv_usec)) /
               1000;
    };
    EXPECT_GE(now, milliseconds(before));
    EXPECT_LE(now, milliseconds(after));
}

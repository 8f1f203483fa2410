#include "interposed.h"

#include "../stderr_capture.h"
#include "../temporary_directory.h"
#include "support/ini_file.h"
#include "support/ini_reader.h"
#include "support/process.h"

#include <cerrno>
#include <gtest/gtest.h>

using namespace kor::test;

namespace {

class ProcessNameFaults : public testing::Test {
  protected:
    TemporaryDirectory directory;

    ~ProcessNameFaults() override { commandLineFile.reset(); }
    void commandLine(const std::string& content) {
        commandLineFile = directory.write("cmdline", content);
    }
};

class ProcessExeFaults : public testing::Test {
  protected:
    ~ProcessExeFaults() override {
        linkText.reset();
        linkUnreadable = false;
    }
};

} // namespace

TEST_F(ProcessNameFaults, StopsAtTheFirstZeroByte) {
    commandLine(std::string("app\0--option\0", 13));
    char buffer[64] = "";
    EXPECT_EQ(korGetCurrentProcessName(buffer, sizeof buffer), 3);
    EXPECT_STREQ(buffer, "app");
}

TEST_F(ProcessNameFaults, StopsAtANewline) {
    commandLine("one\ntwo");
    char buffer[64] = "";
    korGetCurrentProcessName(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "one\n");
}

TEST_F(ProcessNameFaults, AnEmptyNameIsUnknown) {
    commandLine("");
    char buffer[64] = "?";
    EXPECT_EQ(korGetCurrentProcessName(buffer, sizeof buffer), 7);
    EXPECT_STREQ(buffer, "Unknown");
    commandLine(std::string("\0x", 2));
    korGetCurrentProcessName(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "Unknown");
}

TEST_F(ProcessNameFaults, AnUnreadableNameIsUnknown) {
    char buffer[64] = "?";
    openFile.arm(EACCES);
    korGetCurrentProcessName(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "Unknown");
}

TEST_F(ProcessNameFaults, UnknownNeedsMoreThanSevenBytes) {
    char buffer[8] = "\?\?\?";
    openFile.arm(EACCES);
    EXPECT_EQ(korGetCurrentProcessName(buffer, 8), 7);
    EXPECT_STREQ(buffer, "Unknown");
    openFile.arm(EACCES);
    EXPECT_EQ(korGetCurrentProcessName(buffer, 7), 0);
    EXPECT_STREQ(buffer, "");
}

TEST_F(ProcessExeFaults, AnUnreadableLinkGivesMinusOne) {
    char buffer[8] = "before";
    linkUnreadable = true;
    EXPECT_EQ(korGetCurrentProcessExe(buffer, sizeof buffer), -1);
    EXPECT_STREQ(buffer, "before");
}

TEST_F(ProcessExeFaults, AnEmptyLinkGivesMinusOne) {
    char buffer[8] = "before";
    linkText = "";
    EXPECT_EQ(korGetCurrentProcessExe(buffer, sizeof buffer), -1);
}

TEST_F(ProcessExeFaults, TheTextEndsWhereTheLinkEnds) {
    char buffer[8] = "???????";
    linkText = "/a";
    EXPECT_EQ(korGetCurrentProcessExe(buffer, sizeof buffer), 2);
    EXPECT_STREQ(buffer, "/a");
}

TEST(CurrentTime, IsCutToWholeMilliseconds) {
    timeOfDay = timeval{5, 999999};
    EXPECT_EQ(korGetCurrentTime(), 5999U);
    timeOfDay.reset();
}

TEST(IniReaderFaults, ANameThatCannotBeCopiedIsError5AndTheFileIsOpenedAllTheSame) {
    const TemporaryDirectory directory;
    const std::string file = directory.write("file.ini", "x=1\n");
    copyText.arm(0);
    kor::IniReader reader(file.c_str());
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 5);
    EXPECT_EQ(reader.getParserState()->linenum, 0);
    EXPECT_STREQ(reader.getParserState()->errstr, "Out of memory.");
    int seen = 0;
    const auto count = [](void* user, const char*, const char*, const char*) {
        return ++*static_cast<int*>(user);
    };
    EXPECT_TRUE(reader.parseIniFile(count, &seen));
    EXPECT_EQ(seen, 1);
}

TEST(IniReaderFaults, ANameThatCannotBeCopiedOfAMissingFileIsError6) {
    copyText.arm(0);
    const kor::IniReader reader("/nonexistent/file.ini");
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 6);
}

TEST(IniFileFaults, TheReadersErrorIsReportedAndTakenOver) {
    const TemporaryDirectory directory;
    const std::string name = directory.write("file.ini", "[a]\nx=1\n");
    kor::IniFile file(name.c_str(), false);
    const StderrCapture errors;
    copyText.arm(0);
    EXPECT_FALSE(file.parse(nullptr));
    EXPECT_EQ(errors.text(), "Cannot open .ini file \"" + name + "\": Out of memory.\n");
    ASSERT_NE(file.getParserState(), nullptr);
    EXPECT_EQ(file.getParserState()->errnum, 5);
}

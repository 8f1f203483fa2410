#include "support/ini_file.h"

#include "stderr_capture.h"
#include "temporary_directory.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <type_traits>

using kor::IniError;
using kor::IniFile;
using kor::test::StderrCapture;
using kor::test::TemporaryDirectory;
using testing::ElementsAre;

static_assert(std::has_virtual_destructor_v<IniFile>);

namespace {

class IniFileTest : public testing::Test {
  protected:
    TemporaryDirectory directory;
    StderrCapture errors;

    std::string write(const std::string& content) { return directory.write("file.ini", content); }
    static void expectState(const IniFile& file, int code, int line, const char* text) {
        const IniError* state = file.getParserState();
        ASSERT_NE(state, nullptr);
        EXPECT_EQ(state->errnum, code);
        EXPECT_EQ(state->linenum, line);
        EXPECT_STREQ(state->errstr, text);
    }
};

std::vector<std::string> sortedLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

TEST_F(IniFileTest, ReadsNothingBeforeItIsAskedTo) {
    const std::string name = write("[log]\nlevel=info\n");
    const IniFile file(name.c_str(), false);
    EXPECT_EQ(file.getFilename(), name);
    EXPECT_EQ(file.getParserState(), nullptr);
    EXPECT_EQ(file.getValue("log", "level"), nullptr);
}

TEST_F(IniFileTest, ReadsAtOnceWhenToldSo) {
    const IniFile file(write("[log]\nlevel=info\n").c_str(), true);
    EXPECT_STREQ(file.getValue("log", "level"), "info");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(IniFileTest, MatchesSectionAndNameWithoutRegardToCase) {
    IniFile file(write("[Log]\nLevel=Info\n").c_str(), false);
    EXPECT_TRUE(file.parse(nullptr));
    EXPECT_STREQ(file.getValue("log", "level"), "Info");
    EXPECT_STREQ(file.getValue("LOG", "LEVEL"), "Info");
    EXPECT_STREQ(file.getValue("Log", "Level"), "Info");
    EXPECT_EQ(file.getValue("log", "levels"), nullptr);
    EXPECT_EQ(file.getValue("logs", "level"), nullptr);
}

TEST_F(IniFileTest, TheLastOccurrenceOfAKeyWins) {
    const IniFile file(write("[a]\nx=1\n[A]\nX=2\n").c_str(), true);
    EXPECT_STREQ(file.getValue("a", "x"), "2");
}

TEST_F(IniFileTest, KeepsAnEmptyValueFromTheFile) {
    const IniFile file(write("[a]\nx=\n").c_str(), true);
    EXPECT_STREQ(file.getValue("a", "x"), "");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(IniFileTest, ParseTakesAnotherFileWhenOneIsNamed) {
    const std::string second = directory.write("second.ini", "[a]\ny=2\n");
    IniFile file(write("[a]\nx=1\n").c_str(), true);
    EXPECT_TRUE(file.parse(second.c_str()));
    EXPECT_EQ(file.getFilename(), second);
    EXPECT_EQ(file.getValue("a", "x"), nullptr);
    EXPECT_STREQ(file.getValue("a", "y"), "2");
}

TEST_F(IniFileTest, ParseReadsTheCurrentFileAnew) {
    IniFile file(write("[a]\nx=1\ny=2\n").c_str(), true);
    write("[a]\nx=3\n");
    EXPECT_TRUE(file.parse(nullptr));
    EXPECT_STREQ(file.getValue("a", "x"), "3");
    EXPECT_EQ(file.getValue("a", "y"), nullptr);
}

TEST_F(IniFileTest, ParseTakesItsOwnNameText) {
    IniFile file(write("[a]\nx=1\n").c_str(), false);
    EXPECT_TRUE(file.parse(file.getFilename()));
    EXPECT_STREQ(file.getValue("a", "x"), "1");
    file.setFilename(file.getFilename(), true);
    EXPECT_STREQ(file.getValue("a", "x"), "1");
}

TEST_F(IniFileTest, ParseWithoutANameSaysSoAndEndsInError6) {
    IniFile file(nullptr, false);
    EXPECT_FALSE(file.parse(nullptr));
    EXPECT_EQ(errors.text(), "Cannot parse file: Filename is empty\n");
    expectState(file, 6, 0, "No such file or directory.");
}

TEST_F(IniFileTest, ParseWithAnEmptyNameSaysSoAndEndsInError6) {
    IniFile file(write("[a]\nx=1\n").c_str(), true);
    EXPECT_FALSE(file.parse(""));
    EXPECT_EQ(errors.text(), "Cannot parse file: Filename is empty\n");
    expectState(file, 6, 0, "No such file or directory.");
}

TEST_F(IniFileTest, SetFilenameWithAnEmptyNameAndParseEndsInError6WithoutAWord) {
    IniFile file(nullptr, true);
    expectState(file, 6, 0, "No such file or directory.");
    file.setFilename("", true);
    expectState(file, 6, 0, "No such file or directory.");
    EXPECT_EQ(errors.text(), "");
}

TEST_F(IniFileTest, SetFilenameAloneKeepsEntriesAndError) {
    IniFile file(write("[a]\nx=1\n").c_str(), true);
    file.setFilename("other", false);
    EXPECT_STREQ(file.getFilename(), "other");
    EXPECT_STREQ(file.getValue("a", "x"), "1");
    file.parse("");
    file.setFilename("other", false);
    EXPECT_NE(file.getParserState(), nullptr);
    file.setFilename(nullptr, false);
    EXPECT_EQ(file.getFilename(), nullptr);
}

TEST_F(IniFileTest, SetFilenameWithParseClearsEntriesAndError) {
    const std::string name = write("[a]\nx=1\n");
    IniFile file(name.c_str(), true);
    file.setValue("a", "y", "2", false);
    file.parse("");
    file.setFilename(name.c_str(), true);
    EXPECT_EQ(file.getParserState(), nullptr);
    EXPECT_STREQ(file.getValue("a", "x"), "1");
    EXPECT_EQ(file.getValue("a", "y"), nullptr);
}

TEST_F(IniFileTest, AFileThatCannotBeOpenedIsReportedWithItsName) {
    const std::string name = (directory.path() / "missing.ini").string();
    IniFile file(name.c_str(), false);
    EXPECT_FALSE(file.parse(nullptr));
    EXPECT_EQ(errors.text(),
              "Cannot open .ini file \"" + name + "\": No such file or directory.\n");
    expectState(file, 6, 0, "No such file or directory.");
    EXPECT_EQ(file.getFilename(), name);
}

TEST_F(IniFileTest, AFileThatCannotBeParsedIsReportedWithItsLine) {
    const std::string name = write("[a]\nx=1\nbad\n");
    IniFile file(name.c_str(), false);
    EXPECT_FALSE(file.parse(nullptr));
    EXPECT_EQ(errors.text(), "Cannot parse .ini file \"" + name + "\": Parser error. (line 3)\n");
    expectState(file, 1, 3, "Parser error.");
}

TEST_F(IniFileTest, ParsingAgainEndsAnError) {
    IniFile file(write("bad\n").c_str(), true);
    EXPECT_NE(file.getParserState(), nullptr);
    write("[a]\nx=1\n");
    EXPECT_TRUE(file.parse(nullptr));
    EXPECT_EQ(file.getParserState(), nullptr);
    EXPECT_STREQ(file.getValue("a", "x"), "1");
}

TEST_F(IniFileTest, SetValueAddsAndReplaces) {
    IniFile file(nullptr, false);
    EXPECT_TRUE(file.setValue("a", "x", "1", false));
    EXPECT_STREQ(file.getValue("a", "x"), "1");
    EXPECT_TRUE(file.setValue("A", "X", "2", false));
    EXPECT_STREQ(file.getValue("a", "x"), "2");
}

TEST_F(IniFileTest, SetValueWithoutOverwritingLeavesWhatIsThere) {
    IniFile file(nullptr, false);
    EXPECT_TRUE(file.setValue("a", "x", "1", true));
    EXPECT_FALSE(file.setValue("a", "X", "2", true));
    EXPECT_STREQ(file.getValue("a", "x"), "1");
}

TEST_F(IniFileTest, GetValueGivesTheStoredTextAndNoCopy) {
    const IniFile file(write("[a]\nx=1\n").c_str(), true);
    const char* value = file.getValue("a", "x");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(file.getValue("A", "X"), value);
}

TEST_F(IniFileTest, ColonsBetweenSectionAndNameMayBelongToEither) {
    IniFile file(nullptr, false);
    EXPECT_TRUE(file.setValue("a::b", "c", "1", false));
    EXPECT_STREQ(file.getValue("a", "b::c"), "1");
    const std::string name = write("");
    EXPECT_TRUE(file.write(name.c_str()));
    EXPECT_EQ(directory.read("file.ini"), "[A]\nB::C = 1\n\n");
}

TEST_F(IniFileTest, SetValueTakesItsOwnValue) {
    IniFile file(nullptr, false);
    file.setValue("a", "x", "a rather long value that no small buffer holds", false);
    EXPECT_TRUE(file.setValue("a", "x", file.getValue("a", "x"), false));
    EXPECT_STREQ(file.getValue("a", "x"), "a rather long value that no small buffer holds");
}

TEST_F(IniFileTest, RemoveValueTellsWhetherThereWasOne) {
    IniFile file(nullptr, false);
    file.setValue("a", "x", "1", false);
    EXPECT_TRUE(file.removeValue("A", "X"));
    EXPECT_EQ(file.getValue("a", "x"), nullptr);
    EXPECT_FALSE(file.removeValue("a", "x"));
    EXPECT_EQ(errors.text(), "");
}

namespace {

/// What a value operation is given, and what it answers on stderr.
struct Refusal {
    const char* name;
    bool error;
    const char* section;
    const char* key;
    const char* value;
    const char* get;
    const char* set;
    const char* remove;
};

class IniFileRefusal : public IniFileTest, public testing::WithParamInterface<Refusal> {
  protected:
    IniFile file{nullptr, GetParam().error};
};

} // namespace

TEST_P(IniFileRefusal, OfGetValue) {
    EXPECT_EQ(file.getValue(GetParam().section, GetParam().key), nullptr);
    EXPECT_EQ(errors.text(), GetParam().get);
}

TEST_P(IniFileRefusal, OfSetValue) {
    EXPECT_FALSE(file.setValue(GetParam().section, GetParam().key, GetParam().value, false));
    EXPECT_EQ(errors.text(), GetParam().set);
}

TEST_P(IniFileRefusal, OfRemoveValue) {
    EXPECT_FALSE(file.removeValue(GetParam().section, GetParam().key));
    EXPECT_EQ(errors.text(), GetParam().remove);
}

INSTANTIATE_TEST_SUITE_P(
    Because, IniFileRefusal,
    testing::Values(
        Refusal{"OfAnErrorState", true, "a", "x", "1",
                "Cannot get value: Parser is in error state\n",
                "Cannot set value: Parser is in error state\n",
                "Cannot remove value: Parser is in error state\n"},
        Refusal{"OfAnErrorStateFirst", true, "", "", "",
                "Cannot get value: Parser is in error state\n",
                "Cannot set value: Parser is in error state\n",
                "Cannot remove value: Parser is in error state\n"},
        Refusal{"OfAnEmptySection", false, "", "x", "1", "Cannot get value: Section is empty\n",
                "Cannot set value: Section is empty\n", "Cannot remove value: Section is empty\n"},
        Refusal{"OfANullSectionBeforeAnEmptyName", false, nullptr, "", "",
                "Cannot get value: Section is empty\n", "Cannot set value: Section is empty\n",
                "Cannot remove value: Section is empty\n"},
        Refusal{"OfAnEmptyName", false, "a", "", "1", "Cannot get value: Name is empty\n",
                "Cannot set value: Name is empty\n", "Cannot remove value: Name is empty\n"},
        Refusal{"OfANullNameBeforeANullValue", false, "a", nullptr, nullptr,
                "Cannot get value: Name is empty\n", "Cannot set value: Name is empty\n",
                "Cannot remove value: Name is empty\n"},
        Refusal{"OfAnEmptyValue", false, "a", "x", "", "", "Cannot set value: Value is empty\n",
                ""},
        Refusal{"OfANullValue", false, "a", "x", nullptr, "", "Cannot set value: Value is empty\n",
                ""}),
    [](const auto& info) { return info.param.name; });

TEST_F(IniFileTest, WritesSectionsWithTheirEntriesInCapitalsAndAnEmptyLineAfterEach) {
    IniFile file(nullptr, false);
    file.setValue("log", "level", "Info", false);
    EXPECT_TRUE(file.write((directory.path() / "out.ini").c_str()));
    EXPECT_EQ(directory.read("out.ini"), "[LOG]\nLEVEL = Info\n\n");
}

TEST_F(IniFileTest, WritesEverySectionOnceWithAllItsEntriesBelowIt) {
    IniFile file(nullptr, false);
    file.setValue("a", "x", "1", false);
    file.setValue("b", "y", "2", false);
    file.setValue("A", "z", "3", false);
    EXPECT_TRUE(file.write((directory.path() / "out.ini").c_str()));
    EXPECT_STREQ(file.getFilename(), (directory.path() / "out.ini").c_str());
    const std::string text = directory.read("out.ini");
    EXPECT_THAT(sortedLines(text), ElementsAre("", "", "X = 1", "Y = 2", "Z = 3", "[A]", "[B]"));
    const IniFile again(file.getFilename(), true);
    EXPECT_STREQ(again.getValue("a", "x"), "1");
    EXPECT_STREQ(again.getValue("b", "y"), "2");
    EXPECT_STREQ(again.getValue("a", "z"), "3");
}

TEST_F(IniFileTest, WritesToItsOwnFileWhenNoneIsNamed) {
    IniFile file(write("[a]\nx=1\n").c_str(), true);
    file.setValue("a", "x", "2", false);
    EXPECT_TRUE(file.write(nullptr));
    EXPECT_EQ(directory.read("file.ini"), "[A]\nX = 2\n\n");
}

TEST_F(IniFileTest, WriteWithoutANameSaysSoAndFails) {
    IniFile file(nullptr, false);
    EXPECT_FALSE(file.write(nullptr));
    EXPECT_FALSE(file.write(""));
    EXPECT_EQ(errors.text(), "Cannot write file: Filename is empty\n"
                             "Cannot write file: Filename is empty\n");
}

TEST_F(IniFileTest, WriteToWhatCannotBeOpenedFailsWithoutAMessage) {
    IniFile file(nullptr, false);
    EXPECT_FALSE(file.write((directory.path() / "missing" / "out.ini").c_str()));
    EXPECT_EQ(errors.text(), "");
}

TEST_F(IniFileTest, AWriteThatFailsIsTold) {
    IniFile file(nullptr, false);
    file.setValue("a", "x", std::string(150, 'v').c_str(), false);
    EXPECT_FALSE(file.write("/dev/full"));
    for (int i = 0; i < 500; ++i)
        file.setValue("a", ("x" + std::to_string(i)).c_str(), std::string(150, 'v').c_str(), false);
    EXPECT_FALSE(file.write("/dev/full"));
}

TEST_F(IniFileTest, KeepsThousandsOfEntries) {
    IniFile file(nullptr, false);
    for (int i = 0; i < 3000; ++i)
        ASSERT_TRUE(file.setValue("s", std::to_string(i).c_str(), std::to_string(i).c_str(), true));
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(file.getValue("s", std::to_string(i).c_str()), std::to_string(i));
}

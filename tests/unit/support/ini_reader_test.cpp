#include "support/ini_reader.h"

#include "temporary_directory.h"

#include <cstring>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using kor::IniError;
using kor::IniReader;
using kor::test::TemporaryDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Triples = std::vector<std::string>;

/// Collects "section|name|value" and stops after stopAfter of them.
struct Collector {
    Triples triples;
    size_t stopAfter = SIZE_MAX;

    static int take(void* user, const char* section, const char* name, const char* value) {
        auto* self = static_cast<Collector*>(user);
        self->triples.push_back(std::string(section) + "|" + name + "|" + value);
        return self->triples.size() < self->stopAfter ? 1 : 0;
    }
};

struct Outcome {
    bool parsed;
    Triples triples;
    int errnum;
    int linenum;
    std::string errstr;
};

Outcome parse(const std::string& content, size_t stopAfter = SIZE_MAX) {
    const TemporaryDirectory directory;
    IniReader reader(directory.write("file.ini", content).c_str());
    Collector collector{.triples = {}, .stopAfter = stopAfter};
    const bool parsed = reader.parseIniFile(Collector::take, &collector);
    const IniError* error = reader.getParserState();
    return {parsed, collector.triples, error != nullptr ? error->errnum : 0,
            error != nullptr ? error->linenum : 0, error != nullptr ? error->errstr : ""};
}

struct LineCase {
    const char* name;
    const char* content;
    Triples expected;
};

class IniLines : public testing::TestWithParam<LineCase> {};

} // namespace

TEST_P(IniLines, AreRead) {
    const Outcome outcome = parse(GetParam().content);
    EXPECT_TRUE(outcome.parsed);
    EXPECT_EQ(outcome.errnum, 0);
    EXPECT_EQ(outcome.triples, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Accepted, IniLines,
    testing::Values(
        LineCase{"AnEmptyFile", "", {}},
        LineCase{"NameAndValueInASection", "[gl]\nname=value\n", {"gl|name|value"}},
        LineCase{"ALastLineWithoutNewline", "[gl]\nname=value", {"gl|name|value"}},
        LineCase{"DosLineEnds", "[gl]\r\nname=value\r\n", {"gl|name|value"}},
        LineCase{"AnEmptySectionBeforeTheFirstHeader", "name=value\n", {"|name|value"}},
        LineCase{"LaterHeadersReplaceEarlierOnes", "[a]\nx=1\n[b]\ny=2\n", {"a|x|1", "b|y|2"}},
        LineCase{"TheCaseOfAllTextsAsWritten", "[Log]\nLevel=Info\n", {"Log|Level|Info"}},
        LineCase{"WhiteSpaceAroundEverything", " \t[a]  \n \tx \t= \t1 \t\n", {"a|x|1"}},
        LineCase{"BlanksInsideSectionNameAndValue", "[a b]\nx y = 1 2\n", {"a b|x y|1 2"}},
        LineCase{"BlanksInsideTheBracketsBelongToTheSection", "[ a ]\nx=1\n", {" a |x|1"}},
        LineCase{"EmptyLines", "\n   \n\t\n[a]\n\nx=1\n\n", {"a|x|1"}},
        LineCase{"CommentsWithHash", "#[a]\n  # x=1\n", {}},
        LineCase{"CommentsWithSemicolon", ";[a]\n  ; x=1\n", {}},
        LineCase{"TextAfterASectionHeaderIsIgnored", "[a] x=1\ny=2\n", {"a|y|2"}},
        LineCase{"AHeaderEndsAtItsFirstBracket", "[a]b]\nx=1\n", {"a|x|1"}},
        LineCase{"ASemicolonRightInsideASectionName", "[a;b]\nx=1\n", {"a;b|x|1"}},
        LineCase{
            "AColonSeparatesWhereThereIsNoEqualsSign", "name: value ; comment\n", {"|name|value"}},
        LineCase{"TheEqualsSignWinsOverAnEarlierColon", "a:b=c\n", {"|a:b|c"}},
        LineCase{"AnEqualsSignInACommentIsNone", "a:b ; c=d\n", {"|a|b"}},
        LineCase{"EverythingAfterTheFirstEqualsSignIsTheValue", "x=a=b=c\n", {"|x|a=b=c"}},
        LineCase{"AColonInTheValue", "gl-display = :0.0\n", {"|gl-display|:0.0"}},
        LineCase{"ASemicolonWithoutABlankBeforeBelongsToTheValue", "x=b;c\n", {"|x|b;c"}},
        LineCase{"ASemicolonAfterABlankStartsAComment", "x=b ;c\n", {"|x|b"}},
        LineCase{"ASemicolonAfterATabStartsAComment", "x=b\t;c\n", {"|x|b"}},
        LineCase{"TheFirstSemicolonAfterABlankCounts", "x=a;b ;c ;d\n", {"|x|a;b"}},
        LineCase{"ASemicolonThatBeginsTheValueBelongsToIt", "x = ;b ;c\n", {"|x|;b"}},
        LineCase{"AHashInTheValueIsNoComment", "x=a # b\n", {"|x|a # b"}},
        LineCase{"AnEmptyValue", "x=\ny = \n", {"|x|", "|y|"}},
        LineCase{"AnEmptyName", "=1\n", {"||1"}},
        LineCase{"QuotesAndBackslashesAreOrdinaryText", "x=\"a\\n\" \\\n", {"|x|\"a\\n\" \\"}},
        LineCase{"NoContinuationLines", "x=1\n  y=2\n", {"|x|1", "|y|2"}},
        LineCase{"TheSameNameTwiceIsToldTwice", "x=1\nx=2\n", {"|x|1", "|x|2"}}),
    [](const auto& info) { return info.param.name; });

namespace {

struct BadCase {
    const char* name;
    const char* content;
    int line;
    Triples before;
};

class BadIniLines : public testing::TestWithParam<BadCase> {};

} // namespace

TEST_P(BadIniLines, EndTheParseWithError1AtTheirLine) {
    const Outcome outcome = parse(GetParam().content);
    EXPECT_FALSE(outcome.parsed);
    EXPECT_EQ(outcome.errnum, 1);
    EXPECT_EQ(outcome.linenum, GetParam().line);
    EXPECT_EQ(outcome.errstr, "Parser error.");
    EXPECT_EQ(outcome.triples, GetParam().before);
}

INSTANTIATE_TEST_SUITE_P(
    Rejected, BadIniLines,
    testing::Values(BadCase{"NoSeparator", "name\n", 1, {}},
                    BadCase{
                        "NoSeparatorAfterGoodLines", "[a]\nx=1\n\n#\nname\ny=2\n", 5, {"a|x|1"}},
                    BadCase{"TheSeparatorOnlyInTheComment", "name ; x=1\n", 1, {}},
                    BadCase{"TheColonOnlyInTheComment", "name ; x:1\n", 1, {}},
                    BadCase{"ASectionWithoutBracket", "[a\nx=1\n", 1, {}},
                    BadCase{"ASectionWhoseBracketIsInTheComment", "[a ;b]\n", 1, {}}),
    [](const auto& info) { return info.param.name; });

TEST(IniReader, ReadsALongLineInPiecesOf199CharactersEachALineOfItsOwn) {
    // 250 characters: the second piece has no separator.
    const Outcome outcome = parse("x=" + std::string(248, 'v') + "\n");
    EXPECT_FALSE(outcome.parsed);
    EXPECT_EQ(outcome.errnum, 1);
    EXPECT_EQ(outcome.linenum, 2);
    EXPECT_THAT(outcome.triples, ElementsAre("|x|" + std::string(197, 'v')));
}

TEST(IniReader, ReadsTheSecondPieceOfALongLineAsAPairWhereItIsOne) {
    const Outcome outcome = parse("x=" + std::string(197, 'v') + "y=1\nbad\n");
    EXPECT_THAT(outcome.triples, ElementsAre("|x|" + std::string(197, 'v'), "|y|1"));
    EXPECT_EQ(outcome.linenum, 3);
}

TEST(IniReader, ReadsALineOf198CharactersWhole) {
    const Outcome outcome = parse("x=" + std::string(196, 'v') + "\ny=1\n");
    EXPECT_TRUE(outcome.parsed);
    EXPECT_THAT(outcome.triples, ElementsAre("|x|" + std::string(196, 'v'), "|y|1"));
}

TEST(IniReader, CutsASectionNameTo49Characters) {
    const Outcome outcome = parse("[" + std::string(60, 's') + "]\nx=1\n");
    EXPECT_THAT(outcome.triples, ElementsAre(std::string(49, 's') + "|x|1"));
}

TEST(IniReader, HandsLongNamesOnWhole) {
    const std::string name(120, 'n');
    EXPECT_THAT(parse(name + "=1\n").triples, ElementsAre("|" + name + "|1"));
}

TEST(IniReader, AZeroFromTheCallbackEndsTheParseWithError2AtThatLine) {
    const Outcome outcome = parse("[a]\nx=1\ny=2\nz=3\n", 2);
    EXPECT_FALSE(outcome.parsed);
    EXPECT_EQ(outcome.errnum, 2);
    EXPECT_EQ(outcome.linenum, 3);
    EXPECT_EQ(outcome.errstr, "User function error.");
    EXPECT_THAT(outcome.triples, ElementsAre("a|x|1", "a|y|2"));
}

TEST(IniReader, WithoutACallbackGivesError3) {
    const TemporaryDirectory directory;
    IniReader reader(directory.write("file.ini", "x=1\n").c_str());
    EXPECT_EQ(reader.getParserState(), nullptr);
    EXPECT_FALSE(reader.parseIniFile(nullptr, nullptr));
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 3);
    EXPECT_EQ(reader.getParserState()->linenum, 0);
    EXPECT_STREQ(reader.getParserState()->errstr, "No user function available.");
}

TEST(IniReader, WithoutAFileNameIsInError4) {
    IniReader reader(nullptr);
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 4);
    EXPECT_EQ(reader.getParserState()->linenum, 0);
    EXPECT_STREQ(reader.getParserState()->errstr, "Invalid argument");
}

TEST(IniReader, OfAMissingFileIsInError6AndParsesNothing) {
    const TemporaryDirectory directory;
    IniReader reader((directory.path() / "missing").c_str());
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 6);
    EXPECT_EQ(reader.getParserState()->linenum, 0);
    EXPECT_STREQ(reader.getParserState()->errstr, "No such file or directory.");
    Collector collector;
    EXPECT_FALSE(reader.parseIniFile(Collector::take, &collector));
    EXPECT_THAT(collector.triples, IsEmpty());
    EXPECT_EQ(reader.getParserState()->errnum, 6);
}

TEST(IniReader, OfAFileThatCannotBeOpenedForAnyOtherReasonIsInError6Too) {
    const TemporaryDirectory directory;
    const std::string notAFolder = directory.write("file", "");
    const IniReader reader((notAFolder + "/below").c_str()); // ENOTDIR
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 6);
    EXPECT_STREQ(reader.getParserState()->errstr, "No such file or directory.");
}

TEST(IniReader, OfAnUnreadableFileIsInError6WithLine0) {
    const TemporaryDirectory directory;
    const std::string file = directory.write("file.ini", "x=1\n");
    chmod(directory.path().c_str(), 0755);
    chmod(file.c_str(), 0);
    // Root may read everything, so the try is made as somebody else.
    const bool root = geteuid() == 0;
    ASSERT_TRUE(!root || seteuid(65534) == 0);
    const IniReader reader(file.c_str());
    ASSERT_TRUE(!root || seteuid(0) == 0);
    ASSERT_NE(reader.getParserState(), nullptr);
    EXPECT_EQ(reader.getParserState()->errnum, 6);
    EXPECT_EQ(reader.getParserState()->linenum, 0);
    EXPECT_STREQ(reader.getParserState()->errstr, "No such file or directory.");
}

TEST(IniReader, SeterrSetsCodeLineAndText) {
    IniReader reader(nullptr);
    reader.seterr(9, "text", 17);
    EXPECT_EQ(reader.getParserState()->errnum, 9);
    EXPECT_EQ(reader.getParserState()->linenum, 17);
    EXPECT_STREQ(reader.getParserState()->errstr, "text");
}

TEST(IniReader, SeterrCutsTheTextTo128BytesWithItsEnd) {
    IniReader reader(nullptr);
    reader.seterr(1, std::string(300, 'e').c_str(), 0);
    EXPECT_EQ(reader.getParserState()->errstr, std::string(127, 'e'));
    EXPECT_EQ(sizeof reader.getParserState()->errstr, 128U);
}

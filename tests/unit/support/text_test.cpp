#include "support/text.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <optional>
#include <string>
#include <vector>

using testing::ElementsAre;

namespace {

std::string owned(char* text) {
    if (text == nullptr)
        return "(null)";
    std::string copy = text;
    free(text);
    return copy;
}

std::vector<std::optional<std::string>> split(const char* text, unsigned maxParts,
                                              const char* delimiters) {
    char* parts[8] = {};
    const int count = korStrsplit(text, parts, maxParts, delimiters);
    std::vector<std::optional<std::string>> all;
    for (int i = 0; i < count; ++i) {
        all.push_back(parts[i] != nullptr ? std::optional<std::string>(parts[i]) : std::nullopt);
        free(parts[i]);
    }
    return all;
}

} // namespace

TEST(Strcpy, CopiesATextThatFitsExactly) {
    char buffer[6] = "?????";
    EXPECT_EQ(korStrcpy(buffer, 6, "hello"), 0);
    EXPECT_STREQ(buffer, "hello");
}

TEST(Strcpy, CopiesTheEmptyText) {
    char buffer[1] = {'?'};
    EXPECT_EQ(korStrcpy(buffer, 1, ""), 0);
    EXPECT_EQ(buffer[0], '\0');
}

TEST(Strcpy, OneByteTooFewGives34AndLeavesTheDestinationUntouched) {
    char buffer[6] = "old";
    EXPECT_EQ(korStrcpy(buffer, 5, "hello"), 34);
    EXPECT_EQ(ERANGE, 34);
    EXPECT_STREQ(buffer, "old");
}

TEST(Strcpy, SizeZeroGives34AndLeavesTheDestinationUntouched) {
    char buffer[4] = "old";
    EXPECT_EQ(korStrcpy(buffer, 0, ""), 34);
    EXPECT_STREQ(buffer, "old");
}

TEST(Strcpy, ANullPointerGives22) {
    char buffer[4] = "old";
    EXPECT_EQ(korStrcpy(buffer, 4, nullptr), 22);
    EXPECT_EQ(korStrcpy(nullptr, 4, "x"), 22);
    EXPECT_EQ(korStrcpy(nullptr, 0, nullptr), 22);
    EXPECT_EQ(EINVAL, 22);
    EXPECT_STREQ(buffer, "old");
}

TEST(Basename, IsTheTextAfterTheLastSlashAndPointsIntoThePath) {
    const char* path = "/usr/bin/glxgears";
    EXPECT_STREQ(korBasename(path), "glxgears");
    EXPECT_EQ(korBasename(path), path + 9);
}

TEST(Basename, WithoutASlashIsTheWholeText) {
    const char* path = "glxgears";
    EXPECT_EQ(korBasename(path), path);
}

TEST(Basename, AfterATrailingSlashIsEmpty) {
    EXPECT_STREQ(korBasename("/usr/"), "");
}

TEST(Strsplit, SkipsEmptyFields) {
    EXPECT_THAT(split("a,,b", 8, ","), ElementsAre("a", "b"));
}

TEST(Strsplit, SkipsLeadingAndTrailingDelimiters) {
    EXPECT_THAT(split(",a,b,", 8, ","), ElementsAre("a", "b"));
}

TEST(Strsplit, TakesEveryCharacterOfTheDelimiterSet) {
    EXPECT_THAT(split("a b;c\td", 8, " ;\t"), ElementsAre("a", "b", "c", "d"));
}

TEST(Strsplit, StoresAtMostMaxPartsEntries) {
    EXPECT_THAT(split("a,b,c", 2, ","), ElementsAre("a", "b"));
    EXPECT_THAT(split("a,b,c", 3, ","), ElementsAre("a", "b", "c"));
}

TEST(Strsplit, WithNoRoomStoresNothing) {
    EXPECT_THAT(split("a", 0, ","), ElementsAre());
    EXPECT_THAT(split(",", 0, ","), ElementsAre());
}

TEST(Strsplit, OfAnEmptyOrNullTextGivesZero) {
    EXPECT_THAT(split("", 8, ","), ElementsAre());
    EXPECT_THAT(split(nullptr, 8, ","), ElementsAre());
}

TEST(Strsplit, OfDelimitersOnlyStoresOneNullEntryAndGivesOne) {
    char mark = '?';
    char* parts[2] = {&mark, &mark};
    EXPECT_EQ(korStrsplit(",,,", parts, 2, ","), 1);
    EXPECT_EQ(parts[0], nullptr);
    EXPECT_EQ(parts[1], &mark);
}

TEST(Strsplit, LeavesTheTextAlone) {
    char text[] = "a,b";
    split(text, 8, ",");
    EXPECT_STREQ(text, "a,b");
}

TEST(BuildFilename, JoinsTheComponentsWithSlashes) {
    EXPECT_EQ(owned(korBuildFilename("/etc", "kor", "kor-gl.conf", nullptr)),
              "/etc/kor/kor-gl.conf");
}

TEST(BuildFilename, DoublesNoSeparator) {
    EXPECT_EQ(owned(korBuildFilename("/etc/", "kor", "x", nullptr)), "/etc/kor/x");
    EXPECT_EQ(owned(korBuildFilename("a\\", "b", nullptr)), "a\\b");
}

TEST(BuildFilename, SkipsEmptyComponents) {
    EXPECT_EQ(owned(korBuildFilename("", "a", "", "b", "", nullptr)), "a/b");
}

TEST(BuildFilename, RemovesATrailingSeparatorThatTheLastComponentBrings) {
    EXPECT_EQ(owned(korBuildFilename("a", "b/", nullptr)), "a/b");
    EXPECT_EQ(owned(korBuildFilename("a", "b\\", nullptr)), "a/b");
    EXPECT_EQ(owned(korBuildFilename("/", nullptr)), "");
}

TEST(BuildFilename, OfNothingIsEmpty) {
    const char* none = nullptr;
    EXPECT_EQ(owned(korBuildFilename(none, nullptr)), "");
    EXPECT_EQ(owned(korBuildFilename("", nullptr)), "");
}

TEST(BuildFilename, GivesNullWhenTheJoinedTextExceedsItsBuffer) {
    const std::string fits(4094, 'x');
    EXPECT_EQ(owned(korBuildFilename(fits.c_str(), nullptr)), fits);
    EXPECT_EQ(owned(korBuildFilename((fits + "x").c_str(), nullptr)), "(null)");
    EXPECT_EQ(owned(korBuildFilename((fits + "/").c_str(), nullptr)), fits);
    EXPECT_EQ(owned(korBuildFilename("a", std::string(5000, 'x').c_str(), "b", nullptr)), "(null)");
}

struct ExtensionCase {
    const char* name;
    const char* list;
    const char* wanted;
    bool found;
};

class MatchExtension : public testing::TestWithParam<ExtensionCase> {};

TEST_P(MatchExtension, Finds) {
    EXPECT_EQ(matchExtension(GetParam().list, GetParam().wanted), GetParam().found);
}

INSTANTIATE_TEST_SUITE_P(
    Words, MatchExtension,
    testing::Values(
        ExtensionCase{"TheOnlyWord", "GLX_A", "GLX_A", true},
        ExtensionCase{"TheFirstWord", "GLX_A GLX_B", "GLX_A", true},
        ExtensionCase{"AMiddleWord", "GLX_A GLX_B GLX_C", "GLX_B", true},
        ExtensionCase{"TheLastWord", "GLX_A GLX_B", "GLX_B", true},
        ExtensionCase{"TheLastWordBeforeABlank", "GLX_A GLX_B ", "GLX_B", true},
        ExtensionCase{"NotAPrefix", "GLX_AB GLX_C", "GLX_A", false},
        ExtensionCase{"NotASuffix", "XGLX_A", "GLX_A", false},
        ExtensionCase{"TheWholeWordAfterAPrefixOfAnother", "GLX_AB GLX_A", "GLX_A", true},
        ExtensionCase{"NothingInAnEmptyList", "", "GLX_A", false},
        ExtensionCase{"NothingInANullList", nullptr, "GLX_A", false},
        ExtensionCase{"NoNullName", "GLX_A", nullptr, false},
        ExtensionCase{"NoEmptyName", "GLX_A", "", false},
        ExtensionCase{"NoNameWithABlank", "GLX_A GLX_B", "GLX_A GLX_B", false},
        ExtensionCase{"AHitRightBehindARejectedOne", "xGLX_AGLX_A", "GLX_A", true},
        ExtensionCase{"NoHitBehindARejectedOneAtADistance", "xGLX_A,GLX_A", "GLX_A", false}),
    [](const auto& info) { return info.param.name; });

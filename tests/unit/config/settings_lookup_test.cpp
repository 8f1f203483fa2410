#include "config/settings_lookup.h"

#include "../support/stderr_capture.h"
#include "sandbox.h"

#include <gmock/gmock.h>
#include <type_traits>

using kor::test::Sandbox;
using kor::test::StderrCapture;
using testing::HasSubstr;

static_assert(std::has_virtual_destructor_v<kor::Settings>);

namespace {

constexpr const char* variable = "KOR_GL_TRIED";

class Lookup : public testing::Test {
  protected:
    Sandbox sandbox;
    StderrCapture errors;

    struct Read : kor::Settings {
        Read() : kor::Settings("kor-gl.conf") { kor::Settings::parse(); }
        int number(int def = -1) const { return intSetting(variable, "gl", "key", def); }
        bool truth(bool def) const { return boolSetting(variable, "gl", "key", def); }
        double real(double def = -1) const { return doubleSetting(variable, "gl", "key", def); }
        std::string text(const char* def = nullptr) const {
            char* value = stringSetting(variable, "gl", "key", def);
            std::string copy = value != nullptr ? value : "(null)";
            free(value);
            return copy;
        }
    };

    static std::string withKey(const char* value) {
        return std::string("[gl]\nkey = ") + value + "\n";
    }
};

/// The value of one key in each source (null: not there), and what is found for each type. The
/// defaults are "default", -1, -1.0 and true.
struct Sources {
    const char* name;
    const char* admin;
    const char* environment;
    const char* user;
    const char* system;
    const char* text;
    int number;
    double real;
    bool truth;
};

class Precedence : public Lookup, public testing::WithParamInterface<Sources> {};

} // namespace

TEST_P(Precedence, OfTheSources) {
    const Sources& c = GetParam();
    if (c.admin != nullptr)
        sandbox.writeAdmin(withKey(c.admin));
    if (c.environment != nullptr)
        sandbox.set(variable, c.environment);
    if (c.user != nullptr)
        sandbox.writeUser(withKey(c.user));
    if (c.system != nullptr)
        sandbox.writeSystem(withKey(c.system));
    const Read settings;
    EXPECT_EQ(settings.text("default"), c.text);
    EXPECT_EQ(settings.number(), c.number);
    EXPECT_DOUBLE_EQ(settings.real(), c.real);
    EXPECT_EQ(settings.truth(true), c.truth);
    EXPECT_EQ(errors.text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Between, Precedence,
    testing::Values(
        Sources{"NoneGivesTheDefault", nullptr, nullptr, nullptr, nullptr, "default", -1, -1, true},
        Sources{"TheSystemFileAlone", nullptr, nullptr, nullptr, "0", "0", 0, 0, false},
        Sources{"TheUserFileBeforeTheSystemFile", nullptr, nullptr, "0", "1", "0", 0, 0, false},
        Sources{"TheEnvironmentBeforeTheUserFile", nullptr, "0", "1", "1", "0", 0, 0, false},
        Sources{"TheAdministratorBeforeTheEnvironment", "0", "1", "1", "1", "0", 0, 0, false},
        Sources{"TheNullWordOfTheAdministratorDefersToTheEnvironment", "<null>", "0", "1", "1", "0",
                0, 0, false},
        Sources{"TheNullWordOfTheEnvironmentDefersToTheUserFile", nullptr, "<null>", "0", "1", "0",
                0, 0, false},
        Sources{"TheNullWordOfTheUserFileDefersToTheSystemFile", nullptr, nullptr, "<null>", "0",
                "0", 0, 0, false},
        Sources{"TheNullWordEverywhereGivesTheDefault", "<null>", "<null>", "<null>", "<null>",
                "default", -1, -1, true},
        Sources{"AnEmptyValueDefersToTheNextSource", "", "", "", "0", "0", 0, 0, false},
        Sources{"WhatIsNoNumberDefersToTheNextSource", "word", "7x", "x7", "0", "word", 0, 0,
                false},
        Sources{"WhatConvertsNowhereGivesTheDefault", "word", "7x", "x7", "no", "word", -1, -1,
                true},
        Sources{"ATruthOutOfRangeDefersToTheNextSource", "2", "3", "4", "0", "2", 2, 2, false}),
    [](const auto& info) { return info.param.name; });

TEST_F(Lookup, ReadsNothingBeforeParse) {
    sandbox.writeUser(withKey("7"));
    const kor::Settings settings("kor-gl.conf");
    EXPECT_EQ(settings.intSetting(variable, "gl", "key", -1), -1);
}

TEST_F(Lookup, WithoutAnyFileIsSilent) {
    const Read settings;
    EXPECT_EQ(settings.number(30), 30);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Lookup, LooksInTheGivenSectionOnly) {
    sandbox.writeUser("key = 1\n[log]\nkey = 2\n");
    EXPECT_EQ(Read().number(), -1);
}

TEST_F(Lookup, MatchesSectionAndKeyWithoutRegardToCase) {
    sandbox.writeUser("[GL]\nKey = 7\n");
    EXPECT_EQ(Read().number(), 7);
}

TEST_F(Lookup, CopiesTheDefaultTextWhateverItIs) {
    const Read settings;
    EXPECT_EQ(settings.text(nullptr), "(null)");
    EXPECT_EQ(settings.text(""), "");
    EXPECT_EQ(settings.text("<null>"), "<null>");
}

TEST_F(Lookup, TrimsWhiteSpaceAroundAnEnvironmentValue) {
    sandbox.set(variable, " 25 ");
    EXPECT_EQ(Read().number(), 25);
    sandbox.set(variable, "\t\n 1.5 \r\n");
    EXPECT_DOUBLE_EQ(Read().real(), 1.5);
    sandbox.set(variable, "  a b  ");
    EXPECT_EQ(Read().text(), "a b");
    sandbox.set(variable, " 0 ");
    EXPECT_FALSE(Read().truth(true));
}

TEST_F(Lookup, AnEnvironmentValueOfWhiteSpaceCountsAsUnset) {
    sandbox.writeUser(withKey("7"));
    sandbox.set(variable, " \t ");
    const Read settings;
    EXPECT_EQ(settings.text(), "7");
    EXPECT_EQ(settings.number(), 7);
}

TEST_F(Lookup, ATextOfMoreThan1023BytesInTheEnvironmentCountsAsUnset) {
    sandbox.set(variable, std::string(1023, 'x'));
    EXPECT_EQ(Read().text("default"), std::string(1023, 'x'));
    sandbox.set(variable, std::string(1024, 'x'));
    EXPECT_EQ(Read().text("default"), "default");
}

TEST_F(Lookup, ANumberOfMoreThan31BytesInTheEnvironmentCountsAsUnset) {
    sandbox.set(variable, std::string(30, '0') + "7");
    EXPECT_EQ(Read().number(), 7);
    EXPECT_DOUBLE_EQ(Read().real(), 7);
    sandbox.set(variable, std::string(31, '0') + "7");
    EXPECT_EQ(Read().number(), -1);
    EXPECT_DOUBLE_EQ(Read().real(), -1);
    sandbox.set(variable, std::string(31, ' ') + "7"); // counted before it is trimmed
    EXPECT_EQ(Read().number(), -1);
}

TEST_F(Lookup, ATruthOfMoreThan7BytesInTheEnvironmentCountsAsUnset) {
    sandbox.set(variable, " false ");
    EXPECT_FALSE(Read().truth(true));
    sandbox.set(variable, "  false ");
    EXPECT_TRUE(Read().truth(true));
    sandbox.set(variable, "00000000");
    EXPECT_TRUE(Read().truth(true));
}

TEST_F(Lookup, AFileThatCannotBeParsedIsReportedAndIgnoredFromThenOn) {
    sandbox.writeAdmin("[gl]\nkey = 1\nbad\n");
    sandbox.writeUser(withKey("7"));
    Read settings;
    EXPECT_EQ(errors.text(),
              "Cannot parse .ini file \"kor-gl.conf.admin\": Parser error. (line 3)\n"
              "Cannot parse settings file \"kor-gl.conf.admin\":"
              "<errnum 1> <linenum 3> <errstr Parser error.>\n");
    EXPECT_EQ(settings.number(), 7);
    sandbox.writeAdmin(withKey("1"));
    const size_t reported = errors.text().size();
    settings.parse();
    EXPECT_EQ(settings.number(), 7);
    EXPECT_EQ(errors.text().size(), reported);
}

TEST_F(Lookup, AUserFileThatCannotBeParsedLeavesTheOthers) {
    sandbox.writeAdmin("[gl]\nother = 1\n");
    const std::string user = sandbox.writeUser("[gl\n");
    sandbox.writeSystem(withKey("7"));
    const Read settings;
    EXPECT_EQ(errors.text(), "Cannot parse .ini file \"" + user +
                                 "\": Parser error. (line 1)\n"
                                 "Cannot parse settings file \"" +
                                 user + "\":<errnum 1> <linenum 1> <errstr Parser error.>\n");
    EXPECT_EQ(settings.number(), 7);
    EXPECT_EQ(settings.intSetting("KOR_GL_OTHER", "gl", "other", -1), 1);
}

TEST_F(Lookup, AFileThatExistsButCannotBeOpenedIsReportedWithError6) {
    const std::string user = sandbox.writeUser("");
    Read settings;
    std::filesystem::remove(user);
    settings.parse();
    EXPECT_THAT(errors.text(),
                HasSubstr("Cannot parse settings file \"" + user +
                          "\":<errnum 6> <linenum 0> <errstr No such file or directory.>\n"));
}

TEST_F(Lookup, ASystemFileThatCannotBeParsedTakesTheUserFileWithIt) {
    sandbox.writeAdmin("[gl]\nadmin = 1\n");
    sandbox.writeUser(withKey("7"));
    sandbox.writeSystem("[gl]\nkey = 8\nbad\n");
    const Read settings;
    EXPECT_EQ(errors.text(),
              "Cannot parse .ini file \"/etc/kor/kor-gl.conf\": Parser error. (line 3)\n"
              "Cannot parse settings file \"/etc/kor/kor-gl.conf\":"
              "<errnum 1> <linenum 3> <errstr Parser error.>\n");
    EXPECT_EQ(settings.number(), -1);
    EXPECT_EQ(settings.text("default"), "default");
}

TEST_F(Lookup, AfterABrokenSystemFileAdministratorAndEnvironmentAreStillAsked) {
    sandbox.writeAdmin("[gl]\nadmin = 1\n");
    sandbox.writeUser(withKey("7"));
    sandbox.writeSystem("bad\n");
    sandbox.set(variable, "5");
    Read settings;
    EXPECT_EQ(settings.number(), 5);
    EXPECT_EQ(settings.intSetting("KOR_GL_ADMIN", "gl", "admin", -1), 1);
    const size_t reported = errors.text().size();
    settings.parse();
    EXPECT_EQ(settings.number(), 5);
    EXPECT_EQ(errors.text().size(), reported);
    settings.closeIniFiles();
    EXPECT_EQ(settings.number(), 5);
}

TEST_F(Lookup, ABrokenSystemFileWithoutAUserFileLeavesTheDefaults) {
    sandbox.writeSystem("bad\n");
    const Read settings;
    EXPECT_EQ(settings.number(), -1);
}

TEST_F(Lookup, AllThreeFilesMayBeBroken) {
    sandbox.writeAdmin("bad\n");
    sandbox.writeUser("bad\n");
    sandbox.writeSystem("bad\n");
    const Read settings;
    EXPECT_EQ(settings.number(), -1);
    // Reported in the order in which they are read.
    const std::string text = errors.text();
    const size_t admin = text.find("settings file \"kor-gl.conf.admin\"");
    const size_t user = text.find("settings file \"" + sandbox.path("home"));
    const size_t system = text.find("settings file \"/etc/kor");
    EXPECT_LT(admin, user);
    EXPECT_LT(user, system);
    EXPECT_NE(system, std::string::npos);
}

TEST_F(Lookup, ClosedFilesAreNoLongerAsked) {
    sandbox.writeAdmin(withKey("1"));
    sandbox.writeUser(withKey("2"));
    sandbox.writeSystem(withKey("3"));
    Read settings;
    settings.closeIniFiles();
    EXPECT_EQ(settings.number(), -1);
    sandbox.set(variable, "5");
    EXPECT_EQ(settings.number(), 5);
    settings.closeIniFiles();
    EXPECT_EQ(settings.number(), 5);
}

namespace {

/// Where the user's file is looked for. "@" in a variable's value stands for the sandbox's path.
struct UserFileCase {
    const char* name;
    const char* confdir; // null: unset
    const char* xdg;
    const char* home;
    const char* file; // null: there is no user file
};

class UserFile : public Lookup, public testing::WithParamInterface<UserFileCase> {
  protected:
    void give(const char* name, const char* value) {
        if (value == nullptr)
            sandbox.unset(name);
        else if (*value == '@')
            sandbox.set(name, sandbox.path(value + 1));
        else
            sandbox.set(name, value);
    }
};

} // namespace

TEST_P(UserFile, IsFound) {
    const UserFileCase& c = GetParam();
    const std::vector<std::string> places = {"own/kor-gl.conf", "xdg/kor/kor-gl.conf",
                                             "h/.config/kor/kor-gl.conf",
                                             "h/.kor/conf/kor-gl.conf"};
    for (const std::string& place : places)
        sandbox.write(place, withKey(place.c_str()));
    give("KOR_GL_USER_CONFDIR", c.confdir);
    give("XDG_CONFIG_HOME", c.xdg);
    give("HOME", c.home);
    EXPECT_EQ(Read().text(), c.file != nullptr ? c.file : "(null)");
}

INSTANTIATE_TEST_SUITE_P(
    By, UserFile,
    testing::Values(
        UserFileCase{"TheFolderOfItsOwnVariable", "@own", "@xdg", "@h", "own/kor-gl.conf"},
        UserFileCase{"XdgConfigHome", nullptr, "@xdg", "@h", "xdg/kor/kor-gl.conf"},
        UserFileCase{"XdgConfigHomeWithoutHome", nullptr, "@xdg", nullptr, "xdg/kor/kor-gl.conf"},
        UserFileCase{"HomeWhereXdgConfigHomeIsUnset", nullptr, nullptr, "@h",
                     "h/.config/kor/kor-gl.conf"},
        UserFileCase{"TheOldPlaceWhereXdgConfigHomeIsEmpty", nullptr, "", "@h",
                     "h/.kor/conf/kor-gl.conf"},
        UserFileCase{"TheOldPlaceWhereItsOwnVariableIsEmpty", "", "@xdg", "@h",
                     "h/.kor/conf/kor-gl.conf"},
        UserFileCase{"NothingWhereItsOwnVariableIsEmptyAndHomeUnset", "", "@xdg", nullptr, nullptr},
        UserFileCase{"NothingWhereHomeIsUnset", nullptr, nullptr, nullptr, nullptr},
        UserFileCase{"NothingWhereHomeIsEmpty", nullptr, nullptr, "", nullptr},
        UserFileCase{"NothingWhereBothAreEmpty", nullptr, "", "", nullptr},
        UserFileCase{"NothingElseWhereTheNamedFolderHoldsNone", "@missing", "@xdg", "@h", nullptr}),
    [](const auto& info) { return info.param.name; });

namespace {

/// A path of exactly length bytes that leads to the same folder ("/./././folder").
std::string padded(const std::string& path, size_t length) {
    std::string longer = path;
    while (longer.size() + 2 <= length)
        longer.insert(0, "/.");
    if (longer.size() < length)
        longer.insert(0, "/");
    return longer;
}

} // namespace

TEST_F(Lookup, AFolderVariableOf1024BytesCountsAsUnset) {
    sandbox.write("own/kor-gl.conf", withKey("1"));
    sandbox.writeUser(withKey("2"));
    sandbox.set("KOR_GL_USER_CONFDIR", padded(sandbox.path("own"), 1023));
    EXPECT_EQ(Read().number(), 1);
    sandbox.set("KOR_GL_USER_CONFDIR", padded(sandbox.path("own"), 1024));
    EXPECT_EQ(Read().number(), 2);
}

TEST_F(Lookup, AnXdgConfigHomeThatIsTooLongCountsAsUnset) {
    sandbox.write("xdg/kor/kor-gl.conf", withKey("1"));
    sandbox.writeUser(withKey("2"));
    sandbox.set("XDG_CONFIG_HOME", padded(sandbox.path("xdg"), 1024));
    EXPECT_EQ(Read().number(), 2);
}

TEST_F(Lookup, ABaseFolderThatDoesNotFitIsNoneAndTheOldPlaceIsTaken) {
    sandbox.write("xdg/kor/kor-gl.conf", withKey("1"));
    sandbox.write("home/.kor/conf/kor-gl.conf", withKey("2"));
    sandbox.set("XDG_CONFIG_HOME", padded(sandbox.path("xdg"), 1019)); // 4 bytes and the end fit
    EXPECT_EQ(Read().number(), 1);
    sandbox.set("XDG_CONFIG_HOME", padded(sandbox.path("xdg"), 1020));
    EXPECT_EQ(Read().number(), 2);
}

TEST_F(Lookup, AHomeWhoseConfigFolderDoesNotFitLeadsToTheOldPlace) {
    sandbox.writeUser(withKey("1"));
    sandbox.write("home/.kor/conf/kor-gl.conf", withKey("2"));
    sandbox.set("HOME", padded(sandbox.path("home"), 1011)); // "/.config/kor" and the end fit
    EXPECT_EQ(Read().number(), 1);
    sandbox.set("HOME", padded(sandbox.path("home"), 1012));
    EXPECT_EQ(Read().number(), 2);
    sandbox.set("HOME", padded(sandbox.path("home"), 1024));
    EXPECT_EQ(Read().number(), -1);
}

TEST_F(Lookup, TheAdministratorsFileIsLookedForInTheWorkingDirectoryOnly) {
    sandbox.write("system/kor-gl.conf.admin", withKey("1"));
    sandbox.write("home/.config/kor/kor-gl.conf.admin", withKey("2"));
    EXPECT_EQ(Read().number(), -1);
    sandbox.write("elsewhere/kor-gl.conf.admin", withKey("3"));
    std::filesystem::current_path(sandbox.path("elsewhere"));
    EXPECT_EQ(Read().number(), 3);
}

TEST_F(Lookup, TheFilesAreSoughtInTheOrderAdministratorUserSystem) {
    kor::test::accessed.clear();
    const kor::Settings settings("kor-gl.conf");
    EXPECT_THAT(kor::test::accessed,
                testing::ElementsAre("kor-gl.conf.admin",
                                     sandbox.path("home/.config/kor/kor-gl.conf"),
                                     "/etc/kor/kor-gl.conf"));
}

TEST_F(Lookup, TheFilesAreThoseThatExistedAtConstruction) {
    Read settings;
    sandbox.writeUser(withKey("7"));
    settings.parse();
    EXPECT_EQ(settings.number(), -1);
}

TEST_F(Lookup, TheNameOfTheFilesIsTheGivenOne) {
    sandbox.write("system/other.conf", withKey("7"));
    sandbox.writeSystem(withKey("1"));
    kor::Settings settings("other.conf");
    settings.parse();
    EXPECT_EQ(settings.intSetting(variable, "gl", "key", -1), 7);
}

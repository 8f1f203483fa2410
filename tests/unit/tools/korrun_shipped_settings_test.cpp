#include "shipped_settings.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>

namespace files = std::filesystem;
using testing::ElementsAre;

namespace {

constexpr const char* strategy = "KOR_GL_COPYBACK_STRATEGY";
constexpr const char* freeing = "KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT";

/// A user without settings, whose home is a folder of the test's own.
class ShippedSettings : public testing::Test {
  protected:
    ShippedSettings() {
        std::string name = files::temp_directory_path() / "kor-shipped-XXXXXX";
        home = mkdtemp(name.data());
        setenv("HOME", home.c_str(), 1);
        for (const char* variable : {"XDG_CONFIG_HOME", "KOR_GL_USER_CONFDIR", strategy, freeing})
            unsetenv(variable);
    }
    ~ShippedSettings() override { files::remove_all(home); }

    std::string write(const std::string& text) const {
        const files::path path = home / ".config/kor/kor-gl.conf";
        files::create_directories(path.parent_path());
        std::ofstream(path) << text;
        return path;
    }
    bool setsStrategy(const std::string& text) const {
        return korrun::setsKey(write(text), "gl", "copyback-strategy");
    }
    static std::string value(const char* variable) {
        const char* text = std::getenv(variable);
        return text != nullptr ? text : "unset";
    }

    files::path home;
};

} // namespace

TEST_F(ShippedSettings, AreGivenWhereTheUserHasSetNothing) {
    // A machine with an installation has it in the system file.
    const auto expected = [](const char* key, const char* given) {
        return korrun::setsKey("/etc/kor/kor-gl.conf", "gl", key) ? "unset" : given;
    };
    korrun::giveShippedSettings();
    EXPECT_EQ(value(strategy), expected("copyback-strategy", "0"));
    EXPECT_EQ(value(freeing), expected("free-drawables-without-context", "true"));
}

TEST_F(ShippedSettings, LeaveAVariableOfTheUsersAlone) {
    setenv(strategy, "2", 1);
    setenv(freeing, "", 1);
    korrun::giveShippedSettings();
    EXPECT_EQ(value(strategy), "2");
    EXPECT_EQ(value(freeing), "");
}

TEST_F(ShippedSettings, OverrideNoSettingOfTheUsersFile) {
    write("[gl]\ncopyback-strategy = 1\n");
    korrun::giveShippedSettings();
    EXPECT_EQ(value(strategy), "unset");
}

TEST_F(ShippedSettings, AFileSetsAKeyOnlyWithAValueInItsSection) {
    EXPECT_TRUE(setsStrategy("[GL]\n  Copyback-Strategy :2 ; plain\n"));
    EXPECT_TRUE(
        setsStrategy("# a comment\n[log]\nlevel=info\n[gl] ; a section\ncopyback-strategy=1"));
    EXPECT_FALSE(setsStrategy("[gl]\n#copyback-strategy = 1\n"));
    EXPECT_FALSE(setsStrategy("[log]\ncopyback-strategy = 1\n"));
    EXPECT_FALSE(setsStrategy("copyback-strategy = 1\n"));
    EXPECT_FALSE(setsStrategy("[gl]\ncopyback-strategy =\n"));
    EXPECT_FALSE(setsStrategy("[gl]\ncopyback-strategy = <null>\n"));
    EXPECT_FALSE(setsStrategy("[gl]\ncopyback-strategy-of-mine = 1\n"));
    EXPECT_FALSE(setsStrategy("[\n"));
}

TEST_F(ShippedSettings, AFileThatIsNoneIsNotWaitedFor) {
    const std::string pipe = home / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(korrun::setsKey(pipe, "gl", "copyback-strategy"));
    EXPECT_FALSE(korrun::setsKey(home, "gl", "copyback-strategy"));
    EXPECT_FALSE(korrun::setsKey(home / "none", "gl", "copyback-strategy"));
}

TEST_F(ShippedSettings, TheUsersFileIsWhereTheLibraryLooksForIt) {
    const std::string system = "/etc/kor/kor-gl.conf";
    EXPECT_THAT(korrun::settingsFiles(),
                ElementsAre((home / ".config/kor/kor-gl.conf").string(), system));
    setenv("XDG_CONFIG_HOME", "/x", 1);
    EXPECT_THAT(korrun::settingsFiles(), ElementsAre("/x/kor/kor-gl.conf", system));
    setenv("KOR_GL_USER_CONFDIR", "/own", 1);
    EXPECT_THAT(korrun::settingsFiles(), ElementsAre("/own/kor-gl.conf", system));
    setenv("KOR_GL_USER_CONFDIR", "", 1);
    const std::string old = home / ".kor/conf/kor-gl.conf";
    EXPECT_THAT(korrun::settingsFiles(), ElementsAre(old, system));
    unsetenv("KOR_GL_USER_CONFDIR");
    setenv("XDG_CONFIG_HOME", "", 1);
    EXPECT_THAT(korrun::settingsFiles(), ElementsAre(old, system));
    unsetenv("HOME");
    EXPECT_THAT(korrun::settingsFiles(), ElementsAre(system));
}

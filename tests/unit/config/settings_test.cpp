#include "config/settings.h"

#include "../support/stderr_capture.h"
#include "in_child.h"
#include "sandbox.h"

#include <cstring>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>

using kor::conf::Settings;
using kor::test::inChild;
using kor::test::Sandbox;

namespace {

/// One setting as users know it: written down here a second time, so that a change of the table
/// that they would notice is noticed here first.
struct Expected {
    const char* key;
    const char* section;
    const char* variable;
    const char* type;
    const char* value; // the default; null: none
};

constexpr Expected expected[] = {
    {"verbose", "log", "KOR_GL_VERBOSE", "bool", "false"},
    {"level", "log", "KOR_GL_LOG_LEVEL", "text", "warning"},
    {"directory", "log", "KOR_GL_LOG_DIR", "text", nullptr},
    {"unset-local-display", "gl", "KOR_GL_UNSET_LOCAL_DISPLAY", "bool", "false"},
    {"override-cached-display", "gl", "KOR_GL_OVERRIDE_CACHED_DISPLAY", "bool", "true"},
    {"blacklist", "gl", "KOR_GL_BLACKLIST", "text", nullptr},
    {"skip-double-swap", "gl", "KOR_GL_SKIP_DOUBLE_SWAP", "bool", "false"},
    {"cleanup-atexit", "Wrapper", "KOR_GL_CLEANUP_ATEXIT", "bool", "true"},
    {"disable-driver-unload", "Wrapper", "KOR_GL_DISABLE_DRIVER_UNLOAD", "bool", "true"},
    {"disable-kor-gl-unload", "Wrapper", "KOR_GL_DISABLE_KOR_GL_UNLOAD", "bool", "false"},
    {"print-kor-version", "gl", "KOR_GL_PRINT_VERSION", "bool", "false"},
    {"gl-display", "gl", "KOR_GL_DISPLAY", "text", nullptr},
    {"debug-wait", "gl", "KOR_GL_DEBUG_WAIT", "bool", "false"},
    {"force-best-fbconfig", "gl", "KOR_GL_FORCE_BEST_FBCONFIG", "bool", "true"},
    {"add-gl-debug-callback", "gl", "KOR_GL_ADD_GL_DEBUG_CALLBACK", "bool", "false"},
    {"multisample", "gl", "KOR_GL_MULTISAMPLE", "int", "0"},
    {"glx-ext-blacklist", "gl", "KOR_GL_GLX_EXT_BLACKLIST", "text", nullptr},
    {"copyback-frame-rate", "gl", "KOR_GL_COPYBACK_FRAME_RATE", "int", "30"},
    {"readback-interval", "gl", "KOR_GL_READBACK_INTERVAL", "int", "0"},
    {"no-readback", "gl", "KOR_GL_NO_READBACK", "bool", "false"},
    {"original-vendor", "gl", "KOR_GL_ORIGINAL_VENDOR", "bool", "false"},
    {"use-sample-queries", "gl", "KOR_GL_USE_SAMPLE_QUERIES", "bool", "true"},
    {"usexfont-mode", "gl", "KOR_GL_USEXFONT_MODE", "int", "0"},
    {"enable-visibility-check", "gl", "KOR_GL_ENABLE_VISIBILITY_CHECK", "bool", "true"},
    {"double-check-visible", "gl", "KOR_GL_DOUBLE_CHECK_VISIBLE", "bool", "true"},
    {"glxwaitx-sync-app-display", "gl", "KOR_GL_GLXWAITX_SYNC_APPDISPLAY", "bool", "false"},
    {"viewport-resize-optimization", "gl", "KOR_GL_VIEWPORT_RESIZE_OPTIMIZATION", "bool", "false"},
    {"copyback-strategy", "gl", "KOR_GL_COPYBACK_STRATEGY", "int", "1"},
    {"free-drawables-without-context", "gl", "KOR_GL_FREE_DRAWABLES_WITHOUT_CONTEXT", "bool",
     "false"},
};

std::string asText(bool value) {
    return value ? "true" : "false";
}
std::string asText(int value) {
    return std::to_string(value);
}
std::string asText(const char* value) {
    return value != nullptr ? value : "(null)";
}

/// The present values, in the table's order.
std::vector<std::string> values(const Settings& settings) {
    using text = const char*;
    return {
#define KOR_SETTING(type, field, key, section, env, def, description)                              \
    asText(static_cast<type>(settings.field.load())),
#include "config/settings.def"
#undef KOR_SETTING
    };
}

std::vector<std::string> defaults() {
    std::vector<std::string> all;
    for (const Expected& setting : expected)
        all.push_back(asText(setting.value));
    return all;
}

/// A value of the setting's type that is not its default.
std::string anotherValue(const Expected& setting) {
    if (strcmp(setting.type, "bool") == 0)
        return strcmp(setting.value, "true") == 0 ? "false" : "true";
    return strcmp(setting.type, "int") == 0 ? "17" : "another text";
}

class SettingsTest : public testing::Test {
  protected:
    Sandbox sandbox;
};

class EverySetting : public SettingsTest, public testing::WithParamInterface<size_t> {
  protected:
    const Expected& setting = expected[GetParam()];

    /// The defaults, but for this setting.
    std::vector<std::string> changed() const {
        std::vector<std::string> all = defaults();
        all[GetParam()] = anotherValue(setting);
        return all;
    }
    std::string file(const char* section) const {
        return std::string("[") + section + "]\n" + setting.key + " = " + anotherValue(setting) +
               "\n";
    }
};

std::string settingName(const testing::TestParamInfo<size_t>& info) {
    std::string name = expected[info.param].key;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Table, EverySetting, testing::Range(size_t{0}, std::size(expected)),
                         settingName);

TEST(SettingsTable, HasTheseRowsInThisOrder) {
    struct Row {
        const char *key, *section, *variable, *type;
    };
    constexpr Row rows[] = {
#define KOR_SETTING(type, field, key, section, env, def, description) {key, section, env, #type},
#include "config/settings.def"
#undef KOR_SETTING
    };
    ASSERT_EQ(std::size(rows), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        EXPECT_STREQ(rows[i].key, expected[i].key);
        EXPECT_STREQ(rows[i].section, expected[i].section) << expected[i].key;
        EXPECT_STREQ(rows[i].variable, expected[i].variable) << expected[i].key;
        EXPECT_STREQ(rows[i].type, expected[i].type) << expected[i].key;
    }
}

TEST_F(SettingsTest, AreTheDefaultsWhereNothingIsSet) {
    EXPECT_EQ(values(Settings()), defaults());
}

TEST_P(EverySetting, IsReadFromItsVariable) {
    sandbox.set(setting.variable, anotherValue(setting));
    EXPECT_EQ(values(Settings()), changed());
}

TEST_P(EverySetting, IsReadFromTheAdministratorsFile) {
    sandbox.writeAdmin(file(setting.section));
    EXPECT_EQ(values(Settings()), changed());
}

TEST_P(EverySetting, IsReadFromTheUsersFile) {
    sandbox.writeUser(file(setting.section));
    EXPECT_EQ(values(Settings()), changed());
}

TEST_P(EverySetting, IsReadFromTheSystemFile) {
    sandbox.writeSystem(file(setting.section));
    EXPECT_EQ(values(Settings()), changed());
}

TEST_P(EverySetting, IsNotReadFromAnotherSection) {
    sandbox.writeSystem(file("other"));
    EXPECT_EQ(values(Settings()), defaults());
}

TEST_F(SettingsTest, TakeNumbersAsTheyAre) {
    sandbox.set("KOR_GL_COPYBACK_FRAME_RATE", "-5");
    sandbox.set("KOR_GL_COPYBACK_STRATEGY", "99");
    const Settings settings;
    EXPECT_EQ(settings.copybackFrameRate, -5);
    EXPECT_EQ(settings.copybackStrategy, 99);
}

TEST_F(SettingsTest, AFrameRateWithBlanksAroundItCounts) {
    sandbox.set("KOR_GL_COPYBACK_FRAME_RATE", " 25 ");
    EXPECT_EQ(Settings().copybackFrameRate, 25);
}

TEST_F(SettingsTest, AFrameRateFollowedByLettersLeavesFilesAndDefault) {
    sandbox.set("KOR_GL_COPYBACK_FRAME_RATE", "25fps");
    EXPECT_EQ(Settings().copybackFrameRate, 30);
    sandbox.writeSystem("[gl]\ncopyback-frame-rate = 12\n");
    EXPECT_EQ(Settings().copybackFrameRate, 12);
}

TEST_F(SettingsTest, VerboseTakesTrueInCapitalsOneAndZeroButNotYes) {
    const auto verbose = [&](const char* value) {
        sandbox.set("KOR_GL_VERBOSE", value);
        return Settings().verbose.load();
    };
    EXPECT_FALSE(verbose("yes"));
    EXPECT_TRUE(verbose("TRUE"));
    EXPECT_TRUE(verbose("1"));
    EXPECT_FALSE(verbose("0"));
    sandbox.writeSystem("[log]\nverbose = true\n");
    EXPECT_TRUE(verbose("yes"));
    EXPECT_FALSE(verbose("0"));
}

TEST_F(SettingsTest, ParsingAgainReadsFilesAndEnvironmentAnew) {
    sandbox.writeUser("[gl]\ngl-display = :5\nmultisample = 4\n");
    Settings settings;
    EXPECT_STREQ(settings.glDisplay, ":5");
    sandbox.writeUser("[gl]\ngl-display = :6\n");
    sandbox.set("KOR_GL_READBACK_INTERVAL", "20");
    settings.parse();
    EXPECT_STREQ(settings.glDisplay, ":6");
    EXPECT_EQ(settings.multisample, 0);
    EXPECT_EQ(settings.readbackInterval, 20);
}

TEST_F(SettingsTest, ParseGoesThroughTheVirtualSlot) {
    Settings settings;
    sandbox.set("KOR_GL_MULTISAMPLE", "8");
    static_cast<kor::Settings&>(settings).parse();
    EXPECT_EQ(settings.multisample, 8);
}

TEST_F(SettingsTest, FreeSettingsFreesTheTextsAndNothingElse) {
    sandbox.set("KOR_GL_MULTISAMPLE", "8");
    for (const char* name : {"KOR_GL_LOG_LEVEL", "KOR_GL_LOG_DIR", "KOR_GL_BLACKLIST",
                             "KOR_GL_DISPLAY", "KOR_GL_GLX_EXT_BLACKLIST"})
        sandbox.set(name, "text");
    Settings settings;
    settings.freeSettings();
    EXPECT_EQ(settings.level, nullptr);
    EXPECT_EQ(settings.directory, nullptr);
    EXPECT_EQ(settings.blacklist, nullptr);
    EXPECT_EQ(settings.glDisplay, nullptr);
    EXPECT_EQ(settings.glxExtBlacklist, nullptr);
    EXPECT_EQ(settings.multisample, 8);
    settings.freeSettings();
}

TEST_F(SettingsTest, TheSingletonIsOneAndReadsTheFilesAtItsCreation) {
    sandbox.writeUser("[gl]\nmultisample = 4\n");
    const auto child = inChild([] {
        Settings::init();
        Settings* first = Settings::instance();
        Settings::init();
        return first == Settings::instance() && first == &kor::conf::settings() &&
                       first->multisample == 4
                   ? 0
                   : 1;
    });
    EXPECT_EQ(child.status, 0);
}

TEST_F(SettingsTest, ReloadReadsTheFilesOfTheSingletonAnew) {
    sandbox.writeUser("[gl]\nmultisample = 4\n");
    const auto child = inChild([this] {
        Settings::init();
        sandbox.writeUser("[gl]\nmultisample = 2\n");
        sandbox.writeSystem("[gl]\nreadback-interval = 7\n"); // not there at construction
        if (Settings::instance()->multisample != 4)
            return 1;
        Settings::reload();
        return Settings::instance()->multisample == 2 && Settings::instance()->readbackInterval == 0
                   ? 0
                   : 2;
    });
    EXPECT_EQ(child.status, 0);
}

TEST_F(SettingsTest, ReloadGivesTheMemoryOfTheOldTextsBack) {
    sandbox.set("KOR_GL_LOG_DIR", std::string(200, 'd'));
    const auto child = inChild([] {
        Settings::init();
        Settings::reload();
        const size_t before = mallinfo2().uordblks; // always 0 under a sanitizer
        for (int i = 0; i < 1000; ++i)
            Settings::reload();
        return mallinfo2().uordblks <= before + 50'000 ? 0 : 1;
    });
    EXPECT_EQ(child.status, 0);
}

TEST_F(SettingsTest, AFileThatFailedIsGoneForTheReloadToo) {
    sandbox.writeUser("bad\n");
    const auto child = inChild([this] {
        Settings::init();
        sandbox.writeUser("[gl]\nmultisample = 2\n");
        Settings::reload();
        return Settings::instance()->multisample.load();
    });
    EXPECT_EQ(child.status, 0);
}

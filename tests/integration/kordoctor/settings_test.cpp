// Settings: every value with its source, and whatever keeps one from taking effect.
#include "config/settings_lookup.h"
#include "doctor_fixture.h"

#include <sys/stat.h>

using namespace kor::test;
using testing::AllOf;
using testing::HasSubstr;

namespace {

constexpr const char* userFile = ".config/kor/kor-gl.conf";
constexpr const char* adminFile = "kor-gl.conf.admin"; // in the working folder

} // namespace

TEST_F(DoctorTest, EverySettingIsThereWithItsDefault) {
    const Diagnosis found = diagnoseBlindly();
#define KOR_SETTING(type, field, key, section, env, def, description)                              \
    EXPECT_THAT(found["setting." key], HasStatus("ok"));                                           \
    EXPECT_THAT(found["setting." key].result,                                                      \
                HasSubstr(std::string(key) == "gl-display" ? "KOR_GL_DISPLAY" : " (default)"));
#include "config/settings.def"
#undef KOR_SETTING
    EXPECT_EQ(found["setting.copyback-frame-rate"].result, "30 (default)");
    EXPECT_EQ(found["setting.directory"].result, "none (default)");
    EXPECT_EQ(found["setting.force-best-fbconfig"].result, "true (default)");
    EXPECT_THAT(found["settings-files"], HasStatus("ok"));
    EXPECT_EQ(found["settings-files"].result, "there is none");
    EXPECT_THAT(found["settings-variables"], HasStatus("ok"));
    EXPECT_THAT(found["log-directory"], HasStatus("ok"));
    EXPECT_THAT(found["gl-single-threaded"], HasStatus("ok"));
}

TEST_F(DoctorTest, SourcesAreNamedByPrecedence) {
    put(userFile, "# mine\n[gl]\ncopyback-frame-rate = 20\nmultisample = 4\n"
                  "Readback-Interval: 7\nreadback-interval = 8\n");
    put(adminFile, "\n\n[GL]\nCopyback-Frame-Rate = 10\n");
    const Diagnosis found =
        diagnoseBlindly({{"KOR_GL_COPYBACK_FRAME_RATE", "15"}, {"KOR_GL_MULTISAMPLE", " 2 "}});
    EXPECT_EQ(found["setting.copyback-frame-rate"].result, "10 (kor-gl.conf.admin, line 4)");
    EXPECT_EQ(found["setting.multisample"].result, "2 (variable KOR_GL_MULTISAMPLE)");
    EXPECT_EQ(found["setting.readback-interval"].result, "8 (" + path(userFile) + ", line 6)");
    EXPECT_THAT(found["settings-files"].result,
                AllOf(HasSubstr("kor-gl.conf.admin (administrator's)"),
                      HasSubstr(path(userFile) + " (user's)")));
}

TEST_F(DoctorTest, ValuesThatCannotBeReadAreNamed) {
    put(userFile, "[gl]\ncopyback-frame-rate = fast\nno-readback = <null>\n[log]\nlevel = loud\n");
    const Diagnosis found = diagnoseBlindly(
        {{"KOR_GL_SKIP_DOUBLE_SWAP", "yes"}, {"KOR_GL_MULTISAMPLE", "4x"}, {"KOR_GL_VERBOSE", ""}});
    const Finding rate = found["setting.copyback-frame-rate"];
    EXPECT_THAT(rate, HasStatus("warning"));
    EXPECT_EQ(rate.result, "30 (default); passed over: \"fast\" in " + path(userFile) + ", line 2");
    EXPECT_THAT(rate.advice, HasSubstr("whole number"));
    EXPECT_THAT(found["setting.skip-double-swap"], HasStatus("warning"));
    EXPECT_THAT(found["setting.skip-double-swap"].result,
                HasSubstr("\"yes\" in variable KOR_GL_SKIP_DOUBLE_SWAP"));
    EXPECT_THAT(found["setting.multisample"], HasStatus("warning"));
    EXPECT_THAT(found["setting.no-readback"], HasStatus("ok")) << "no value is no wrong value";
    EXPECT_THAT(found["setting.verbose"], HasStatus("ok"));
    EXPECT_THAT(found["setting.level"], HasStatus("warning"));
    EXPECT_THAT(found["setting.level"].result, HasSubstr("none of error, warning"));
}

TEST_F(DoctorTest, FilesThatAreWrongAreNamedWithTheLine) {
    put(userFile, "[gl]\ncopyback-frame-rate = 20\nthis is no setting\n");
    const Diagnosis found = diagnoseBlindly();
    EXPECT_THAT(found["settings-files"], HasStatus("broken"));
    EXPECT_THAT(found["settings-files"].result, HasSubstr(path(userFile) + ", line 3: "));
    EXPECT_EQ(found["setting.copyback-frame-rate"].result, "30 (default)")
        << "the library ignores the file as a whole";
}

TEST_F(DoctorTest, LinesThatNobodyReadsAreNamed) {
    put(userFile, "[gl]\ncopyback-framerate = 20\n[log]\nno-readback = true\n");
    const Diagnosis found = diagnoseBlindly();
    EXPECT_THAT(found["settings-files"], HasStatus("warning"));
    EXPECT_THAT(found["settings-files"].result,
                AllOf(HasSubstr("line 2: copyback-framerate is no setting"),
                      HasSubstr("line 4: no-readback belongs into section [gl]")));
    EXPECT_THAT(found["settings-files"].advice, HasSubstr("kor-gl.conf(5)"));
    EXPECT_EQ(found["setting.no-readback"].result, "false (default)");
}

TEST_F(DoctorTest, FileThatCannotBeReadIsSaid) {
    std::filesystem::create_directories(path(userFile));
    const Diagnosis folder = diagnoseBlindly();
    EXPECT_THAT(folder["settings-files"], HasStatus("broken"));
    EXPECT_THAT(folder["settings-files"].result, HasSubstr(path(userFile)));
}

TEST_F(DoctorTest, FileThatTheLibraryRefusesIsSaidAndWhy) {
    put("elsewhere", "[gl]\ncopyback-frame-rate = 20\n");
    std::filesystem::create_directories(path(".config/kor"));
    std::filesystem::create_symlink(path("elsewhere"), path(userFile));
    const Diagnosis linked = diagnoseBlindly();
    EXPECT_THAT(linked["settings-files"], HasStatus("broken"));
    EXPECT_EQ(linked["settings-files"].result, path(userFile) + " is a symbolic link");
    EXPECT_EQ(linked["setting.copyback-frame-rate"].result, "30 (default)");
    std::filesystem::remove(path(userFile));
    ASSERT_EQ(mkfifo(path(userFile).c_str(), 0600), 0);
    EXPECT_EQ(diagnoseBlindly()["settings-files"].result, path(userFile) + " is no regular file");
}

TEST_F(DoctorTest, VariablesThatNobodyReadsAreNamed) {
    const Diagnosis found =
        diagnoseBlindly({{"KOR_GL_FRAMERATE", "20"}, {"KOR_GL_READBACK_INTERVAL", "5"}});
    EXPECT_THAT(found["settings-variables"], HasStatus("warning"));
    EXPECT_THAT(found["settings-variables"].result, HasSubstr("KOR_GL_FRAMERATE is set"));
    EXPECT_THAT(found["settings-variables"].advice, HasSubstr("kor-gl.conf(5)"));
    EXPECT_THAT(diagnoseBlindly({{"KOR_GL_READBACK_INTERVAL", "5"}})["settings-variables"],
                HasStatus("ok"));
}

TEST_F(DoctorTest, SettingsThatHideEverythingAreSaid) {
    const Diagnosis found =
        diagnoseBlindly({{"KOR_GL_NO_READBACK", "true"}, {"KOR_GL_COPYBACK_FRAME_RATE", "0"}});
    EXPECT_THAT(found["setting.no-readback"], HasStatus("warning"));
    EXPECT_THAT(found["setting.copyback-frame-rate"], HasStatus("warning"));
    EXPECT_THAT(found["setting.copyback-frame-rate"].result, HasSubstr("one frame a second"));
}

TEST_F(DoctorTest, LogDirectoryIsTried) {
    std::filesystem::create_directories(path("logs"));
    const Diagnosis well = diagnoseBlindly({{"KOR_GL_LOG_DIR", path("logs")}});
    EXPECT_THAT(well["log-directory"], HasStatus("ok"));
    EXPECT_TRUE(std::filesystem::is_empty(path("logs"))) << "nothing is left there";
    const Diagnosis missing = diagnoseBlindly({{"KOR_GL_LOG_DIR", path("nowhere")}});
    EXPECT_THAT(missing["log-directory"], HasStatus("warning"));
    EXPECT_THAT(missing["log-directory"].result, HasSubstr("No such file"));
    EXPECT_THAT(missing["log-directory"].advice, HasSubstr("variable KOR_GL_LOG_DIR"));
    put("file", "");
    EXPECT_THAT(diagnoseBlindly({{"KOR_GL_LOG_DIR", path("file")}})["log-directory"],
                HasStatus("warning"));
}

TEST_F(DoctorTest, FullDiskOfTheLogIsSaid) {
    std::filesystem::create_directories(path("logs"));
    std::vector<std::string> before = inOwnNamespace("--mount");
    before.insert(before.end(), {"sh", "-c",
                                 "mount -t tmpfs -o size=64k none logs && "
                                 "head -c 65536 /dev/zero > logs/full; exec \"$@\"",
                                 "sh"});
    const Diagnosis found =
        diagnose({{"KOR_GL_LOG_DIR", path("logs")}, {"KOR_GL_DISPLAY", noDisplay}}, {}, before);
    EXPECT_THAT(found["log-directory"], HasStatus("warning"));
    EXPECT_THAT(found["log-directory"].result, HasSubstr("No space left"));
}

TEST_F(DoctorTest, SingleThreadedDriverIsRefused) {
    const Diagnosis found = diagnoseBlindly({{"__GL_SINGLE_THREADED", ""}});
    EXPECT_THAT(found["gl-single-threaded"], HasStatus("broken"));
    EXPECT_THAT(found["gl-single-threaded"].advice, HasSubstr("unset"));
}

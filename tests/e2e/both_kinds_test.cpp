// Libraries of both kinds installed into one prefix: its 64-bit programs serve 32-bit programs too.
#include <gmock/gmock.h> // before the X headers, whose macros have names of its types

#include "session.h"

#include <filesystem>

namespace kor::e2e {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr std::chrono::seconds kTime(90);

/// Draws, checks the picture in its window and says by which front it came.
const std::string client32 = KOR_LOADING_BIN_DIR "/linked_gl_client";
const std::string neutralClient32 = KOR_LOADING_BIN_DIR "/linked_glvnd_client";

class BothKinds : public testing::TestWithParam<const char*> {};

// The environment is one for all that korrun starts: each program takes what fits it.
TEST_P(BothKinds, ProgramsOfEachAreServedInOneSession) {
    const std::string front = GetParam();
    test::Command command;
    command.arguments = {KOR_BOTH_KINDS "/bin/korrun",
                         "--session",
                         "--front=" + front,
                         "sh",
                         "-c",
                         "\"$1\" secure && glxinfo -B",
                         "sh",
                         client32};
    command.environment = {{"KOR_GL_PRINT_VERSION", "1"}, {"LD_LIBRARY_PATH", std::nullopt}};
    const test::CommandResult result = runCommand(command, kTime);
    EXPECT_EQ(result.status, 0) << summary(result);
    EXPECT_THAT(result.output,
                HasSubstr("library: yes, front: " + (front == "classic" ? front : "vendor")));
    EXPECT_THAT(result.output, HasSubstr("OpenGL renderer string: "));
    EXPECT_THAT(result.errors, HasSubstr("(32 bit version)"));
    EXPECT_THAT(result.errors, HasSubstr("(64 bit version)"));
    EXPECT_THAT(result.errors, Not(HasSubstr("KOR-GL: "))) << "a front complains";
}

INSTANTIATE_TEST_SUITE_P(Fronts, BothKinds, testing::Values("classic", "glvnd", "auto"),
                         [](const auto& info) { return std::string(info.param); });

/// A copy of the installation that a test may break.
class DoctorOfBothKinds : public testing::Test {
  protected:
    void SetUp() override {
        char path[] = "/tmp/kor-both-kinds-XXXXXX";
        ASSERT_NE(mkdtemp(path), nullptr);
        folder = path;
        fs::copy(KOR_BOTH_KINDS, folder, fs::copy_options::recursive);
        libraries = folder / "lib/i386-linux-gnu";
    }
    void TearDown() override { fs::remove_all(folder); }

    /// The line of one check, and the advice below it where there is one.
    [[nodiscard]] std::string check(const std::string& id,
                                    const std::vector<std::string>& arguments = {}) const {
        test::Command command;
        command.arguments = {folder / "bin/kordoctor", "--json"};
        command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
        command.environment = {{"DISPLAY", std::nullopt},
                               {"KOR_GL_DISPLAY", ":65000"}, // it must not look at a real one
                               {"LD_LIBRARY_PATH", std::nullopt}};
        const test::CommandResult result = runCommand(command, kTime);
        const std::size_t begin = result.output.find("{\"id\": \"" + id + "\"");
        if (begin == std::string::npos)
            return summary(result);
        return result.output.substr(begin, result.output.find('\n', begin) - begin);
    }

    fs::path folder;
    fs::path libraries;
};

TEST_F(DoctorOfBothKinds, TellsThatTheLibrariesAreThere) {
    const std::string found = check("libraries-32-bit");
    EXPECT_THAT(found, HasSubstr("\"status\": \"ok\""));
    EXPECT_THAT(found, HasSubstr(libraries / "kor/libGL.so.1"));
    const std::string versions = check("versions");
    EXPECT_THAT(versions, HasSubstr("\"status\": \"ok\""));
    EXPECT_THAT(versions, HasSubstr("all 11 parts"));
}

TEST_F(DoctorOfBothKinds, TellsThatOneIsMissing) {
    fs::remove(libraries / "libGL_KOR.so");
    EXPECT_THAT(check("libraries-32-bit"), HasSubstr("\"status\": \"broken\""));
    fs::remove_all(libraries);
    const std::string found = check("libraries-32-bit");
    EXPECT_THAT(found, HasSubstr("\"status\": \"warning\""));
    EXPECT_THAT(found, HasSubstr("32-bit programs get the system's OpenGL"));
}

TEST_F(DoctorOfBothKinds, TellsWhichFrontServesAProgram) {
    EXPECT_THAT(check("program", {"--", client32}), HasSubstr("32-bit"));
    for (const std::string& client : {client32, neutralClient32}) {
        const std::string found = check("program-front", {"--", client});
        EXPECT_THAT(found, HasSubstr("\"status\": \"ok\""));
        EXPECT_THAT(found, HasSubstr("the vendor front, " + libraries.string()));
    }
    fs::remove(libraries / "libGLX_kor.so.0");
    const std::string classic = check("program-front", {"--", client32});
    EXPECT_THAT(classic, HasSubstr("\"status\": \"ok\""));
    EXPECT_THAT(classic, HasSubstr("the classic front, " + libraries.string()));
    const std::string past = check("program-front", {"--", neutralClient32});
    EXPECT_THAT(past, HasSubstr("\"status\": \"broken\""));
    EXPECT_THAT(past, HasSubstr("there is no vendor front"));

    fs::remove_all(libraries);
    const std::string none = check("program-front", {"--", client32});
    EXPECT_THAT(none, HasSubstr("\"status\": \"broken\""));
    EXPECT_THAT(none, HasSubstr("there is no 32-bit front library"));
    EXPECT_THAT(check("program-front", {"--", "glxinfo"}), HasSubstr("\"status\": \"ok\""));
}

} // namespace
} // namespace kor::e2e

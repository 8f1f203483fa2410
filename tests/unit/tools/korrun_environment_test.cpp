#include "environment.h"
#include "failure.h"
#include "installation.h"
#include "process_group.h"

#include <csignal>
#include <cstdlib>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace files = std::filesystem;

namespace {

// A folder that looks like an installation, removed at the end.
class InstallationTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string name = testing::TempDir() + "korrun-test.XXXXXX";
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        m_prefix = name;
    }
    void TearDown() override { files::remove_all(m_prefix); }
    void put(const std::string& name, bool executable = false) const {
        files::create_directories((m_prefix / name).parent_path());
        std::ofstream(m_prefix / name) << "x";
        if (executable)
            files::permissions(m_prefix / name, files::perms::owner_all);
    }
    std::string path(const std::string& name) const { return m_prefix / name; }

    files::path m_prefix;
};

} // namespace

TEST_F(InstallationTest, PartsLieBesideTheProgram) {
    put("bin/Xkor", true);
    put("lib/kor/libGL.so.1");
    const auto found = korrun::findInstallation(path("bin/korrun"));
    EXPECT_EQ(found.server, path("bin/Xkor"));
    EXPECT_THAT(found.frontFolders, ElementsAre(path("lib/kor")));
}

TEST_F(InstallationTest, TheVendorLibraryLiesAboveTheFrontsOwnFolder) {
    put("lib/libGLX_kor.so.0");
    put("lib/x86_64-linux-gnu/libGLX_kor.so.0");
    const auto found = korrun::findInstallation(path("bin/korrun"));
    EXPECT_THAT(found.vendorFolders,
                testing::UnorderedElementsAre(path("lib"), path("lib/x86_64-linux-gnu")));
    EXPECT_THAT(found.frontFolders, IsEmpty());
}

TEST_F(InstallationTest, LibrariesOfEachArchitectureAreNamed) {
    put("lib/x86_64-linux-gnu/kor/libGL.so.1");
    put("lib/i386-linux-gnu/kor/libGL.so.1");
    const auto found = korrun::findInstallation(path("bin/korrun"));
    EXPECT_THAT(found.frontFolders, testing::UnorderedElementsAre(path("lib/x86_64-linux-gnu/kor"),
                                                                  path("lib/i386-linux-gnu/kor")));
}

TEST_F(InstallationTest, WhatIsMissingIsSaid) {
    put("bin/Xkor"); // not executable
    const auto found = korrun::findInstallation(path("bin/korrun"));
    EXPECT_EQ(found.server, "");
    EXPECT_THAT(found.frontFolders, IsEmpty());
    try {
        korrun::useFront(found, korrun::Front::Auto, "");
        FAIL() << "a missing front library was not noticed";
    } catch (const korrun::Failure& failure) {
        EXPECT_EQ(failure.exitStatus(), korrun::StatusMissing);
        EXPECT_THAT(failure.what(), HasSubstr(path("lib/kor")));
    }
}

TEST_F(InstallationTest, ALibraryForTheOtherKindOfProgramsIsLookedForInTheLoadersList) {
    constexpr char other = sizeof(void*) == 8 ? ELFCLASS32 : ELFCLASS64;
    put("lib/libGLX_kor.so.0"); // of this kind, and the loader does not know this folder
    put("lib/other/libGLX_kor.so.0");
    std::ofstream(path("lib/other/libGLX_kor.so.0")) << ELFMAG << other << std::string(40, '\0');
    korrun::Installation installation;
    installation.vendorFolders = {path("lib"), path("lib/other")};
    const std::string cache = path("cache");

    EXPECT_THAT(korrun::foldersUnknownToLoader(installation, cache),
                ElementsAre(path("lib"), path("lib/other")))
        << "there is no list";
    std::ofstream(cache) << "head" << '\0' << "/nowhere/libGLX_kor.so.0" << '\0';
    EXPECT_THAT(korrun::foldersUnknownToLoader(installation, cache),
                ElementsAre(path("lib"), path("lib/other")));
    // The list has the path as the loader's settings have it.
    std::ofstream(cache) << "head" << '\0' << path("lib/../lib/other/libGLX_kor.so.0") << '\0';
    EXPECT_THAT(korrun::foldersUnknownToLoader(installation, cache), ElementsAre(path("lib")));
    // Nor does one of the other kind stand in for one of this kind.
    std::ofstream(cache) << path("lib/libGLX_kor.so.0") << '\0';
    EXPECT_THAT(korrun::foldersUnknownToLoader(installation, cache),
                ElementsAre(path("lib"), path("lib/other")));
}

TEST(KorrunEnvironment, FoldersStandFirstAndOnce) {
    EXPECT_EQ(korrun::prependFolders({"/a"}, ""), "/a");
    EXPECT_EQ(korrun::prependFolders({"/a", "/b"}, "/c:/a:/d"), "/a:/b:/c:/d");
    EXPECT_EQ(korrun::prependFolders({}, "/c"), "/c");
}

TEST(KorrunEnvironment, FoldersAreTakenOutAgain) {
    EXPECT_EQ(korrun::removeFolders({"/a"}, "/a:/b"), "/b");
    EXPECT_EQ(korrun::removeFolders({"/a"}, "/a"), "");
    EXPECT_EQ(korrun::removeFolders({"/a"}, "/aa:/b/a:"), "/aa:/b/a");
}

TEST(KorrunProcessGroup, EndedProcessesDoNotCount) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setpgid(0, 0);
        pause();
        _exit(0);
    }
    setpgid(child, child);
    EXPECT_TRUE(korrun::isGroupAlive(child));
    kill(child, SIGKILL);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(kill(-child, 0), 0)
        << "the process that nobody has waited for should still be listed";
    EXPECT_FALSE(korrun::isGroupAlive(child));
    waitpid(child, nullptr, 0);
    EXPECT_FALSE(korrun::isGroupAlive(child));
}

// The parts of an installation: there, loadable, of one version.
#include "doctor_fixture.h"
#include "installation_checks.h"
#include "library_search.h"

#include <cstring>
#include <elf.h>
#include <fstream>
#include <sstream>

using namespace kor::test;
using testing::HasSubstr;

namespace files = std::filesystem;

namespace {

std::string contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// As little of a 32-bit library as tells what it is.
std::string library32() {
    Elf32_Ehdr header{};
    memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS32;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_type = ET_DYN;
    header.e_machine = EM_386;
    return {reinterpret_cast<const char*>(&header), sizeof header};
}

/// An installation of the real parts in the test's folder, of which some can be replaced.
class InstallationTest : public DoctorTest {
  protected:
    void SetUp() override {
        DoctorTest::SetUp();
        for (const char* program : {"kordoctor", "korrun", "Xkor"})
            copy(buildProgram(program), std::string("bin/") + program);
        for (const char* library : {"kor/libGL.so.1", "kor/libkor-sysgl.so", "libGL_KOR.so",
                                    "libGLX_kor.so.0", "xorg/modules/extensions/libkor.so"})
            copy(buildLibrary(library), std::string("lib/") + library);
    }
    void copy(const std::string& from, const std::string& to) const {
        files::create_directories(files::path(path(to)).parent_path());
        files::copy_file(from, path(to));
    }
    Diagnosis diagnoseInstallation() const {
        Command command;
        command.arguments = {path("bin/kordoctor"), "--json"};
        command.environment = plainEnvironment();
        command.environment["KOR_GL_DISPLAY"] = noDisplay;
        command.folder = m_folder;
        const CommandResult result = runCommand(command, std::chrono::seconds(60));
        EXPECT_EQ(result.errors, "");
        return {result.status, result.output, result.errors};
    }
    /// The check of 32-bit libraries alone.
    Finding check32(const std::string& loader) const {
        kordoctor::Facts facts;
        const kordoctor::Check check =
            kordoctor::runSection(kordoctor::installationSection(
                                      korrun::findInstallation(path("bin/korrun")), loader),
                                  facts)
                .at(1);
        EXPECT_EQ(check.id, "libraries-32-bit");
        return {nameOf(check.verdict), check.result, check.advice};
    }
};

} // namespace

TEST_F(InstallationTest, CompleteOneIsWell) {
    const Diagnosis found = diagnoseInstallation();
    EXPECT_THAT(found["libraries"], HasStatus("ok"));
    EXPECT_THAT(found["libraries"].result, HasSubstr(path("lib/kor/libGL.so.1")));
    EXPECT_THAT(found["versions"], HasStatus("ok"));
    EXPECT_THAT(found["versions"].result, HasSubstr("all 7 parts"));
}

TEST_F(InstallationTest, MissingPartsAreNamed) {
    files::remove(path("lib/kor/libkor-sysgl.so"));
    files::remove(path("lib/libGL_KOR.so"));
    const Diagnosis some = diagnoseInstallation();
    EXPECT_THAT(some["libraries"], HasStatus("broken"));
    EXPECT_THAT(some["libraries"].result, HasSubstr("libkor-sysgl.so is not in"));
    EXPECT_THAT(some["libraries"].result, HasSubstr("libGL_KOR.so is not in"));
    files::remove(path("lib/kor/libGL.so.1"));
    const Diagnosis front = diagnoseInstallation();
    EXPECT_THAT(front["libraries"], HasStatus("broken"));
    EXPECT_THAT(front["libraries"].result, HasSubstr("libGL.so.1 is in none of"));
    EXPECT_THAT(front["libraries"].advice, HasSubstr("install"));
}

TEST_F(InstallationTest, DamagedLibraryIsSaid) {
    put("lib/libGL_KOR.so", contents(buildLibrary("libGL_KOR.so")).substr(0, 2000));
    const Diagnosis found = diagnoseInstallation();
    EXPECT_THAT(found["libraries"], HasStatus("broken"));
    EXPECT_THAT(found["libraries"].result, HasSubstr("libGL_KOR.so"));
}

TEST_F(InstallationTest, PartOfAnotherVersionIsNamed) {
    std::string library = contents(buildLibrary("kor/libkor-sysgl.so"));
    const std::string note("KOR-GL\0\0", 8);
    const size_t at = library.find(note);
    ASSERT_NE(at, std::string::npos) << "the library has no version note";
    library.replace(at + note.size(), 3, "9.9");
    put("lib/kor/libkor-sysgl.so", library);
    const Diagnosis found = diagnoseInstallation();
    EXPECT_THAT(found["versions"], HasStatus("broken"));
    EXPECT_THAT(found["versions"].result,
                HasSubstr(path("lib/kor/libkor-sysgl.so") + " is of version 9.9"));
    EXPECT_THAT(found["versions"].advice, HasSubstr("one version"));
}

TEST_F(InstallationTest, PartWithoutVersionIsNamed) {
    put("lib/libGLX_kor.so.0", "something else");
    const Diagnosis found = diagnoseInstallation();
    EXPECT_THAT(found["versions"], HasStatus("broken"));
    EXPECT_THAT(found["versions"].result, HasSubstr("libGLX_kor.so.0 is of no known version"));
}

TEST_F(InstallationTest, Libraries32BitAreLookedForWhereTheyAreNeeded) {
    unsetenv("LD_LIBRARY_PATH");
    const std::string loader = put("ld-linux.so.2", "x");
    EXPECT_THAT(check32(path("no-loader")), HasStatus("ok"));
    EXPECT_THAT(check32(path("no-loader")).result, HasSubstr("nor can this machine"));

    put("gl32/libGL.so.1", library32());
    setenv("LD_LIBRARY_PATH", path("gl32").c_str(), 1);
    const Finding missing = check32(loader);
    EXPECT_THAT(missing, HasStatus("warning"));
    EXPECT_THAT(missing.result, HasSubstr("get the system's OpenGL"));
    EXPECT_THAT(missing.advice, HasSubstr("32-bit package"));

    put("lib/i386-linux-gnu/kor/libGL.so.1", library32());
    EXPECT_THAT(check32(loader), HasStatus("broken")) << "the front alone is no use";
    put("lib/i386-linux-gnu/kor/libkor-sysgl.so", library32());
    put("lib/i386-linux-gnu/libGL_KOR.so", library32());
    EXPECT_THAT(check32(loader), HasStatus("ok"));
    EXPECT_THAT(check32(loader).result, HasSubstr("i386-linux-gnu/kor/libGL.so.1"));

    // Our own is not the system's, whoever has put it into the linker's way.
    setenv("LD_LIBRARY_PATH", path("lib/i386-linux-gnu/kor").c_str(), 1);
    const bool machineHasGl = !kordoctor::findLibrary("libGL.so.1", 32, "").empty();
    EXPECT_THAT(check32(loader), HasStatus(machineHasGl ? "ok" : "warning"));
    EXPECT_EQ(check32(loader).result.find("no 32-bit OpenGL") == std::string::npos, machineHasGl);
}

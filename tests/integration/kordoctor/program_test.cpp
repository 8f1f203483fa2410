// Which front serves a program, and why another is bypassed.
#include "doctor_fixture.h"

#include <cstring>
#include <elf.h>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace kor::test;
using testing::HasSubstr;

namespace files = std::filesystem;

namespace {

std::string subject(const std::string& name) {
    return std::string(SUBJECTS) + "/" + name;
}

class ProgramTest : public DoctorTest {
  protected:
    Finding frontOf(const std::string& program, const Environment& environment = {}) const {
        return diagnoseBlindly(environment, {"--", program})["program-front"];
    }
    /// The same by an installation in the test's folder that lacks the vendor front.
    Finding frontWithoutVendor(const std::string& program) const {
        files::create_directories(path("bin"));
        files::create_directories(path("lib/kor"));
        constexpr auto once = files::copy_options::skip_existing;
        for (const std::string name : {"kordoctor", "korrun", "Xkor"})
            files::copy_file(buildProgram(name), path("bin/" + name), once);
        for (const std::string name : {"kor/libGL.so.1", "kor/libkor-sysgl.so", "libGL_KOR.so"})
            files::copy_file(buildLibrary(name), path("lib/" + name), once);
        Command command;
        command.arguments = {path("bin/kordoctor"), "--json", "--", program};
        command.environment = plainEnvironment();
        command.environment["KOR_GL_DISPLAY"] = noDisplay;
        command.folder = m_folder;
        const CommandResult result = runCommand(command, std::chrono::seconds(60));
        EXPECT_EQ(result.errors, "");
        return Diagnosis{result.status, result.output, result.errors}["program-front"];
    }
    /// A copy that may be run, in the test's folder.
    std::string copyOf(const std::string& name) const {
        files::copy_file(subject(name), path(name), files::copy_options::overwrite_existing);
        return path(name);
    }
    static Environment vendorFolder() {
        return {{"LD_LIBRARY_PATH",
                 files::path(buildLibrary("libGLX_kor.so.0")).parent_path().string()}};
    }
    std::string putProgram(const std::string& name, const std::string& text) const {
        put(name, text);
        chmod(path(name).c_str(), 0755);
        return path(name);
    }
};

/// As little of a 32-bit program as tells what it is.
std::string program32() {
    struct {
        Elf32_Ehdr header;
        Elf32_Phdr segment;
        char loader[20];
    } file{};
    memcpy(file.header.e_ident, ELFMAG, SELFMAG);
    file.header.e_ident[EI_CLASS] = ELFCLASS32;
    file.header.e_ident[EI_DATA] = ELFDATA2LSB;
    file.header.e_machine = EM_386;
    file.header.e_phoff = sizeof file.header;
    file.header.e_phnum = 1;
    file.segment.p_type = PT_INTERP;
    file.segment.p_offset = sizeof file.header + sizeof file.segment;
    strcpy(file.loader, "/lib/ld-linux.so.2");
    return {reinterpret_cast<const char*>(&file), sizeof file};
}

} // namespace

TEST_F(ProgramTest, VendorFrontServesWhatNamesTheLibrary) {
    const Diagnosis found = diagnoseBlindly({}, {subject("plain")});
    EXPECT_THAT(found["program"], HasStatus("ok"));
    EXPECT_THAT(found["program"].result, HasSubstr("64-bit"));
    EXPECT_THAT(found["program-front"], HasStatus("ok"));
    EXPECT_THAT(found["program-front"].result,
                HasSubstr("the vendor front, " + buildLibrary("libGLX_kor.so.0")));
}

TEST_F(ProgramTest, ClassicFrontServesWhereItComesFirst) {
    const Finding named = frontOf(
        subject("plain"),
        {{"LD_LIBRARY_PATH", files::path(buildLibrary("kor/libGL.so.1")).parent_path().string()}});
    EXPECT_THAT(named, HasStatus("ok"));
    EXPECT_THAT(named.result, HasSubstr("the classic front, " + buildLibrary("kor/libGL.so.1")));
    const Finding alone = frontWithoutVendor(subject("plain"));
    EXPECT_THAT(alone, HasStatus("ok"));
    EXPECT_THAT(alone.result, HasSubstr("the classic front, " + path("lib/kor/libGL.so.1")));
}

TEST_F(ProgramTest, ProgramThatIsNotNamedIsNotLookedAt) {
    EXPECT_THAT(diagnoseBlindly()["program"], HasStatus("no such check"));
}

TEST_F(ProgramTest, ProgramsAreFoundAsByTheShell) {
    const Diagnosis found = diagnoseBlindly({{"PATH", std::string(SUBJECTS) + ":/usr/bin:/bin"}},
                                            {"--", "plain", "-x"});
    EXPECT_THAT(found["program"].result, HasSubstr(subject("plain")));
}

TEST_F(ProgramTest, WhatIsNoProgramIsSaid) {
    for (const std::string& name :
         {path("nowhere"), put("data", "data"), putProgram("text", "just words"),
          putProgram("empty", ""), putProgram("cut", program32().substr(0, 30))}) {
        const Diagnosis found = diagnoseBlindly({}, {"--", name});
        EXPECT_THAT(found["program"], HasStatus("broken")) << name;
        EXPECT_THAT(found["program"].result, HasSubstr(name)) << name;
        EXPECT_THAT(found["program-front"], HasStatus("skipped")) << name;
    }
}

TEST_F(ProgramTest, ScriptsAreFollowedToTheirInterpreters) {
    const Diagnosis direct =
        diagnoseBlindly({}, {"--", putProgram("script", "#!" + subject("plain") + " -u\nx\n")});
    EXPECT_THAT(direct["program"].result, HasSubstr("script, run by " + subject("plain")));
    EXPECT_THAT(direct["program-front"], HasStatus("ok"));
    const Diagnosis byEnv =
        diagnoseBlindly({{"PATH", std::string(SUBJECTS) + ":/usr/bin:/bin"}},
                        {"--", putProgram("by-env", "#!/usr/bin/env -S A=1 plain\n")});
    EXPECT_THAT(byEnv["program"].result, HasSubstr(subject("plain")));
    const Diagnosis lost = diagnoseBlindly({}, {"--", putProgram("lost", "#!/no/interpreter\n")});
    EXPECT_THAT(lost["program"], HasStatus("broken"));
    EXPECT_THAT(lost["program"].result, HasSubstr("/no/interpreter"));
    const Diagnosis endless =
        diagnoseBlindly({}, {"--", putProgram("endless", "#!" + path("endless") + "\n")});
    EXPECT_THAT(endless["program"], HasStatus("broken"));
}

TEST_F(ProgramTest, StaticProgramIsBypassed) {
    const Finding front = frontOf(subject("static"));
    EXPECT_THAT(front, HasStatus("broken"));
    EXPECT_THAT(front.result, HasSubstr("statically linked"));
}

TEST_F(ProgramTest, ProgramWithRaisedRightsIsBypassed) {
    if (getuid() != 0)
        GTEST_SKIP() << "only root can make a program that runs with another user's rights";
    const std::string program = copyOf("plain");
    EXPECT_THAT(frontOf(program), HasStatus("ok"));
    ASSERT_EQ(chown(program.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(program.c_str(), 04755), 0);
    EXPECT_THAT(frontOf(program), HasStatus("broken"));
    EXPECT_THAT(frontOf(program).result, HasSubstr("setuid"));
    // Not even when the caller says where the vendor front is.
    EXPECT_THAT(frontOf(program, vendorFolder()), HasStatus("broken"));
    EXPECT_THAT(frontOf(program).advice, HasSubstr("install the package"));
    ASSERT_EQ(chmod(program.c_str(), 02755), 0);
    EXPECT_THAT(frontOf(program).result, HasSubstr("setgid"));
}

TEST_F(ProgramTest, VariableThatNamesAnotherVendorBypassesTheFront) {
    EXPECT_THAT(frontOf(subject("plain"), {{"__GLX_VENDOR_LIBRARY_NAME", "kor"}}), HasStatus("ok"));
    const Finding other = frontOf(subject("plain"), {{"__GLX_VENDOR_LIBRARY_NAME", "mesa"}});
    EXPECT_THAT(other, HasStatus("broken"));
    EXPECT_THAT(other.result, HasSubstr("__GLX_VENDOR_LIBRARY_NAME names \"mesa\""));
    EXPECT_THAT(other.advice, HasSubstr("unset"));
}

TEST_F(ProgramTest, PathInTheProgramThatPassesTheFrontByIsAWarning) {
    // The second one is never there; the third is no file's path.
    const std::string own = path("own/libGL.so.1");
    for (const std::string& text :
         {own, std::string("/no/such/libGL.so.1"), "see " + own, own + "x"}) {
        const std::string program = copyOf("plain");
        std::ofstream(program, std::ios::binary | std::ios::app) << '\0' << text << '\0';
        EXPECT_THAT(frontOf(program), HasStatus("ok")) << text << ": nothing lies there yet";
    }
    put("own/libGL.so.1", "another library");
    const std::string program = copyOf("plain");
    std::ofstream(program, std::ios::binary | std::ios::app) << '\0' << "see " << own << '\0';
    EXPECT_THAT(frontOf(program), HasStatus("ok"));
    std::ofstream(program, std::ios::binary | std::ios::app) << own << '\0';
    EXPECT_THAT(frontOf(program), HasStatus("warning"));
    EXPECT_THAT(frontOf(program).result, HasSubstr("its file names " + own));
    // The system's, behind which stands the vendor front, but not the classic one.
    const std::string systems = copyOf("without_gl");
    std::ofstream(systems, std::ios::binary | std::ios::app)
        << '\0' << "/usr/lib/x86_64-linux-gnu/libGL.so.1" << '\0';
    EXPECT_THAT(frontOf(systems), HasStatus("ok"));
    EXPECT_THAT(frontWithoutVendor(systems), HasStatus("warning"));
}

TEST_F(ProgramTest, ThirtyTwoBitProgramNeedsAFrontOfItsKind) {
    const Diagnosis found = diagnoseBlindly({}, {"--", putProgram("program32", program32())});
    EXPECT_THAT(found["program"].result, HasSubstr("32-bit"));
    EXPECT_THAT(found["program-front"], HasStatus("broken"));
    EXPECT_THAT(found["program-front"].result, HasSubstr("no 32-bit front"));
}

TEST_F(ProgramTest, RpathComesBeforeTheClassicFrontAndRunpathDoesNot) {
    files::create_directories(path("other"));
    for (const char* name : {"rpath", "runpath", "rpath_without_gl"})
        EXPECT_THAT(frontWithoutVendor(copyOf(name)), HasStatus("ok"))
            << name << ": nothing lies there yet";
    files::copy_file(FAULTY_GL, path("other/libGL.so.1"));
    const Finding bypassed = frontWithoutVendor(path("rpath"));
    EXPECT_THAT(bypassed, HasStatus("broken"));
    EXPECT_THAT(bypassed.result, HasSubstr(path("other/libGL.so.1") + ", by the RPATH"));
    EXPECT_THAT(bypassed.advice, HasSubstr("RUNPATH"));
    EXPECT_THAT(frontWithoutVendor(path("runpath")), HasStatus("ok"));
    const Finding later = frontWithoutVendor(path("rpath_without_gl"));
    EXPECT_THAT(later, HasStatus("broken"));
    EXPECT_THAT(later.result, HasSubstr("should it open libGL.so.1 later"));
}

TEST_F(ProgramTest, AnotherLibraryByRpathOrRunpathBypassesTheVendorFront) {
    files::create_directories(path("other"));
    for (const char* name : {"rpath", "runpath", "rpath_without_gl"})
        EXPECT_THAT(frontOf(copyOf(name)), HasStatus("ok")) << name << ": nothing lies there yet";
    files::copy_file(FAULTY_GL, path("other/libGL.so.1"));
    for (const auto& [name, through] : {std::pair{"rpath", "RPATH"}, {"runpath", "RUNPATH"}}) {
        const Finding bypassed = frontOf(path(name));
        EXPECT_THAT(bypassed, HasStatus("broken"));
        EXPECT_THAT(bypassed.result,
                    HasSubstr(path("other/libGL.so.1") + ", by the " + through + " in "));
        EXPECT_THAT(bypassed.advice, HasSubstr("korrun --front=classic"));
    }
    EXPECT_THAT(frontOf(path("rpath_without_gl")).result,
                HasSubstr("should it open libGL.so.1 later"));
    // One that loads vendor libraries is as good as the system's.
    files::remove(path("other/libGL.so.1"));
    files::create_symlink("/usr/lib/x86_64-linux-gnu/libGL.so.1", path("other/libGL.so.1"));
    EXPECT_THAT(frontOf(path("rpath")), HasStatus("ok"));
}

TEST_F(ProgramTest, ProgramThatNamesNoGlMayOpenItLater) {
    const Finding front = frontOf(subject("without_gl"));
    EXPECT_THAT(front, HasStatus("ok"));
    EXPECT_THAT(front.result, HasSubstr("names no GL library"));
}

TEST_F(ProgramTest, VendorNeutralProgramIsServedByTheVendorFrontAlone) {
    const Finding found = frontOf(subject("vendor_neutral"));
    EXPECT_THAT(found, HasStatus("ok"));
    EXPECT_THAT(found.result, HasSubstr("the vendor front"));
    EXPECT_THAT(found.result, HasSubstr("names libGLX.so.0 itself"));
    const Finding missing = frontWithoutVendor(subject("vendor_neutral"));
    EXPECT_THAT(missing, HasStatus("broken"));
    EXPECT_THAT(missing.result, HasSubstr("classic front is bypassed"));
    EXPECT_THAT(missing.advice, HasSubstr("install the vendor front"));
}

TEST_F(ProgramTest, EglIsNotServed) {
    const Finding front = frontOf(subject("egl"));
    EXPECT_THAT(front, HasStatus("warning"));
    EXPECT_THAT(front.result, HasSubstr("libEGL.so.1"));
}

#include "program_checks.h"

#include "elf_file.h"
#include "environment.h"
#include "installation_checks.h"
#include "library_search.h"

#include <algorithm>
#include <cstdlib>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kordoctor {

namespace {

namespace files = std::filesystem;

constexpr int deepestScript = 4; // interpreters that are scripts themselves

// The file whose machine code runs, and how we came to it.
struct Program {
    std::string path;
    std::string road; // "" or "script, run by ..."
    std::string problem;
};

Program followScripts(const std::string& name) {
    Program program;
    program.path = korrun::findProgram(name);
    if (program.path.empty()) {
        program.problem = name + " is not found, or may not be executed";
        return program;
    }
    for (int depth = 0; depth < deepestScript; ++depth) {
        std::ifstream file(program.path, std::ios::binary);
        char magic[2] = {};
        if (!file.read(magic, 2)) {
            program.problem = program.path + " cannot be read";
            return program;
        }
        if (magic[0] != '#' || magic[1] != '!')
            return program;
        std::string line;
        std::getline(file, line);
        std::istringstream words(line.substr(0, 4096));
        std::string interpreter;
        std::string argument;
        words >> interpreter >> argument;
        if (files::path(interpreter).filename() == "env") {
            while (argument.starts_with("-") || argument.find('=') != std::string::npos)
                if (!(words >> argument))
                    argument.clear();
            interpreter = argument;
        }
        program.road.append("script, run by ").append(interpreter).append(": ");
        program.path = korrun::findProgram(interpreter);
        if (program.path.empty()) {
            program.problem = name + " is a script whose interpreter is not found: " + interpreter;
            return program;
        }
    }
    program.problem = name + " is a script whose interpreters are scripts without end";
    return program;
}

// Why the dynamic linker would not look at LD_LIBRARY_PATH; empty when it does.
std::string raisedRights(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return "";
    if ((status.st_mode & S_ISUID) != 0 && status.st_uid != getuid())
        return "it runs with the rights of another user (setuid)";
    if ((status.st_mode & S_ISGID) != 0 && status.st_gid != getgid())
        return "it runs with the rights of another group (setgid)";
    if (getxattr(path.c_str(), "security.capability", nullptr, 0) > 0)
        return "it runs with capabilities of its own (setcap)";
    return "";
}

bool isSameFile(const std::string& a, const std::string& b) {
    std::error_code error;
    return !a.empty() && !b.empty() && files::equivalent(a, b, error);
}

const LoadedLibrary* entryOf(const std::vector<LoadedLibrary>& libraries, const char* name) {
    const auto found = std::find_if(libraries.begin(), libraries.end(),
                                    [&](const LoadedLibrary& l) { return l.name == name; });
    return found == libraries.end() ? nullptr : &*found;
}

// What the checks of one program share.
struct Examination {
    Findings& findings;
    Program program;
    ElfFile elf;
    std::string libraryPath; // as korrun sets it
    std::string front;       // of the program's kind
    std::string vendor;      // the vendor front that lies beside it, if any

    bool isOurs(const std::string& path) const { return isSameFile(path, front); }
};

void concludeBypassed(const Examination& e, const LoadedLibrary& gl, const std::string& how) {
    if (gl.through == "RPATH")
        e.findings.broken(how + gl.path + ", by the RPATH in " + gl.neededBy +
                              ", which comes before LD_LIBRARY_PATH: the front is bypassed",
                          "take the RPATH out of that file, or make it a RUNPATH (chrpath "
                          "--convert, patchelf --set-rpath)");
    else if (gl.path.empty())
        e.findings.broken(how + "nowhere: neither the front nor the system's OpenGL has its kind",
                          "install the package of our libraries for it");
    else
        e.findings.broken(how + gl.path + ", by " + gl.through + ": the front is bypassed",
                          "run it with korrun, and see that nothing comes before the front's "
                          "folder in LD_LIBRARY_PATH");
}

void checkNamedGl(const Examination& e, const std::vector<LoadedLibrary>& libraries) {
    if (const LoadedLibrary* gl = entryOf(libraries, "libGL.so.1")) {
        if (e.isOurs(gl->path))
            e.findings.ok("the classic front, " + gl->path + ": " +
                          files::path(gl->neededBy).filename().string() + " names libGL.so.1");
        else
            concludeBypassed(e, *gl, "it takes libGL.so.1 from ");
        return;
    }
    for (const char* name : {"libGLX.so.0", "libOpenGL.so.0"}) {
        const LoadedLibrary* glvnd = entryOf(libraries, name);
        if (glvnd == nullptr)
            continue;
        const std::string vendor = findLibrary("libGLX_kor.so.0", e.elf.bits, e.libraryPath);
        std::string why = files::path(glvnd->neededBy).filename().string();
        why.append(" names ").append(name).append(" itself, not libGL.so.1");
        if (vendor.empty() && !e.vendor.empty())
            e.findings.broken("none: " + why +
                                  ", so that the classic front is bypassed, and the "
                                  "dynamic linker does not find the vendor front " +
                                  e.vendor,
                              "add its folder to LD_LIBRARY_PATH, or install the package");
        else if (vendor.empty())
            e.findings.broken("none: " + why +
                                  ", so that the classic front is bypassed, and there "
                                  "is no vendor front libGLX_kor.so.0",
                              "install the vendor front, or link the program with -lGL");
        else
            e.findings.ok("the vendor front, " + vendor + ": " + why);
        return;
    }
    for (const char* name : {"libEGL.so.1", "libvulkan.so.1"})
        if (const LoadedLibrary* other = entryOf(libraries, name)) {
            e.findings.warning("none for what it draws by " + std::string(name) + ", which " +
                                   files::path(other->neededBy).filename().string() +
                                   " names: only GLX is served",
                               "let the program draw by GLX, if it can (for example QT_XCB_GL_"
                               "INTEGRATION=xcb_glx, --use-gl=desktop)");
            return;
        }
    // Most toolkits open the library when they need it, by the same name.
    ElfFile opening = e.elf;
    opening.needed = {"libGL.so.1"};
    const LoadedLibrary gl = findLibraries(e.program.path, opening, e.libraryPath).front();
    if (e.isOurs(gl.path))
        e.findings.ok("it names no GL library; should it open libGL.so.1 later, it gets the "
                      "classic front, " +
                      gl.path);
    else
        concludeBypassed(e, gl,
                         "it names no GL library; should it open libGL.so.1 later, that "
                         "comes from ");
}

void checkFront(Examination& e, const korrun::Installation& installation) {
    e.findings.begin("program-front");
    if (e.elf.interpreter.empty()) {
        e.findings.broken("none: it is statically linked, and loads no library at all",
                          "use a dynamically linked build of it");
        return;
    }
    if (const std::string rights = raisedRights(e.program.path); !rights.empty()) {
        e.findings.broken("none: " + rights +
                              ", so that the dynamic linker does not look at LD_LIBRARY_PATH",
                          "run a copy of it without these rights");
        return;
    }
    const std::vector<FrontFolder> fronts = findFronts(installation);
    const auto front = std::find_if(fronts.begin(), fronts.end(),
                                    [&](const FrontFolder& f) { return f.bits == e.elf.bits; });
    if (front == fronts.end()) {
        const std::string kind = std::to_string(e.elf.bits) + "-bit";
        e.findings.broken("none: it is a " + kind + " program, and there is no " + kind +
                              " front library",
                          "install the " + kind + " package of the library");
        return;
    }
    e.front = front->front;
    e.vendor = front->vendor;
    const char* set = getenv("LD_LIBRARY_PATH");
    e.libraryPath = korrun::prependFolders(installation.frontFolders, set == nullptr ? "" : set);
    checkNamedGl(e, findLibraries(e.program.path, e.elf, e.libraryPath));
}

void examine(Findings& findings, const std::string& name,
             const korrun::Installation& installation) {
    findings.begin("program");
    const Program program = followScripts(name);
    if (!program.problem.empty()) {
        findings.broken(program.problem, "name a program, by its path or as the shell finds it");
        return;
    }
    const auto elf = readElf(program.path);
    if (!elf || (elf->machine != EM_X86_64 && elf->machine != EM_386)) {
        findings.broken(program.road + program.path + " is no program of this kind of machine",
                        "name a program that this machine can run");
        return;
    }
    findings.ok(program.road + program.path + ", " + std::to_string(elf->bits) + "-bit");
    Examination examination{findings, program, *elf, "", "", ""};
    checkFront(examination, installation);
}

} // namespace

Section programSection(const std::string& name, const korrun::Installation& installation) {
    Section section;
    section.checks = {{"program", "program"}, {"program-front", "program's front"}};
    section.patience = std::chrono::seconds(30);
    section.adviceWhenLost = "the program's file cannot be examined: name another";
    section.examine = [name, installation](Findings& findings) {
        examine(findings, name, installation);
    };
    return section;
}

} // namespace kordoctor

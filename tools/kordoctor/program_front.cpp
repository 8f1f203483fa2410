#include "program_front.h"

#include "environment.h"
#include "installation_checks.h"
#include "library_search.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace kordoctor {

namespace {

namespace files = std::filesystem;

constexpr const char* glLibrary = "libGL.so.1";
constexpr const char* dispatchLibrary = "libGLX.so.0"; // the system's; it loads vendor fronts
constexpr const char* vendorVariable = "__GLX_VENDOR_LIBRARY_NAME";

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

std::string fileName(const std::string& path) {
    return files::path(path).filename();
}

// A file may name a library by its path.
const LoadedLibrary* entryOf(const std::vector<LoadedLibrary>& libraries, const char* name) {
    const auto found =
        std::find_if(libraries.begin(), libraries.end(),
                     [&](const LoadedLibrary& l) { return fileName(l.name) == name; });
    return found == libraries.end() ? nullptr : &*found;
}

// Whether that libGL.so.1 is the vendor-neutral one, which loads vendor fronts.
bool leadsToDispatch(const std::string& library) {
    const auto elf = readElf(library);
    return elf &&
           std::find(elf->needed.begin(), elf->needed.end(), dispatchLibrary) != elf->needed.end();
}

// What the check of one program knows.
struct Examination {
    Findings& findings;
    std::string path;
    ElfFile elf;
    std::string rights;      // raised ones; empty: none
    std::string classic;     // the classic front of the program's kind
    std::string vendor;      // the vendor front, if it is what korrun takes; else empty
    std::string libraryPath; // as the program gets it

    // The front that serves who loads this libGL.so.1; empty: it is bypassed.
    std::string frontBehind(const std::string& library) const {
        if (isSameFile(library, classic))
            return "the classic front, " + library;
        if (!vendor.empty() && leadsToDispatch(library))
            return "the vendor front, " + vendor;
        return "";
    }
};

void concludeBypassed(const Examination& e, const LoadedLibrary& gl, const std::string& how) {
    if (gl.path.empty())
        return e.findings.broken(
            how + "nowhere: neither the front nor the system's OpenGL has its kind",
            "install the package of our libraries for it");
    const bool byRpath = gl.through == "RPATH";
    std::string found = how + gl.path + ", by ";
    if (byRpath)
        found += "the RPATH in " + gl.neededBy + ", which comes before LD_LIBRARY_PATH";
    else
        found += gl.through == "RUNPATH" ? "the RUNPATH in " + gl.neededBy : gl.through;
    if (!e.vendor.empty())
        found += "; that one does not load vendor libraries";
    found += ": the front is bypassed";
    std::string advice;
    if (byRpath)
        advice = "take the RPATH out of that file, or make it a RUNPATH (chrpath --convert, "
                 "patchelf --set-rpath)";
    else if (e.vendor.empty())
        advice = "run it with korrun, and see that nothing comes before the front's folder in "
                 "LD_LIBRARY_PATH";
    if (!e.rights.empty())
        advice = "run a copy of it without raised rights: " + e.rights;
    if (!e.vendor.empty())
        advice += (advice.empty() ? "" : "; then ") +
                  std::string("start it with korrun --front=classic, whose libGL.so.1 comes first");
    e.findings.broken(found, advice);
}

// The paths in the program's file by which it may open an OpenGL that no front stands behind.
std::string pathsAroundFront(const Examination& e) {
    std::string around;
    for (const char* name : {glLibrary, "libGL.so"})
        for (const std::string& path : pathsWithin(e.path, name))
            if (access(path.c_str(), R_OK) == 0 && e.frontBehind(path).empty())
                around += (around.empty() ? "" : ", ") + path;
    return around;
}

void concludeServed(const Examination& e, const std::string& front, const std::string& why) {
    const char* vendor = getenv(vendorVariable);
    const bool byVendor = front.starts_with("the vendor front");
    if (byVendor && vendor != nullptr && *vendor != '\0' && std::string(vendor) != "kor")
        return e.findings.broken("none: the variable " + std::string(vendorVariable) + " names \"" +
                                     vendor + "\", so that the vendor front is bypassed; " + why,
                                 std::string("unset ") + vendorVariable);
    if (const std::string around = pathsAroundFront(e); !around.empty())
        return e.findings.warning(front + ": " + why + "; but its file names " + around +
                                      ", and should it open that, the front is bypassed",
                                  "see what is loaded while it runs (/proc/PID/maps); an option or "
                                  "setting of the program may name another library");
    e.findings.ok(front + ": " + why);
}

void checkNamedGl(const Examination& e) {
    const auto libraries = findLibraries(e.path, e.elf, e.libraryPath);
    if (const LoadedLibrary* gl = entryOf(libraries, glLibrary)) {
        if (const std::string front = e.frontBehind(gl->path); !front.empty())
            concludeServed(e, front, fileName(gl->neededBy) + " names libGL.so.1");
        else
            concludeBypassed(e, *gl, "it takes libGL.so.1 from ");
        return;
    }
    for (const char* name : {dispatchLibrary, "libOpenGL.so.0"}) {
        const LoadedLibrary* dispatch = entryOf(libraries, name);
        if (dispatch == nullptr)
            continue;
        const std::string why =
            fileName(dispatch->neededBy) + " names " + name + " itself, not libGL.so.1";
        if (e.vendor.empty())
            e.findings.broken("none: " + why +
                                  ", so that the classic front is bypassed, and there is no vendor "
                                  "front " +
                                  korrun::vendorLibrary,
                              "install the vendor front, or link the program with -lGL");
        else
            concludeServed(e, "the vendor front, " + e.vendor, why);
        return;
    }
    for (const char* name : {"libEGL.so.1", "libvulkan.so.1"})
        if (const LoadedLibrary* other = entryOf(libraries, name)) {
            e.findings.warning("none for what it draws by " + std::string(name) + ", which " +
                                   fileName(other->neededBy) + " names: only GLX is served",
                               "let the program draw by GLX, if it can (for example QT_XCB_GL_"
                               "INTEGRATION=xcb_glx, --use-gl=desktop)");
            return;
        }
    // Most toolkits open the library when they need it, by the same name.
    ElfFile opening = e.elf;
    opening.needed = {glLibrary};
    const LoadedLibrary gl = findLibraries(e.path, opening, e.libraryPath).front();
    if (const std::string front = e.frontBehind(gl.path); !front.empty())
        concludeServed(e, front,
                       "it names no GL library; should it open libGL.so.1 later, it gets " +
                           gl.path);
    else
        concludeBypassed(e, gl,
                         "it names no GL library; should it open libGL.so.1 later, that comes "
                         "from ");
}

} // namespace

void checkProgramFront(Findings& findings, const std::string& path, const ElfFile& elf,
                       const korrun::Installation& installation) {
    findings.begin("program-front");
    if (elf.interpreter.empty())
        return findings.broken("none: it is statically linked, and loads no library at all",
                               "use a dynamically linked build of it");
    const std::vector<FrontFolder> fronts = findFronts(installation);
    const auto front = std::find_if(fronts.begin(), fronts.end(),
                                    [&](const FrontFolder& f) { return f.bits == elf.bits; });
    if (front == fronts.end()) {
        const std::string kind = std::to_string(elf.bits) + "-bit";
        return findings.broken("none: it is a " + kind + " program, and there is no " + kind +
                                   " front library",
                               "install the " + kind + " package of the library");
    }
    Examination e{findings, path, elf, raisedRights(path), front->front, "", ""};
    const char* set = getenv("LD_LIBRARY_PATH");
    e.libraryPath = set == nullptr || !e.rights.empty() ? "" : set;
    const bool hasDispatch = !findLibrary(dispatchLibrary, elf.bits, e.libraryPath).empty();
    const std::string found = findLibrary(korrun::vendorLibrary, elf.bits, e.libraryPath);
    if (!e.rights.empty() && (found.empty() || !hasDispatch))
        return findings.broken("none: " + e.rights +
                                   ", so that the dynamic linker does not look at LD_LIBRARY_PATH, "
                                   "and it finds no " +
                                   korrun::vendorLibrary + " by itself",
                               "install the package, whose vendor front is found without that "
                               "variable, or run a copy of it without these rights");
    if (hasDispatch)
        e.vendor = found.empty() ? front->vendor : found;
    if (e.vendor.empty())
        e.libraryPath = korrun::prependFolders(installation.frontFolders, e.libraryPath);
    else if (found.empty())
        e.libraryPath = korrun::prependFolders(installation.vendorFolders, e.libraryPath);
    checkNamedGl(e);
}

} // namespace kordoctor

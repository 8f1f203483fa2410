#include "installation_checks.h"

#include "elf_file.h"
#include "environment.h"
#include "library_search.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <map>

namespace kordoctor {

namespace {

namespace files = std::filesystem;

constexpr const char* reinstall =
    "install the package again, or build it (cmake --build --preset release)";

std::string ifThere(const files::path& path) {
    std::error_code error;
    return files::exists(path, error) ? path.lexically_normal().string() : "";
}

std::string join(const std::vector<std::string>& texts, const char* between) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : between) + text;
    return joined;
}

// Loading runs the libraries' own code, hence in this section's own process.
std::string whyNotLoaded(const std::string& path, const char* function) {
    fprintf(stderr, "loading %s\n", path.c_str()); // seen should the process be lost here
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        return dlerror();
    return dlsym(library, function) == nullptr ? path + " has no function " + function : "";
}

void checkLibraries(Findings& findings, const korrun::Installation& installation) {
    findings.begin("libraries");
    for (const FrontFolder& front : findFronts(installation)) {
        if (front.bits != 64)
            continue;
        std::vector<std::string> wrong;
        if (front.library.empty())
            wrong.push_back("libGL_KOR.so is not in the folder above " + front.folder);
        else if (std::string why = whyNotLoaded(front.library, "kor_init"); !why.empty())
            wrong.push_back(why);
        if (front.adapter.empty())
            wrong.push_back("libkor-sysgl.so is not in " + front.folder);
        else if (std::string why = whyNotLoaded(front.adapter, "kor_adapter_init"); !why.empty())
            wrong.push_back(why);
        if (std::string why = whyNotLoaded(front.front, "glXSwapBuffers"); !why.empty())
            wrong.push_back(why);
        if (wrong.empty())
            findings.ok(front.front + " with " + front.library);
        else
            findings.broken(join(wrong, "; "), reinstall);
        return;
    }
    findings.broken("the front library libGL.so.1 is in none of " +
                        join(installation.searched, ", "),
                    reinstall);
}

void check32Bit(Findings& findings, const korrun::Installation& installation,
                const std::string& loader32) {
    findings.begin("libraries-32-bit");
    const char* set = getenv("LD_LIBRARY_PATH");
    const bool systemHasGl =
        !findLibrary("libGL.so.1", 32,
                     korrun::removeFolders(installation.frontFolders, set == nullptr ? "" : set))
             .empty();
    for (const FrontFolder& front : findFronts(installation)) {
        if (front.bits != 32)
            continue;
        if (front.library.empty() || front.adapter.empty())
            findings.broken(front.folder + " has a 32-bit front, but not all that belongs to it",
                            reinstall);
        else if (!systemHasGl)
            findings.warning(front.front + ", but the system has no 32-bit OpenGL beneath it: "
                                           "32-bit programs draw nothing",
                             "install the system's 32-bit OpenGL (libgl1:i386 and a driver), if "
                             "you use such programs");
        else
            findings.ok(front.front);
        return;
    }
    if (ifThere(loader32).empty())
        findings.ok("not there, nor can this machine run 32-bit programs");
    else if (!systemHasGl)
        findings.ok("not there, nor is a 32-bit OpenGL of the system's");
    else
        findings.warning("not there: 32-bit programs get the system's OpenGL",
                         "install the 32-bit package of the library, if you use such programs");
}

void checkVersions(Findings& findings, const korrun::Installation& installation) {
    findings.begin("versions");
    std::vector<std::string> parts = {installation.server};
    const files::path bin = files::path(installation.korrun).parent_path();
    parts.push_back(ifThere(bin / "korrun"));
    // Where Xkor looks for its module.
    for (const char* modules : {"lib/xorg/modules", "lib/x86_64-linux-gnu/xorg/modules"})
        parts.push_back(ifThere(bin.parent_path() / modules / "extensions/libkor.so"));
    for (const FrontFolder& front : findFronts(installation)) {
        parts.push_back(front.front);
        parts.push_back(front.library);
        parts.push_back(front.adapter);
        parts.push_back(front.vendor);
    }
    std::vector<std::string> others;
    size_t count = 0;
    for (const std::string& part : parts) {
        if (part.empty())
            continue;
        ++count;
        const auto elf = readElf(part);
        const std::string version = elf ? elf->korVersion : "";
        if (version != KOR_VERSION)
            others.push_back(part + " is of " +
                             (version.empty() ? "no known version" : "version " + version));
    }
    if (others.empty())
        findings.ok("all " + std::to_string(count) + " parts are of version " KOR_VERSION);
    else
        findings.broken(join(others, "; ") + "; kordoctor is of version " KOR_VERSION,
                        "install all parts from packages, or a build, of one version");
}

} // namespace

std::vector<FrontFolder> findFronts(const korrun::Installation& installation) {
    std::vector<FrontFolder> fronts;
    for (const std::string& folder : installation.frontFolders) {
        FrontFolder front;
        front.folder = folder;
        front.front = ifThere(files::path(folder) / "libGL.so.1");
        front.library = ifThere(files::path(folder) / "../libGL_KOR.so");
        front.adapter = ifThere(files::path(folder) / "libkor-sysgl.so");
        front.vendor = ifThere(files::path(folder) / "../libGLX_kor.so.0");
        const auto elf = readElf(front.front);
        front.bits = elf ? elf->bits : 0;
        fronts.push_back(front);
    }
    return fronts;
}

Section installationSection(const korrun::Installation& installation, const std::string& loader32) {
    Section section;
    section.checks = {{"libraries", "libraries"},
                      {"libraries-32-bit", "32-bit libraries"},
                      {"versions", "versions"}};
    section.patience = std::chrono::seconds(15);
    section.adviceWhenLost = reinstall;
    section.examine = [installation, loader32](Findings& findings) {
        checkLibraries(findings, installation);
        check32Bit(findings, installation, loader32);
        checkVersions(findings, installation);
    };
    return section;
}

} // namespace kordoctor

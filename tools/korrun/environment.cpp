#include "environment.h"

#include "display_probe.h"
#include "failure.h"
#include "shipped_settings.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <link.h>
#include <sstream>
#include <string_view>

namespace korrun {

namespace {

constexpr const char* variable = "LD_LIBRARY_PATH";

std::string currentPaths() {
    const char* value = std::getenv(variable);
    return value ? value : "";
}

std::string join(const std::vector<std::string>& texts, const char* between) {
    std::string joined;
    for (const std::string& text : texts)
        joined += (joined.empty() ? "" : between) + text;
    return joined;
}

bool systemHasDispatch() {
    void* dispatch = dlopen("libGLX.so.0", RTLD_LAZY | RTLD_LOCAL);
    if (dispatch == nullptr)
        return false;
    dlclose(dispatch);
    return true;
}

using Folders = std::vector<std::string>;

bool holds(const Folders& folders, const std::string& vendorLibraryPath) {
    return std::any_of(folders.begin(), folders.end(), [&](const std::string& folder) {
        std::error_code error;
        return std::filesystem::equivalent(vendorLibraryPath,
                                           std::filesystem::path(folder) / vendorLibrary, error);
    });
}

// Whether the variable named one of the folders when this process began. The loader keeps to that,
// whatever became of the variable: it finds what programs that are started from here would not.
bool wasTold(const Folders& folders) {
    std::ifstream environment("/proc/self/environ", std::ios::binary);
    const std::string begin = std::string(variable) + "=";
    for (std::string entry; std::getline(environment, entry, '\0');) {
        if (!entry.starts_with(begin))
            continue;
        std::istringstream told(entry.substr(begin.size()));
        for (std::string folder; std::getline(told, folder, ':');)
            if (holds(folders, (std::filesystem::path(folder) / vendorLibrary).string()))
                return true;
    }
    return false;
}

// True when the loader of programs like this one finds our vendor library in one of the folders
// without being told where it is.
bool ownLoaderFinds(const Folders& folders) {
    if (wasTold(folders))
        return false;
    void* found = dlopen(vendorLibrary, RTLD_LAZY | RTLD_LOCAL);
    if (found == nullptr)
        return false;
    link_map* map = nullptr;
    const bool same = dlinfo(found, RTLD_DI_LINKMAP, &map) == 0 && holds(folders, map->l_name);
    dlclose(found);
    return same;
}

// The same for the loader of programs of another kind. What it would load cannot be loaded here;
// but its list of the libraries of all kinds has each path as a text between zeros.
bool otherLoaderFinds(const Folders& folders, const std::string& loaderCache) {
    std::ifstream cache(loaderCache, std::ios::binary);
    const std::string ending = std::string("/") + vendorLibrary;
    for (std::string text; std::getline(cache, text, '\0');)
        if (text.ends_with(ending) && holds(folders, text))
            return true;
    return false;
}

// Whether it is a library for programs of another kind than this one (32-bit, 64-bit).
bool isOfAnotherKind(const std::string& library) {
    char identification[EI_NIDENT] = {};
    std::ifstream(library, std::ios::binary).read(identification, sizeof identification);
    constexpr char ownClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
    return std::string_view(identification, SELFMAG) == ELFMAG &&
           identification[EI_CLASS] != ownClass;
}

void useVendorFront(const Installation& installation, const std::string& display) {
    const Folders unknown = foldersUnknownToLoader(installation);
    if (!unknown.empty())
        setenv(variable, prependFolders(unknown, currentPaths()).c_str(), 1);
    if (!namesOurVendor(display))
        setenv("__GLX_VENDOR_LIBRARY_NAME", "kor", 1);
}

} // namespace

std::string removeFolders(const std::vector<std::string>& folders, const std::string& paths) {
    // Empty entries mean the current folder to the loader: they are dropped, since nobody who
    // writes "a::b" or a trailing colon wants libraries from wherever he happens to stand.
    std::vector<std::string> kept;
    std::istringstream entries(paths);
    for (std::string entry; std::getline(entries, entry, ':');)
        if (!entry.empty() && std::find(folders.begin(), folders.end(), entry) == folders.end())
            kept.push_back(entry);
    return join(kept, ":");
}

std::string prependFolders(const std::vector<std::string>& folders, const std::string& paths) {
    const std::string rest = removeFolders(folders, paths);
    const std::string first = join(folders, ":");
    if (first.empty() || rest.empty())
        return first + rest;
    return first + ":" + rest;
}

std::vector<std::string> foldersUnknownToLoader(const Installation& installation,
                                                const std::string& loaderCache) {
    Folders own;
    Folders others;
    for (const std::string& folder : installation.vendorFolders)
        (isOfAnotherKind(folder + "/" + vendorLibrary) ? others : own).push_back(folder);
    Folders unknown;
    if (!own.empty() && !ownLoaderFinds(own))
        unknown = own;
    if (!others.empty() && !otherLoaderFinds(others, loaderCache))
        unknown.insert(unknown.end(), others.begin(), others.end());
    return unknown;
}

Front chooseFront(const Installation& installation, Front wanted) {
    const std::string build = ": build it (cmake --build --preset release) or install the package";
    const std::string searched = join(installation.searched, ", ");
    const bool vendorCanBeUsed = !installation.vendorFolders.empty() && systemHasDispatch();
    if (wanted != Front::Classic && vendorCanBeUsed)
        return Front::Glvnd;
    if (wanted == Front::Glvnd && !installation.vendorFolders.empty())
        throw Failure(StatusMissing, "the system has no vendor-neutral dispatch library, "
                                     "libGLX.so.0: --front=classic does without");
    if (wanted == Front::Glvnd)
        throw Failure(StatusMissing, std::string("the vendor library ") + vendorLibrary +
                                         " is above none of " + searched + build);
    if (installation.frontFolders.empty())
        throw Failure(StatusMissing,
                      "the front library libGL.so.1 is in none of " + searched + build);
    return Front::Classic;
}

Front useFront(const Installation& installation, Front wanted, const std::string& display) {
    const Front chosen = chooseFront(installation, wanted);
    if (chosen == Front::Glvnd)
        useVendorFront(installation, display);
    else
        setenv(variable, prependFolders(installation.frontFolders, currentPaths()).c_str(), 1);
    giveShippedSettings();
    return chosen;
}

void avoidFront(const Installation& installation) {
    std::string rest = removeFolders(installation.frontFolders, currentPaths());
    // A folder that the loader looks into anyway is named by somebody for other reasons.
    rest = removeFolders(installation.vendorFolders, rest);
    if (rest.empty())
        unsetenv(variable);
    else
        setenv(variable, rest.c_str(), 1);
}

} // namespace korrun

#include "environment.h"

#include "display_probe.h"
#include "failure.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>
#include <sstream>

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

// True when the loader finds our vendor library without being told where it is.
bool loaderFindsVendorLibrary(const Installation& installation) {
    void* found = dlopen(vendorLibrary, RTLD_LAZY | RTLD_LOCAL);
    if (found == nullptr)
        return false;
    link_map* map = nullptr;
    std::error_code error;
    bool same = false;
    if (dlinfo(found, RTLD_DI_LINKMAP, &map) == 0)
        for (const std::string& folder : installation.vendorFolders)
            same = same || std::filesystem::equivalent(
                               map->l_name, std::filesystem::path(folder) / vendorLibrary, error);
    dlclose(found);
    return same;
}

void useVendorFront(const Installation& installation, const std::string& display) {
    if (!loaderFindsVendorLibrary(installation))
        setenv(variable, prependFolders(installation.vendorFolders, currentPaths()).c_str(), 1);
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

#include "environment.h"

#include "failure.h"

#include <algorithm>
#include <cstdlib>
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

void useFront(const Installation& installation) {
    if (installation.frontFolders.empty())
        throw Failure(StatusMissing,
                      "the front library libGL.so.1 is in none of " +
                          join(installation.searched, ", ") +
                          ": build it (cmake --build --preset release) or install the package");
    setenv(variable, prependFolders(installation.frontFolders, currentPaths()).c_str(), 1);
}

void avoidFront(const Installation& installation) {
    const std::string rest = removeFolders(installation.frontFolders, currentPaths());
    if (rest.empty())
        unsetenv(variable);
    else
        setenv(variable, rest.c_str(), 1);
}

} // namespace korrun

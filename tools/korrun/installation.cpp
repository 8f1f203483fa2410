#include "installation.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <unistd.h>

namespace korrun {

namespace files = std::filesystem;

namespace {

bool isProgram(const files::path& path) {
    std::error_code error;
    return files::is_regular_file(path, error) && access(path.c_str(), X_OK) == 0;
}

} // namespace

Installation findInstallation() {
    std::error_code error;
    return findInstallation(files::read_symlink("/proc/self/exe", error).string());
}

Installation findInstallation(const std::string& korrunPath) {
    Installation found;
    found.korrun = korrunPath;
    const files::path binFolder = files::path(korrunPath).parent_path();
    if (isProgram(binFolder / "Xkor"))
        found.server = binFolder / "Xkor";

    // The libraries of other architectures lie in folders of their own; the loader takes from each
    // folder what fits the program, so all of them are named.
    const files::path prefix = binFolder.parent_path();
    for (const char* libraries :
         {KOR_LIBDIR, "lib", "lib/x86_64-linux-gnu", "lib64", "lib/i386-linux-gnu", "lib32"}) {
        const std::string folder = (prefix / libraries / "kor").lexically_normal();
        if (std::find(found.searched.begin(), found.searched.end(), folder) != found.searched.end())
            continue;
        found.searched.push_back(folder);
        std::error_code error;
        if (files::exists(files::path(folder) / "libGL.so.1", error))
            found.frontFolders.push_back(folder);
        const files::path above = files::path(folder).parent_path();
        if (files::exists(above / vendorLibrary, error))
            found.vendorFolders.push_back(above);
    }
    return found;
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos)
        return isProgram(name) ? name : "";
    const char* path = std::getenv("PATH");
    std::istringstream folders(path && *path ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const files::path candidate = files::path(folder.empty() ? "." : folder) / name;
        if (isProgram(candidate))
            return candidate;
    }
    return "";
}

} // namespace korrun

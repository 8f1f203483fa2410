#include "server_files.h"

#include <cstdlib>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace kor::server {

namespace fs = std::filesystem;

namespace {

constexpr const char* usualModulePath = KOR_XORG_MODULE_PATH;
constexpr const char* moduleName = "extensions/libkor.so";

std::vector<std::string> split(const std::string& list) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (begin <= list.size()) {
        const size_t end = std::min(list.find(',', begin), list.size());
        if (end > begin)
            parts.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

bool readable(const fs::path& path) {
    return access(path.c_str(), R_OK) == 0;
}

std::string findProgram() {
    if (const char* named = getenv("KOR_XORG")) {
        if (access(named, X_OK) == 0)
            return named;
        throw Problem(Problem::StartFailed, std::string("KOR_XORG names ") + named +
                                                ", which is no program that can be run");
    }
    // Not the wrapper of the same name in the search path: that one asks for a console.
    for (const char* path : {"/usr/lib/xorg/Xorg", "/usr/libexec/Xorg", "/usr/lib/Xorg"})
        if (access(path, X_OK) == 0)
            return path;
    throw Problem(Problem::StartFailed,
                  "/usr/lib/xorg/Xorg is missing: install the package xserver-xorg-core");
}

/// The folder that holds our module in its "extensions", or an empty path.
fs::path moduleFolderBesideLauncher() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error)
        return {};
    const fs::path prefix = self.parent_path().parent_path();
    for (const char* lib : {"lib", "lib64", "lib/" KOR_MULTIARCH}) {
        fs::path folder = prefix / lib / "xorg/modules";
        if (readable(folder / moduleName))
            return folder;
    }
    return {};
}

bool makePrivateFolder(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder.parent_path(), error);
    mkdir(folder.c_str(), 0700);
    struct stat status {};
    // In a folder that all may write to, someone else could have made it first.
    return lstat(folder.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid() && access(folder.c_str(), W_OK | X_OK) == 0;
}

} // namespace

bool holdsModule(const std::string& modulePath, const std::string& name) {
    for (const std::string& folder : split(modulePath))
        if (readable(fs::path(folder) / name))
            return true;
    return false;
}

ServerFiles findServerFiles(const Options& options) {
    ServerFiles files;
    files.program = findProgram();
    files.modulePath = options.modulePath.empty() ? usualModulePath : options.modulePath;

    if (!holdsModule(files.modulePath, "drivers/dummy_drv.so"))
        throw Problem(Problem::StartFailed, "the server's dummy driver is missing in " +
                                                files.modulePath +
                                                ": install the package xserver-xorg-video-dummy");
    const fs::path own = moduleFolderBesideLauncher();
    if (!own.empty())
        files.modulePath = own.string() + "," + files.modulePath;
    else if (!holdsModule(files.modulePath, moduleName))
        throw Problem(Problem::StartFailed,
                      "the server module libkor.so is neither in ../lib/xorg/modules/extensions "
                      "beside Xkor nor in " +
                          files.modulePath + ": install KOR-GL again, or build all of it");
    return files;
}

std::string logFolder() {
    std::vector<fs::path> candidates;
    const char* state = getenv("XDG_STATE_HOME");
    const char* home = getenv("HOME");
    if (state && *state == '/')
        candidates.push_back(fs::path(state) / "kor");
    if (home && *home == '/')
        candidates.push_back(fs::path(home) / ".local/state/kor");
    candidates.push_back("/tmp/kor-" + std::to_string(geteuid()));
    for (const fs::path& folder : candidates)
        if (makePrivateFolder(folder))
            return folder;
    throw Problem(Problem::StartFailed, "no folder for the server's log: " +
                                            candidates.back().string() + " cannot be written");
}

} // namespace kor::server

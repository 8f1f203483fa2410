#include "log_folder.h"

#include "failure.h"
#include "private_folder.h"
#include "registry.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace korsession {

namespace files = std::filesystem;
using korrun::Failure;

namespace {

constexpr std::size_t keptFolders = 10;        // with the one that is being made
constexpr std::size_t neededBytes = 64 * 1024; // a session that comes up writes less

std::string usualPlace() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state && *state == '/')
        return std::string(state) + "/kor/sessions";
    const char* home = std::getenv("HOME");
    if (home && *home == '/')
        return std::string(home) + "/.local/state/kor/sessions";
    const std::string shared = "/tmp/kor-" + std::to_string(geteuid());
    makePrivateFolder(shared, "logs", "let --log-dir name another one");
    return shared + "/sessions";
}

// Sorts by time, and no two are alike.
std::string freshName() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return std::string(text) + "-" + std::to_string(getpid());
}

bool isOurName(const std::string& name) {
    return name.size() > 16 && name[8] == '-' && name[15] == '-' &&
           name.find_first_not_of("0123456789-") == std::string::npos;
}

// Makes room for one more.
void removeOldest(const files::path& place) {
    std::vector<std::string> folders;
    std::error_code error;
    for (const auto& entry : files::directory_iterator(place, error))
        if (isOurName(entry.path().filename()))
            folders.push_back(entry.path());
    std::sort(folders.begin(), folders.end());
    const std::vector<Entry> running = runningSessions();
    for (std::size_t i = 0; i + keptFolders <= folders.size(); ++i) {
        const bool used = std::any_of(running.begin(), running.end(), [&](const Entry& entry) {
            const auto logs = entry.facts.find(factLogs);
            return logs == entry.facts.end() || logs->second == folders[i];
        });
        if (!used)
            files::remove_all(folders[i], error);
    }
}

// Finds out by doing it: rights, quotas and full disks have no question that covers them all.
void tryToWrite(const std::string& folder) {
    const std::string path = folder + "/.trial-" + std::to_string(getpid());
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const std::vector<char> zeros(neededBytes);
    int error = 0;
    if (file == -1)
        error = errno;
    else {
        const ssize_t written = write(file, zeros.data(), zeros.size());
        if (written == -1 || fsync(file) != 0)
            error = errno;
        else if (written < static_cast<ssize_t>(zeros.size()))
            error = ENOSPC;
        close(file);
        unlink(path.c_str());
    }
    if (error != 0)
        throw Failure(korrun::StatusMissing, "the log directory " + folder +
                                                 " cannot be written to: " + std::strerror(error) +
                                                 " (--log-dir names another one)");
}

} // namespace

std::string makeLogFolder(const std::optional<std::string>& given) {
    std::error_code error;
    files::path folder = given ? files::absolute(*given, error) : files::path(usualPlace());
    if (!given) {
        removeOldest(folder);
        folder /= freshName();
    }
    files::create_directories(folder, error);
    if (error)
        throw Failure(korrun::StatusMissing, "the log directory " + folder.string() +
                                                 " cannot be made: " + error.message() +
                                                 " (--log-dir names another one)");
    // Programs write into their logs what they like.
    if (!given)
        files::permissions(folder, files::perms::owner_all, error);
    try {
        tryToWrite(folder);
    } catch (const Failure&) {
        if (!given)
            files::remove(folder, error);
        throw;
    }
    return folder;
}

std::string complaintAbout(const std::string& logFolder) {
    struct statvfs disk {};
    const bool found = statvfs(logFolder.c_str(), &disk) == 0;
    if (found && (geteuid() == 0 ? disk.f_bfree : disk.f_bavail) > 0)
        return "";
    return "the log directory " + logFolder +
           " cannot be written to any more: " + std::strerror(found ? ENOSPC : errno) +
           "; the session goes on, what it has to say is lost";
}

} // namespace korsession

#include "registry.h"

#include "failure.h"
#include "private_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace korsession {

namespace files = std::filesystem;
using korrun::Failure;
using korrun::FileDescriptor;

namespace {

constexpr int statusNoSession = 1;
constexpr const char* prefix = "session-";

std::string topFolder() {
    const char* named = std::getenv("KOR_SESSION_DIR");
    std::string path = named && *named ? named : "/tmp/kor-sessions-" + std::to_string(geteuid());
    makePrivateFolder(path, "sessions", "let KOR_SESSION_DIR name another one");
    return path;
}

bool takeLock(int file) {
    return flock(file, LOCK_EX | LOCK_NB) == 0;
}

// Written beside its place and moved there, so that readers see all of it or nothing.
void writeFile(const std::string& path, const std::string& text) {
    const std::string unfinished = path + ".part";
    FILE* stream = std::fopen(unfinished.c_str(), "we");
    bool written = stream && std::fputs(text.c_str(), stream) >= 0;
    int error = errno;
    if (stream && std::fclose(stream) != 0) {
        written = false;
        error = errno;
    }
    if (!written || std::rename(unfinished.c_str(), path.c_str()) != 0) {
        unlink(unfinished.c_str());
        throw Failure(korrun::StatusMissing, path + " cannot be written: " + std::strerror(error));
    }
}

} // namespace

SessionFolder::SessionFolder() {
    const std::string top = topFolder();
    // Under a name that nobody looks at until the lock is taken.
    std::string path = top + "/.new-XXXXXX";
    if (!mkdtemp(path.data()))
        throw Failure(korrun::StatusMissing,
                      "cannot make a folder in " + top + ": " + std::strerror(errno));
    m_path = top + "/" + prefix + path.substr(path.size() - 6);
    m_lock = FileDescriptor(
        open((path + "/lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!m_lock.isOpen() || !takeLock(m_lock.get()) ||
        std::rename(path.c_str(), m_path.c_str()) != 0) {
        const int error = errno;
        removeFolder(path);
        throw Failure(korrun::StatusMissing,
                      "cannot make a folder in " + top + ": " + std::strerror(error));
    }
}

void SessionFolder::writeKeeper(pid_t keeper) const {
    writeFile(file("keeper"), std::to_string(keeper) + "\n");
}

void SessionFolder::writeFacts(const Facts& facts) const {
    std::string text;
    for (const auto& [name, value] : facts) {
        std::string line = value; // one line each, whatever the user called his files
        std::replace(line.begin(), line.end(), '\n', ' ');
        text += name;
        text += "=" + line + "\n";
    }
    writeFile(file("facts"), text);
}

void SessionFolder::remove() const {
    removeFolder(m_path);
}

void removeFolder(const std::string& folder) {
    std::error_code error;
    files::remove_all(folder, error);
}

bool isRunning(const Entry& entry) {
    const FileDescriptor lock(open((entry.folder + "/lock").c_str(), O_RDWR | O_CLOEXEC));
    return lock.isOpen() && !takeLock(lock.get());
}

pid_t keeperOf(const std::string& folder) {
    pid_t keeper = -1;
    std::ifstream file(folder + "/keeper");
    return file >> keeper ? keeper : -1;
}

std::vector<Entry> runningSessions() {
    std::vector<Entry> sessions;
    std::error_code error;
    for (const auto& found : files::directory_iterator(topFolder(), error)) {
        Entry entry;
        entry.folder = found.path();
        if (!found.path().filename().string().starts_with(prefix))
            continue;
        if (!isRunning(entry)) {
            removeFolder(entry.folder);
            continue;
        }
        entry.keeper = keeperOf(entry.folder);
        std::ifstream facts(entry.folder + "/facts");
        for (std::string line; std::getline(facts, line);)
            if (const std::size_t equals = line.find('='); equals != std::string::npos)
                entry.facts[line.substr(0, equals)] = line.substr(equals + 1);
        sessions.push_back(entry);
    }
    const auto number = [](const Entry& entry) {
        const auto display = entry.facts.find(factDisplay);
        return display == entry.facts.end() ? -1
                                            : std::strtol(display->second.c_str() + 1, nullptr, 10);
    };
    std::sort(sessions.begin(), sessions.end(),
              [&](const Entry& a, const Entry& b) { return number(a) < number(b); });
    return sessions;
}

Entry findSession(const std::optional<std::string>& display) {
    const std::vector<Entry> sessions = runningSessions();
    if (!display) {
        if (sessions.size() == 1)
            return sessions[0];
        throw Failure(statusNoSession, sessions.empty() ? "no session is running"
                                                        : "several sessions are running: name one "
                                                          "(korsession list shows them)");
    }
    for (const Entry& entry : sessions)
        if (const auto found = entry.facts.find(factDisplay);
            found != entry.facts.end() && found->second == *display)
            return entry;
    throw Failure(statusNoSession,
                  "no session runs on " + *display + " (korsession list shows those that run)");
}

} // namespace korsession

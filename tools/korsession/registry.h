#pragma once

#include "file_descriptor.h"

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace korsession {

// The running sessions of a user are folders that nobody else can read, below /tmp/kor-sessions-UID
// (the variable KOR_SESSION_DIR names another place). Not in XDG_RUNTIME_DIR, which goes away when
// the user logs out. A session's processes hold a lock on a file in its folder: whose lock is free
// is dead, whatever its files say.

// What is told of a session once it is ready, by name; see the constants.
using Facts = std::map<std::string, std::string>;
constexpr const char* factDisplay = "display";      // ":7"
constexpr const char* factVnc = "vnc";              // host::port
constexpr const char* factPage = "page";            // without it there is no page
constexpr const char* factLogs = "logs";            // folder
constexpr const char* factCommand = "command";      // as text
constexpr const char* factGlDisplay = "gl-display"; // ":0.0"
constexpr const char* factPassword = "password";    // file; without it there is none

// The folder of a session that is being started.
class SessionFolder {
  public:
    // Makes it, locked. Throws Failure.
    SessionFolder();
    const std::string& path() const { return m_path; }
    std::string file(const char* name) const { return m_path + "/" + name; }
    // The lock is held as long as any process has this open.
    int lock() const { return m_lock.get(); }
    // Both throw Failure when the disk is full.
    void writeKeeper(pid_t keeper) const;
    void writeFacts(const Facts& facts) const;
    void remove() const;

  private:
    std::string m_path;
    korrun::FileDescriptor m_lock;
};

struct Entry {
    std::string folder;
    pid_t keeper = -1; // -1: not yet, its password is being made
    Facts facts;       // empty: it is still starting
};

// The sessions that run, by display. Folders of dead ones are removed.
std::vector<Entry> runningSessions();

// The session that was named, or the only one. Throws Failure (status 1) when there is no such.
Entry findSession(const std::optional<std::string>& display);

// The process that keeps the session in this folder, by now; -1: there is none yet.
pid_t keeperOf(const std::string& folder);

// Whether its processes still run.
bool isRunning(const Entry& entry);

// Removes what dead sessions left.
void removeFolder(const std::string& folder);

} // namespace korsession

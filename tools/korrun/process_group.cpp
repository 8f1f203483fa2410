#include "process_group.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

namespace korrun {

namespace {

// Reads a process's state and group from the text of /proc/PID/stat.
bool runsInGroup(const std::string& status, pid_t group) {
    // The program's name comes first and may contain anything; it ends at the last bracket.
    const std::size_t nameEnd = status.rfind(')');
    if (nameEnd == std::string::npos)
        return false;
    char state = 0;
    int parent = 0;
    int itsGroup = 0;
    // NOLINTNEXTLINE(cert-err34-c): the kernel's own numbers
    if (std::sscanf(status.c_str() + nameEnd + 1, " %c %d %d", &state, &parent, &itsGroup) != 3)
        return false;
    return itsGroup == group && state != 'Z' && state != 'X';
}

} // namespace

bool isGroupAlive(pid_t group) {
    if (kill(-group, 0) != 0)
        return false;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (!std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        std::ifstream file(entry.path() / "stat");
        std::string status;
        if (std::getline(file, status, '\0') && runsInGroup(status, group))
            return true;
    }
    return false;
}

} // namespace korrun

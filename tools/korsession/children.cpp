#include "children.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace korsession {

namespace {

using Clock = std::chrono::steady_clock;

// The parent of a process, from the text of /proc/PID/stat; -1 for none.
pid_t parentIn(const std::string& status) {
    const std::size_t nameEnd = status.rfind(')'); // the name may hold anything
    char state = 0;
    int parent = -1;
    // NOLINTNEXTLINE(cert-err34-c): the kernel's own numbers
    if (nameEnd == std::string::npos ||
        std::sscanf(status.c_str() + nameEnd + 1, " %c %d", &state, &parent) != 2)
        return -1;
    return parent;
}

void signalChildren(int number) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename();
        if (!std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; }))
            continue;
        std::ifstream file(entry.path() / "stat");
        std::string status;
        // A child keeps its number until it is collected, so nobody else is hit.
        if (std::getline(file, status, '\0') && parentIn(status) == getpid())
            kill(static_cast<pid_t>(std::stol(name)), number);
    }
}

} // namespace

bool collectEnded(pid_t wanted) {
    bool found = false;
    for (pid_t ended = 0; (ended = waitpid(-1, nullptr, WNOHANG)) > 0;)
        found = found || ended == wanted;
    return found;
}

void endChildren(std::chrono::milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    constexpr std::chrono::seconds between{1};
    Clock::time_point next = Clock::now();
    while (true) {
        collectEnded(-1);
        if (waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD)
            return;
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            signalChildren(SIGKILL);
        } else if (now >= next) {
            // Again and again: children of the ended ones become ours, and some were not listening.
            signalChildren(SIGTERM);
            signalChildren(SIGCONT);
            next = now + between;
        }
        poll(nullptr, 0, 20);
    }
}

bool endChild(pid_t child, std::chrono::milliseconds patience) {
    for (const int number : {SIGTERM, SIGCONT})
        if (kill(-child, number) != 0)
            kill(child, number);
    const Clock::time_point deadline = Clock::now() + patience;
    while (waitpid(child, nullptr, WNOHANG) == 0) {
        if (Clock::now() >= deadline) {
            kill(child, SIGKILL);
            while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
            }
            return false;
        }
        poll(nullptr, 0, 20);
    }
    return true;
}

} // namespace korsession

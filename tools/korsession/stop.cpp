#include "actions.h"
#include "failure.h"
#include "pipe_text.h"
#include "registry.h"

#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace korsession {

namespace {

constexpr int statusNotStopped = 1;
// The keepers allow five seconds to the command, some to the servers, twelve to all that is left.
constexpr std::chrono::seconds stoppingPatience{60};

std::string nameOf(const Entry& entry) {
    const auto display = entry.facts.find(factDisplay);
    return display == entry.facts.end() ? "that is starting" : display->second;
}

// Asks the session's keeper to end. What is returned can be polled for the end of its process; it
// is not open when the process is gone already.
korrun::FileDescriptor askToEnd(const Entry& entry) {
    if (entry.keeper <= 1)
        return {};
    korrun::FileDescriptor process(static_cast<int>(syscall(SYS_pidfd_open, entry.keeper, 0)));
    // Its lock is held, so the number is that of a keeper, or of nobody if that one was killed.
    if (!isRunning(entry))
        return {};
    kill(entry.keeper, SIGTERM);
    return process;
}

bool waitForEnd(const Entry& entry, const korrun::FileDescriptor& keeper) {
    const korrun::Clock::time_point deadline = korrun::Clock::now() + stoppingPatience;
    while (isRunning(entry)) {
        if (korrun::Clock::now() >= deadline)
            return false;
        poll(nullptr, 0, 20);
    }
    // The keeper removes its folder, and then ends.
    pollfd process{keeper.get(), POLLIN, 0};
    if (keeper.isOpen() &&
        poll(&process, 1, static_cast<int>(std::chrono::milliseconds(stoppingPatience).count())) ==
            0)
        return false;
    removeFolder(entry.folder);
    return true;
}

} // namespace

int stop(const Options& options) {
    const std::vector<Entry> sessions =
        options.all ? runningSessions() : std::vector<Entry>{findSession(options.session)};
    std::vector<korrun::FileDescriptor> keepers;
    keepers.reserve(sessions.size());
    for (const Entry& entry : sessions)
        keepers.push_back(askToEnd(entry));
    int status = 0;
    for (std::size_t i = 0; i < sessions.size(); ++i) {
        const Entry& entry = sessions[i];
        if (waitForEnd(entry, keepers[i])) {
            std::printf("session %s has ended\n", nameOf(entry).c_str());
            continue;
        }
        std::fprintf(stderr, "korsession: the session %s does not end (process %d)\n",
                     nameOf(entry).c_str(), static_cast<int>(entry.keeper));
        status = statusNotStopped;
    }
    return status;
}

} // namespace korsession

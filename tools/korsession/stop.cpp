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

struct Ending {
    Entry entry;
    bool asked = false;
    // Can be polled for the end of the keeper's process; not open when that is gone already.
    korrun::FileDescriptor process;
};

// Asks the session's keeper to end, once there is one.
void askToEnd(Ending& ending) {
    if (ending.asked)
        return;
    ending.entry.keeper = keeperOf(ending.entry.folder);
    if (ending.entry.keeper <= 1)
        return;
    korrun::FileDescriptor process(
        static_cast<int>(syscall(SYS_pidfd_open, ending.entry.keeper, 0)));
    // Its lock is held, so the number is that of a keeper, or of nobody if that one was killed.
    if (!isRunning(ending.entry))
        return;
    kill(ending.entry.keeper, SIGTERM);
    ending.asked = true;
    ending.process = std::move(process);
}

bool waitForEnd(Ending& ending) {
    const korrun::Clock::time_point deadline = korrun::Clock::now() + stoppingPatience;
    while (isRunning(ending.entry)) {
        if (korrun::Clock::now() >= deadline)
            return false;
        askToEnd(ending);
        poll(nullptr, 0, 20);
    }
    // The keeper removes its folder, and then ends.
    pollfd process{ending.process.get(), POLLIN, 0};
    if (ending.process.isOpen() &&
        poll(&process, 1, static_cast<int>(std::chrono::milliseconds(stoppingPatience).count())) ==
            0)
        return false;
    removeFolder(ending.entry.folder);
    return true;
}

} // namespace

int stop(const Options& options) {
    const std::vector<Entry> sessions =
        options.all ? runningSessions() : std::vector<Entry>{findSession(options.session)};
    std::vector<Ending> endings;
    endings.reserve(sessions.size());
    for (const Entry& entry : sessions)
        askToEnd(endings.emplace_back(Ending{entry, false, {}}));
    int status = 0;
    for (Ending& ending : endings) {
        if (waitForEnd(ending)) {
            std::printf("session %s has ended\n", nameOf(ending.entry).c_str());
            continue;
        }
        std::fprintf(stderr, "korsession: the session %s does not end (process %d)\n",
                     nameOf(ending.entry).c_str(), static_cast<int>(ending.entry.keeper));
        status = statusNotStopped;
    }
    return status;
}

} // namespace korsession

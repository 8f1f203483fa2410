#include "actions.h"
#include "failure.h"
#include "pipe_text.h"
#include "registry.h"

#include <csignal>
#include <cstdio>
#include <poll.h>

namespace korsession {

namespace {

constexpr int statusNotStopped = 1;
// The keepers allow five seconds to the command, some to the servers, twelve to all that is left.
constexpr std::chrono::seconds stoppingPatience{60};

std::string nameOf(const Entry& entry) {
    const auto display = entry.facts.find(factDisplay);
    return display == entry.facts.end() ? "that is starting" : display->second;
}

void askToEnd(const Entry& entry) {
    // Its lock is held, so the number is that of a keeper, or of nobody if that one was killed.
    if (entry.keeper > 1 && isRunning(entry))
        kill(entry.keeper, SIGTERM);
}

bool waitForEnd(const Entry& entry) {
    const korrun::Clock::time_point deadline = korrun::Clock::now() + stoppingPatience;
    while (isRunning(entry)) {
        if (korrun::Clock::now() >= deadline)
            return false;
        poll(nullptr, 0, 20);
    }
    removeFolder(entry.folder);
    return true;
}

} // namespace

int stop(const Options& options) {
    const std::vector<Entry> sessions =
        options.all ? runningSessions() : std::vector<Entry>{findSession(options.session)};
    for (const Entry& entry : sessions)
        askToEnd(entry);
    int status = 0;
    for (const Entry& entry : sessions) {
        if (waitForEnd(entry)) {
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

#include "actions.h"
#include "failure.h"

#include <csignal>
#include <cstdio>

using namespace korsession;

namespace {

int act(const Options& options) {
    switch (options.action) {
    case Action::Help:
        std::fputs(helpText(), stdout);
        return 0;
    case Action::Version:
        std::fputs(versionText(), stdout);
        return 0;
    case Action::Start:
        return start(options);
    case Action::List:
        return list();
    case Action::Stop:
        return stop(options);
    case Action::Attach:
        return attach(options);
    case Action::Run:
        return run(options);
    }
    return korrun::StatusUsage;
}

} // namespace

int main(int count, char** arguments) {
    std::signal(SIGXFSZ, SIG_IGN); // a file that may not grow is to be reported
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return act(parseOptions({arguments + 1, arguments + count}));
    } catch (const korrun::Failure& failure) {
        std::fprintf(stderr, "korsession: %s\n", failure.what());
        return failure.exitStatus();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "korsession: %s\n", failure.what());
        return korrun::StatusMissing;
    }
}

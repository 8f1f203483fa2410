#include "shared_connections.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace kor::front {

namespace {

struct Shared {
    Display* display;
    int users;
    pid_t process; // that opened it: a forked child must not talk over its parent's
};

// Both live until the process ends: threads may come by while it exits. The lock guards the list
// only and is never held while Xlib is called.
std::mutex& sharedMutex() {
    static auto* mutex = new std::mutex;
    return *mutex;
}

std::vector<Shared>& sharedConnections() {
    static auto* connections = new std::vector<Shared>;
    return *connections;
}

/// A connection that broke is of no use to another display; its descriptor tells.
bool isBroken(Display* display) {
    pollfd descriptor{ConnectionNumber(display), POLLIN, 0};
    return poll(&descriptor, 1, 0) > 0 &&
           (descriptor.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
}

/// Takes a user for an open connection to the same display; null when there is none. Under the
/// lock.
Display* takeUser(Display* display) {
    for (Shared& shared : sharedConnections()) {
        if (shared.process != getpid() || isBroken(shared.display))
            continue;
        if (display != nullptr &&
            strcmp(DisplayString(display), DisplayString(shared.display)) != 0)
            continue;
        ++shared.users;
        return shared.display;
    }
    return nullptr;
}

} // namespace

Display* shareOpenConnection(Display* display) {
    Display* shared = nullptr;
    {
        const std::lock_guard lock(sharedMutex());
        shared = takeUser(display);
    }
    if (shared != nullptr && display != nullptr)
        XCloseDisplay(display);
    return shared;
}

Display* offerForSharing(Display* display) {
    Display* quicker = nullptr;
    {
        const std::lock_guard lock(sharedMutex());
        quicker = takeUser(display);
        if (quicker == nullptr) {
            sharedConnections().push_back({display, 1, getpid()});
            return display;
        }
    }
    XCloseDisplay(display);
    return quicker;
}

bool isLastUserGone(Display* display) {
    const std::lock_guard lock(sharedMutex());
    std::vector<Shared>& all = sharedConnections();
    const auto shared = std::find_if(all.begin(), all.end(),
                                     [&](const Shared& other) { return other.display == display; });
    if (shared == all.end())
        return true;
    if (--shared->users > 0)
        return false;
    all.erase(shared);
    return true;
}

} // namespace kor::front

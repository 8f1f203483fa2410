#include "shared_connections.h"

#include "support/forked_child.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <vector>

namespace kor::front {

namespace {

struct Shared {
    Display* display;
    int users;
};

/// Live until the process ends: threads may come by while it exits. A forked child has its own: it
/// must not talk over its parent's. The lock guards the list only and is never held while Xlib is
/// called.
struct SharedConnections {
    std::mutex mutex;
    std::vector<Shared> all;
};
PerProcess<SharedConnections> connections;

/// A connection that broke is of no use to another display; its descriptor tells.
bool isBroken(Display* display) {
    pollfd descriptor{ConnectionNumber(display), POLLIN, 0};
    return poll(&descriptor, 1, 0) > 0 &&
           (descriptor.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0;
}

/// Takes a user for an open connection to the same display; null when there is none. Under the
/// lock.
Display* takeUser(Display* display) {
    for (Shared& shared : connections->all) {
        if (isBroken(shared.display))
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
        const std::lock_guard lock(connections->mutex);
        shared = takeUser(display);
    }
    if (shared != nullptr && display != nullptr)
        XCloseDisplay(display);
    return shared;
}

Display* offerForSharing(Display* display) {
    Display* quicker = nullptr;
    {
        const std::lock_guard lock(connections->mutex);
        quicker = takeUser(display);
        if (quicker == nullptr) {
            connections->all.push_back({display, 1});
            return display;
        }
    }
    XCloseDisplay(display);
    return quicker;
}

bool isLastUserGone(Display* display) {
    const std::lock_guard lock(connections->mutex);
    std::vector<Shared>& all = connections->all;
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

#include "display/display_map.h"

#include "support/forked_child.h"

#include <algorithm>
#include <unistd.h>

namespace kor::gl {

namespace {
PerProcess<DisplayMap> displayMap;
} // namespace

bool SharedConnection::endUnlessPinned() {
    uint32_t state = state_.load(std::memory_order_relaxed);
    for (;;) {
        const bool pinned = (state & ~wantedClosed) != 0;
        if (state_.compare_exchange_weak(state, pinned ? state | wantedClosed : ended,
                                         std::memory_order_acq_rel))
            return !pinned;
    }
}

DisplayMap& DisplayMap::instance() {
    return *displayMap;
}

bool DisplayMap::has(Display* appDpy) {
    const Lock lock(mutex_);
    return map_.find(appDpy) != nullptr;
}

LocalDisplay DisplayMap::find(Display* appDpy) {
    const Lock lock(mutex_);
    const Connection* connection = map_.find(appDpy);
    return connection != nullptr ? LocalDisplay(connection->get()) : LocalDisplay();
}

LocalDisplay DisplayMap::find(TSD& tsd) {
    Display* const appDpy = tsd.appDisplay.load(std::memory_order_relaxed);
    const unsigned generation = generation_.load(std::memory_order_acquire);
    if (tsd.lastPair.appDisplay == appDpy && tsd.lastPair.generation == generation) {
        LocalDisplay pinned(tsd.lastPair.connection.get());
        if (pinned)
            return pinned;
    }
    const Lock lock(mutex_);
    const Connection* connection = map_.find(appDpy);
    if (connection == nullptr)
        return LocalDisplay();
    // A paired connection never ends, so that the pin is had.
    tsd.lastPair = {appDpy, *connection, generation_.load(std::memory_order_relaxed)};
    return LocalDisplay(connection->get());
}

LocalDisplay DisplayMap::pair(Display* appDpy, Display* local, Ended& left) {
    const Lock lock(mutex_);
    const auto known =
        std::find_if(connections_.begin(), connections_.end(),
                     [&](const Connection& other) { return other->display == local; });
    Connection connection;
    if (known != connections_.end()) {
        connection = *known;
        ++connection->opens;
    } else {
        connection = std::make_shared<SharedConnection>(local, appDpy);
        connections_.push_back(connection);
    }
    LocalDisplay pinned(connection.get());
    if (Connection* slot = map_.findOrInsert(appDpy)) {
        connection.swap(*slot);
        changed();
        if (connection != nullptr)
            left = endUnlessUsed(connection);
    }
    return pinned;
}

bool DisplayMap::isPaired(const SharedConnection* connection) {
    return map_.any([&](Display*, const Connection& paired) { return paired.get() == connection; });
}

DisplayMap::Ended DisplayMap::endUnlessUsed(const Connection& connection) {
    if (isPaired(connection.get()) || !connection->endUnlessPinned())
        return nullptr;
    Ended ended = connection;
    connections_.remove(connection);
    return ended;
}

DisplayMap::Ended DisplayMap::unpairUnlessPinned(Display* appDpy) {
    const Lock lock(mutex_);
    Connection* slot = map_.find(appDpy);
    if (slot == nullptr)
        return nullptr;
    Connection connection = *slot;
    slot->reset(); // whether another display has it
    const bool others = isPaired(connection.get());
    if (!others && !connection->endUnlessPinned()) {
        *slot = connection;
        return nullptr;
    }
    map_.remove(appDpy);
    changed();
    if (others)
        return nullptr;
    connections_.remove(connection);
    return connection;
}

DisplayMap::Ended DisplayMap::unpair(Display* appDpy) {
    const Lock lock(mutex_);
    const Connection* slot = map_.find(appDpy);
    if (slot == nullptr)
        return nullptr;
    const Connection connection = *slot;
    map_.remove(appDpy);
    changed();
    return endUnlessUsed(connection);
}

DisplayMap::Wanted DisplayMap::wanted(SharedConnection* connection) {
    Wanted result;
    const Lock lock(mutex_);
    const auto known =
        std::find_if(connections_.begin(), connections_.end(),
                     [&](const Connection& other) { return other.get() == connection; });
    if (known == connections_.end())
        return result; // another one has seen to it
    map_.any([&](Display* appDpy, const Connection& paired) {
        if (paired.get() == connection)
            result.appDisplays.push_back(appDpy);
        return false; // every pair is looked at
    });
    if (result.appDisplays.empty())
        result.ended = endUnlessUsed(Connection(*known));
    else
        connection->keepOpen();
    return result;
}

bool DisplayMap::watch(Display* appDpy) {
    const Lock lock(mutex_);
    if (watched_.find(appDpy) != nullptr)
        return false;
    if (pid_t* process = watched_.findOrInsert(appDpy))
        *process = getpid();
    return true;
}

bool DisplayMap::unwatch(Display* appDpy) {
    const Lock lock(mutex_);
    const pid_t* process = watched_.find(appDpy);
    const bool ours = process != nullptr && *process == getpid();
    watched_.remove(appDpy);
    return ours;
}

} // namespace kor::gl

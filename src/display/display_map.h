#ifndef KOR_DISPLAY_DISPLAY_MAP_H
#define KOR_DISPLAY_DISPLAY_MAP_H

#include "core/tsd.h"
#include "display/shared_connection.h"
#include "support/bucket_map.h"
#include "support/mutex.h"

#include <atomic>
#include <list>
#include <sys/types.h>
#include <vector>

namespace kor::gl {

/// The pairs of application display and local connection, the connections themselves, and the
/// application displays whose end is watched for, behind one lock. It guards the tables only and is
/// never held across an Xlib call. Made at the first use, never destroyed.
class DisplayMap {
  public:
    static DisplayMap& instance();

    bool has(Display* appDpy);
    /// A pin on its local connection; none when it has none.
    LocalDisplay find(Display* appDpy);
    /// The same for the thread's application display, without the lock as long as the thread's last
    /// answer holds: every entry point comes by here.
    LocalDisplay find(TSD& tsd);

    /// A connection that has ended and is to be closed, by the caller and with no lock held; null:
    /// none has.
    using Ended = std::shared_ptr<SharedConnection>;
    /// Pairs it with a connection that openConnection has given, which may be one that others are
    /// paired with already. The one that it had before goes with its last pin.
    LocalDisplay pair(Display* appDpy, Display* local, Ended& left);
    /// Takes the pair apart, unless the connection is pinned and serves no other display: then the
    /// one who takes the last pin away sees to it (wanted()).
    Ended unpairUnlessPinned(Display* appDpy);
    /// Takes the pair apart. The connection ends with its last pin when it serves no other display.
    Ended unpair(Display* appDpy);
    /// The last pin on a connection that is wanted closed is gone. When it is still paired, ended
    /// is null and the displays are the ones to look at.
    struct Wanted {
        Ended ended;
        std::vector<Display*> appDisplays;
    };
    Wanted wanted(SharedConnection* connection);

    /// True at the first call for a display: its end is to be watched for.
    bool watch(Display* appDpy);
    /// True when it was watched by this process.
    bool unwatch(Display* appDpy);

  private:
    using Connection = std::shared_ptr<SharedConnection>;

    Connection& slotOf(Display* appDpy);
    bool isPaired(const SharedConnection* connection);
    Ended endUnlessUsed(const Connection& connection);
    void changed() { generation_.fetch_add(1, std::memory_order_release); }

    Mutex mutex_;
    BucketMap<Display*, Connection> map_;
    std::list<Connection> connections_;   // all that have not ended
    BucketMap<Display*, pid_t> watched_;  // and the process that does
    std::atomic<unsigned> generation_{1}; // changes with the pairs; never 0, a new thread's value
};

} // namespace kor::gl

#endif

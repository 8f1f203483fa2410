#include "id_range.h"

#include <X11/Xlibint.h>
#undef min
#undef max

#include <algorithm>
#include <array>

namespace kor::adapter {
namespace {

/// The range of ids of a connection as the server gave it: the mask's bits vary within it.
struct IdRange {
    XID mask;
    XID step;

    explicit IdRange(Display* display) : mask(display->resource_mask), step(mask & (~mask + 1)) {}
    XID half() const { return (mask / step + 1) / 2; }
    XID position(XID id) const { return (id & mask) / step; }
};

/// One id, the Xlib way: it is the one that Xlib took from the range a call ago.
XID nextId(Display* dpy) { // the name that Xlib's macros expect
    LockDisplay(dpy);
    const XID id = XAllocID(dpy);
    UnlockDisplay(dpy);
    SyncHandle();
    return id;
}

} // namespace

void moveIdsToUpperHalf(Display* display) {
    const IdRange range(display);
    if (range.mask == 0)
        return;
    std::array<XID, 4096> chunk{};
    LockDisplay(display); // XAllocIDs expects to be called with the lock held
    XID position = 0;
    while (position < range.half()) {
        const XID missing = range.half() - position;
        const int count = static_cast<int>(std::min<XID>(missing, chunk.size()));
        XAllocIDs(display, chunk.data(), count);
        const XID reached = range.position(chunk.at(static_cast<std::size_t>(count) - 1));
        if (reached <= position)
            break; // the range was used up and the server gave another part of it
        position = reached;
    }
    UnlockDisplay(display);
    nextId(display); // the id that Xlib had put by before, from the lower half
}

} // namespace kor::adapter

#include "pbuffer_put_error.h"

#include "request_stream.h"
#include "support/forked_child.h"

#include <X11/Xlibint.h>
#include <X11/Xproto.h>
#include <X11/extensions/shmproto.h>
#undef min
#undef max

#include <algorithm>
#include <deque>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

namespace kor::adapter {

namespace {

/// One watched connection. Everything in it is guarded by the connection's own lock: Xlib holds it
/// around both hooks.
struct PutErrorFilter {
    _XAsyncHandler handler{};
    XExtCodes* codes = nullptr;
    int shmMajor = 0; // 0 where the server has no MIT-SHM
    RequestStream output;
    std::unordered_set<GLXPbuffer> pbuffers;
    std::deque<unsigned long> otherPuts; // request numbers, ascending, of puts elsewhere
};

struct Filters {
    std::mutex mutex; // guards the table only; a leaf
    std::unordered_map<Display*, PutErrorFilter*> byDisplay;
};

PerProcess<Filters> allFilters;

Filters& filters() {
    return *allFilters;
}

PutErrorFilter* findFilter(Display* display) {
    const std::lock_guard lock(filters().mutex);
    const auto found = filters().byDisplay.find(display);
    return found == filters().byDisplay.end() ? nullptr : found->second;
}

bool isPut(const PutErrorFilter& filter, unsigned major, unsigned minor) {
    return major == X_PutImage ||
           (filter.shmMajor != 0 && major == static_cast<unsigned>(filter.shmMajor) &&
            minor == X_ShmPutImage);
}

/// Request numbers wrap where unsigned long has 32 bits.
bool isBefore(unsigned long a, unsigned long b) {
    return static_cast<long>(a - b) < 0;
}

void forgetAnswered(PutErrorFilter& filter, unsigned long answered) {
    while (!filter.otherPuts.empty() && isBefore(filter.otherPuts.front(), answered))
        filter.otherPuts.pop_front();
}

void beforeFlush(Display* display, XExtCodes* /*codes*/, const char* data, long size) {
    PutErrorFilter* filter = findFilter(display);
    if (!filter || size <= 0)
        return;
    forgetAnswered(*filter, LastKnownRequestProcessed(display));
    const unsigned long last = NextRequest(display) - 1;
    filter->output.read(data, static_cast<std::size_t>(size), [&](const RequestHead& head) {
        if (isPut(*filter, head.major, head.minor) && !filter->pbuffers.contains(head.resource))
            filter->otherPuts.push_back(last - head.later);
    });
}

Bool dropError(Display* display, xReply* reply, char* /*buffer*/, int /*length*/, XPointer data) {
    const PutErrorFilter& filter = *reinterpret_cast<PutErrorFilter*>(data);
    const xError& error = reply->error;
    if (reply->generic.type != X_Error || error.errorCode != BadMatch ||
        !isPut(filter, error.majorCode, error.minorCode))
        return False;
    const unsigned long request = LastKnownRequestProcessed(display);
    return std::find(filter.otherPuts.begin(), filter.otherPuts.end(), request) ==
           filter.otherPuts.end();
}

int forgetFilter(Display* display, XExtCodes* /*codes*/) {
    PutErrorFilter* filter = nullptr;
    {
        const std::lock_guard lock(filters().mutex);
        const auto found = filters().byDisplay.find(display);
        if (found == filters().byDisplay.end())
            return 0;
        filter = found->second;
        filters().byDisplay.erase(found);
    }
    // Errors that are still to come belong to a connection that is closing: they are read before
    // this, with the answer to the closing request.
    LockDisplay(display);
    DeqAsyncHandler(display, &filter->handler);
    UnlockDisplay(display);
    delete filter;
    return 0;
}

} // namespace

void dropPbufferPutErrors(Display* display) {
    int event = 0;
    int error = 0;
    int major = 0;
    if (!XQueryExtension(display, SHMNAME, &major, &event, &error))
        major = 0;
    XFlush(display); // the watch begins with a whole request
    XExtCodes* codes = XAddExtension(display);
    if (!codes)
        return;
    auto* filter = new PutErrorFilter;
    filter->codes = codes;
    filter->shmMajor = major;
    filter->handler.handler = dropError;
    filter->handler.data = reinterpret_cast<XPointer>(filter);
    {
        const std::lock_guard lock(filters().mutex);
        filters().byDisplay.insert_or_assign(display, filter);
    }
    XESetCloseDisplay(display, codes->extension, forgetFilter);
    XESetBeforeFlush(display, codes->extension, beforeFlush);
    LockDisplay(display);
    filter->handler.next = display->async_handlers;
    display->async_handlers = &filter->handler;
    UnlockDisplay(display);
}

void addPbuffer(Display* display, GLXPbuffer pbuffer) {
    PutErrorFilter* filter = findFilter(display);
    if (!filter || pbuffer == None)
        return;
    LockDisplay(display);
    filter->pbuffers.insert(pbuffer);
    UnlockDisplay(display);
}

void removePbuffer(Display* display, GLXPbuffer pbuffer) {
    PutErrorFilter* filter = findFilter(display);
    if (!filter)
        return;
    XFlush(display); // puts that are not on their way yet still count as the pbuffer's
    LockDisplay(display);
    filter->pbuffers.erase(pbuffer);
    UnlockDisplay(display);
}

} // namespace kor::adapter

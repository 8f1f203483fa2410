#include "vendor_names.h"

#include <X11/Xlibint.h>
#undef min
#undef max

#include <cstdint>
#include <sstream>

namespace kor::adapter {
namespace {

// GLX on the wire, in the connection's byte order.
constexpr uint8_t queryServerString = 19;
constexpr uint32_t namesOfVendors = 0x20F6; // GLX_VENDOR_NAMES_EXT

struct QueryServerString {
    uint8_t majorOpcode;
    uint8_t minorOpcode;
    uint16_t length;
    uint32_t screen;
    uint32_t name;
};
static_assert(sizeof(QueryServerString) == 12);

struct QueryServerStringReply { // followed by the text with its terminator, padded
    uint8_t type;
    uint8_t unused;
    uint16_t sequence;
    uint32_t length;
    uint32_t unused2;
    uint32_t size;
    uint32_t unused3[4];
};
static_assert(sizeof(QueryServerStringReply) == 32);

constexpr unsigned long longestText = 4096;

/// Drops the error that answers our own request, by a server which does not know the question.
struct ErrorTrap {
    unsigned long request;

    static Bool drop(Display* dpy, xReply* reply, char* /*buffer*/, int /*length*/, XPointer data) {
        return reply->generic.type == X_Error &&
               dpy->last_request_read == reinterpret_cast<ErrorTrap*>(data)->request;
    }
};

/// The display is called dpy for the sake of Xlib's macros.
std::string ask(Display* dpy, int opcode, int screen) {
    std::string names;
    ErrorTrap trap{};
    _XAsyncHandler handler{};
    handler.handler = ErrorTrap::drop;
    handler.data = reinterpret_cast<XPointer>(&trap);

    LockDisplay(dpy);
    auto* request = static_cast<QueryServerString*>(
        _XGetRequest(dpy, queryServerString, sizeof(QueryServerString)));
    request->majorOpcode = static_cast<uint8_t>(opcode);
    request->minorOpcode = queryServerString;
    request->screen = static_cast<uint32_t>(screen);
    request->name = namesOfVendors;
    trap.request = dpy->request;
    handler.next = dpy->async_handlers;
    dpy->async_handlers = &handler;
    QueryServerStringReply reply{};
    const bool answered = _XReply(dpy, reinterpret_cast<xReply*>(&reply), 0, xFalse) != 0;
    DeqAsyncHandler(dpy, &handler);
    if (answered) {
        const unsigned long there = reply.length * 4UL;
        if (reply.size > 0 && reply.size <= there && there <= longestText) {
            names.resize(reply.size);
            _XReadPad(dpy, names.data(), static_cast<long>(reply.size));
            _XEatDataWords(dpy, reply.length - (reply.size + 3) / 4);
            names.resize(names.find('\0') == std::string::npos ? names.size() : names.find('\0'));
        } else {
            _XEatDataWords(dpy, reply.length);
        }
    }
    UnlockDisplay(dpy);
    SyncHandle();
    return names;
}

} // namespace

std::vector<std::string> askVendorNames(Display* display, int screen) {
    int opcode = 0;
    int event = 0;
    int error = 0;
    std::vector<std::string> names;
    if (!XQueryExtension(display, "GLX", &opcode, &event, &error))
        return names;
    std::istringstream words(ask(display, opcode, screen));
    for (std::string word; words >> word;)
        names.push_back(word);
    return names;
}

} // namespace kor::adapter

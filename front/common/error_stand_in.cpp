#include "error_stand_in.h"

#include "report.h"

#include <atomic>
#include <iterator>
#include <new>

#include <X11/Xlibint.h>
#undef min
#undef max

#pragma weak XSetIOErrorExitHandler // since Xlib 1.7

namespace kor::front {

namespace {

const char* errorName(unsigned code) {
    static const char* const names[] = {
        "Success",   "BadRequest", "BadValue",    "BadWindow",   "BadPixmap", "BadAtom",
        "BadCursor", "BadFont",    "BadMatch",    "BadDrawable", "BadAccess", "BadAlloc",
        "BadColor",  "BadGC",      "BadIDChoice", "BadName",     "BadLength", "BadImplementation"};
    return code < std::size(names) ? names[code] : "an extension's error";
}

/// Called for replies and errors that are about to be delivered, those that answer a request which
/// waits (_XReply) included; there, an extension's own hook (XESetError) and the handlers that
/// Xlib's functions install for one request come before this one, and a dropped error makes the
/// request fail as it does after an application's handler has returned.
Bool onReply(Display* display, xReply* reply, char*, int, XPointer) {
    if (reply->generic.type != X_Error)
        return False;
    if (_XErrorFunction != nullptr && _XErrorFunction != _XDefaultError)
        return False;
    static std::atomic<bool> said{false};
    if (!said.exchange(true))
        report("an X error on the library's own connection to %s was dropped, since the "
               "application handles none: %s (code %u, request %u.%u, resource 0x%lx). Most likely "
               "a window vanished before its frame was painted. Further ones are not reported.",
               DisplayString(display), errorName(reply->error.errorCode), reply->error.errorCode,
               reply->error.majorCode, reply->error.minorCode,
               static_cast<unsigned long>(reply->error.resourceID));
    return True;
}

bool isOwn(Display* display) {
    for (_XAsyncHandler* handler = display->async_handlers; handler != nullptr;
         handler = handler->next)
        if (handler->handler == onReply)
            return true;
    return false;
}

/// In the place of Xlib's own handler, which ends the process itself. Returning leaves the decision
/// to the connection's exit handler.
int onBrokenConnection(Display* display) {
    return isOwn(display) ? 0 : _XDefaultIOError(display);
}

/// What Xlib calls about a broken connection last of all, to end the process. Xlib does not expect
/// that to return, so what it leaves behind is put right. It has taken the user's lock
/// (XLockDisplay) and released the other one, which its caller will release once more. And it drops
/// no request from now on, but collects them until the functions that add them write through a null
/// pointer; without the mark on the connection, it instead fails to send them, and comes here
/// again.
void onExit(Display* display, void*) {
    static std::atomic<bool> said{false};
    if (!said.exchange(true))
        report("the library's own connection to the X server %s broke. The application goes on; "
               "what needs that server fails from now on.",
               DisplayString(display));
    XUnlockDisplay(display);
    LockDisplay(display);
    display->flags = display->flags & ~static_cast<unsigned long>(XlibDisplayIOError);
    display->bufptr = display->buffer;
}

/// Finds the handler among those of the connection: what Xlib tells a closing hook is the display
/// and the number of the extension only.
int onClose(Display* display, XExtCodes*) {
    for (_XAsyncHandler** link = &display->async_handlers; *link != nullptr;
         link = &(*link)->next) {
        if ((*link)->handler != onReply)
            continue;
        _XAsyncHandler* handler = *link;
        *link = handler->next;
        delete handler;
        break;
    }
    return 0;
}

} // namespace

void standInForErrors(Display* display) {
    auto* handler = new (std::nothrow) _XAsyncHandler{};
    XExtCodes* codes = handler == nullptr ? nullptr : XAddExtension(display);
    if (codes == nullptr) {
        delete handler;
        return;
    }
    XESetCloseDisplay(display, codes->extension, onClose);
    handler->handler = onReply;
    LockDisplay(display);
    handler->next = display->async_handlers;
    display->async_handlers = handler;
    UnlockDisplay(display);
    if (XSetIOErrorExitHandler == nullptr)
        return; // returning from the other handler would not help then
    XSetIOErrorExitHandler(display, onExit, nullptr);
    if (_XIOErrorFunction == nullptr || _XIOErrorFunction == _XDefaultIOError)
        XSetIOErrorHandler(onBrokenConnection);
}

} // namespace kor::front

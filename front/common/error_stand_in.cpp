#include "error_stand_in.h"

#include "report.h"

#include <atomic>
#include <cstdlib>
#include <dlfcn.h>
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

// kor_error_moment of the library's display/connections.h
constexpr int tellNow = 0;
constexpr int tellAfterwards = 1;

int (*whenToTell)(void (*afterwards)()) = nullptr;
void (*printLog)(const char*, int, const char*, const char*, bool, const char*, ...) = nullptr;

bool applicationHandlesErrors() {
    return _XErrorFunction != nullptr && _XErrorFunction != _XDefaultError;
}

void reportDropped(const XErrorEvent& error) {
    static std::atomic<bool> said{false};
    if (!said.exchange(true))
        report("an X error on the library's own connection to %s was dropped, since the "
               "application handles none: %s (code %u, request %u.%u, resource 0x%lx). Further "
               "ones are not reported.",
               DisplayString(error.display), errorName(error.error_code), error.error_code,
               error.request_code, error.minor_code, error.resourceid);
}

void noteWindowGone(const XErrorEvent& error) {
    static std::atomic<bool> said{false};
    constexpr int warning = 2;
    if (!said.exchange(true))
        printLog("KORGL", warning, "WARNING", "void kor::front::noteWindowGone(const XErrorEvent&)",
                 false,
                 "a window vanished before its frame was painted: %s (request %u.%u, resource "
                 "0x%lx). Further ones are not logged.",
                 errorName(error.error_code), error.request_code, error.minor_code,
                 error.resourceid);
}

/// What a request meets with when its window is gone: no such window, no such drawable, or no such
/// GC, since that could not be made either.
bool isOfVanishedWindow(unsigned char code) {
    return code == BadWindow || code == BadDrawable || code == BadGC;
}

/// An error that this thread will tell. Plain memory: it is used while a thread ends, too.
struct PutOff {
    PutOff* next;
    XErrorEvent event;
};
thread_local PutOff* firstPutOff = nullptr;
thread_local PutOff** lastPutOff = nullptr;

/// An error that a library above Xlib read for itself and handed on has a number of which Xlib
/// knows nothing yet. Until it does, Xlib waits for the server at each call and then takes the next
/// such error for one that comes too late: "sequence lost".
bool isAheadOfXlib(Display* display) {
    return X_DPY_GET_LAST_REQUEST_READ(display) > X_DPY_GET_REQUEST(display);
}

void tellPutOff() {
    while (firstPutOff != nullptr) {
        PutOff* const first = firstPutOff;
        firstPutOff = first->next;
        XErrorEvent event = first->event;
        std::free(first);      // a handler may never return
        XFlush(event.display); // takes the connection's lock, where Xlib catches up
        if (applicationHandlesErrors())
            _XErrorFunction(event.display, &event);
        else
            reportDropped(event);
    }
}

bool putOff(const XErrorEvent& event) {
    auto* const added = static_cast<PutOff*>(std::malloc(sizeof(PutOff)));
    if (added == nullptr)
        return false;
    *added = {nullptr, event};
    *(firstPutOff == nullptr ? &firstPutOff : lastPutOff) = added;
    lastPutOff = &added->next;
    return true;
}

void forgetPutOff(Display* display) {
    PutOff** link = &firstPutOff;
    while (*link != nullptr) {
        PutOff* const entry = *link;
        if (entry->event.display == display) {
            *link = entry->next;
            std::free(entry);
        } else {
            link = &entry->next;
        }
    }
    lastPutOff = link;
}

XErrorEvent eventOf(Display* display, const xError& error) {
    XErrorEvent event{};
    event.type = X_Error;
    event.display = display;
    event.resourceid = error.resourceID;
    event.serial = LastKnownRequestProcessed(display);
    event.error_code = error.errorCode;
    event.request_code = error.majorCode;
    event.minor_code = static_cast<unsigned char>(error.minorCode);
    return event;
}

/// Called for replies and errors that are about to be delivered, those that answer a request which
/// waits (_XReply) included; there, an extension's own hook (XESetError) and the handlers that
/// Xlib's functions install for one request come before this one, and a dropped error makes the
/// request fail as it does after an application's handler has returned.
Bool onReply(Display* display, xReply* reply, char*, int, XPointer ofWindows) {
    if (reply->generic.type != X_Error)
        return False;
    const int moment = whenToTell == nullptr ? tellNow : whenToTell(tellPutOff);
    const bool handled = applicationHandlesErrors();
    const XErrorEvent event = eventOf(display, reply->error);
    // Whatever the moment: a handler may be another one than before only because another thread's
    // stood there meanwhile, and it is the application's after all.
    if (ofWindows != nullptr && printLog != nullptr && isOfVanishedWindow(event.error_code)) {
        noteWindowGone(event);
        return True;
    }
    if (handled && moment != tellNow && moment != tellAfterwards)
        return False;
    if (moment == tellAfterwards && (handled || isAheadOfXlib(display)))
        return putOff(event) || !handled ? True : False;
    if (handled)
        return False;
    reportDropped(event);
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
    forgetPutOff(display);
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

void useErrorTools(void* korLibrary) {
    whenToTell =
        reinterpret_cast<decltype(whenToTell)>(dlsym(korLibrary, "kor_when_to_tell_error"));
    printLog = reinterpret_cast<decltype(printLog)>(dlsym(korLibrary, "kor_printlog"));
}

void standInForErrors(Display* display, Errors errors) {
    auto* handler = new (std::nothrow) _XAsyncHandler{};
    XExtCodes* codes = handler == nullptr ? nullptr : XAddExtension(display);
    if (codes == nullptr) {
        delete handler;
        return;
    }
    XESetCloseDisplay(display, codes->extension, onClose);
    handler->handler = onReply;
    static char ofWindows; // any address but null
    handler->data = errors == Errors::OfWindows ? &ofWindows : nullptr;
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

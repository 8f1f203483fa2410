#include "transport/error_watch.h"

#include <X11/Xlibint.h>
#undef min
#undef max

namespace kor::gl {

namespace {

constexpr size_t mostErrors = 8; // of one set-up there are two or three

} // namespace

struct ErrorWatch::State {
    Display* display;
    Manner manner;
    unsigned long first; // serial of the first request that counts
    _XAsyncHandler handler;
    std::vector<XErrorEvent> errors;
    size_t taken;

    /// Under the connection's lock.
    static Bool onReply(Display* display, xReply* reply, char* /*buffer*/, int /*length*/,
                        XPointer data) {
        auto* state = reinterpret_cast<State*>(data);
        const unsigned long serial = display->last_request_read;
        if (reply->generic.type != X_Error || serial < state->first)
            return False;
        if (state->errors.size() < mostErrors) {
            const xError& error = reply->error;
            XErrorEvent event{};
            event.type = X_Error;
            event.display = display;
            event.resourceid = error.resourceID;
            event.serial = serial;
            event.error_code = error.errorCode;
            event.request_code = error.majorCode;
            event.minor_code = static_cast<unsigned char>(error.minorCode);
            state->errors.push_back(event);
        }
        return state->manner == Keep ? True : False;
    }
};

ErrorWatch::ErrorWatch(Display* display, Manner manner)
    : state_(new State{display, manner, 0, {}, {}, 0}) {
    state_->errors.reserve(mostErrors);
    state_->handler.handler = State::onReply;
    state_->handler.data = reinterpret_cast<XPointer>(state_.get());
    LockDisplay(display);
    state_->first = NextRequest(display);
    state_->handler.next = display->async_handlers;
    display->async_handlers = &state_->handler;
    UnlockDisplay(display);
}

ErrorWatch::~ErrorWatch() {
    LockDisplay(state_->display);
    DeqAsyncHandler(state_->display, &state_->handler);
    UnlockDisplay(state_->display);
}

std::vector<XErrorEvent> ErrorWatch::take() {
    std::vector<XErrorEvent> fresh(
        state_->errors.begin() + static_cast<std::ptrdiff_t>(state_->taken), state_->errors.end());
    state_->taken = state_->errors.size();
    return fresh;
}

bool ErrorWatch::refused(unsigned long serial) const {
    for (const XErrorEvent& error : state_->errors)
        if (error.serial == serial)
            return true;
    return false;
}

} // namespace kor::gl

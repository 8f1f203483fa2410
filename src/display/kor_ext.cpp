#include "display/kor_ext.h"

#include "display/kor_ext_protocol.h"
#include "support/failures.h"

#include <X11/Xlibint.h>
#undef min
#undef max
#include <cstdlib>

namespace protocol = kor::gl::protocol;

namespace {

/// Lets _XReply simply fail when the server answers one of our requests with an error; without the
/// hook Xlib would call the application's error handler, whose default ends the process.
int dropError(Display* /*dpy*/, xError* error, XExtCodes* codes, int* result) {
    if (error->majorCode != codes->major_opcode)
        return 0;
    *result = 0;
    return 1;
}

/// One exchange on a connection: its lock for the object's life, and Xlib's after-function behind
/// it, on every way out.
class Exchange {
  public:
    Exchange(Display* dpy, XExtCodes* codes) : dpy_(dpy), codes_(codes) {
        XESetError(dpy, codes->extension, dropError);
        LockDisplay(dpy_);
    }
    ~Exchange() {
        UnlockDisplay(dpy_);
        if (dpy_->synchandler != nullptr)
            dpy_->synchandler(dpy_);
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    template <typename Request> Request* request(uint8_t minorOpcode) {
        auto* request = static_cast<Request*>(_XGetRequest(dpy_, minorOpcode, sizeof(Request)));
        request->majorOpcode = static_cast<uint8_t>(codes_->major_opcode);
        request->minorOpcode = minorOpcode;
        return request;
    }
    template <typename Reply> bool reply(Reply& reply) {
        return _XReply(dpy_, reinterpret_cast<xReply*>(&reply), 0, xFalse) != 0;
    }

  private:
    Display* dpy_;
    XExtCodes* codes_;
};

} // namespace

Bool XKorExtQueryExtension(Display* dpy, Bool* present) try {
    int majorOpcode = 0;
    int firstEvent = 0;
    int firstError = 0;
    *present = False;
    const Bool result =
        XQueryExtension(dpy, protocol::extensionName, &majorOpcode, &firstEvent, &firstError);
    if (result)
        *present = True;
    return result;
}
KOR_OTHERWISE(False)

Bool XKorExtGetGLDisplay(Display* dpy, XExtCodes* codes, char** name) try {
    if (name == nullptr)
        return False;
    Exchange exchange(dpy, codes);
    exchange.request<protocol::GetGLDisplayRequest>(protocol::KorExtGetGLDisplay);
    protocol::GetGLDisplayReply reply{};
    if (!exchange.reply(reply))
        return False;

    // A name that the reply cannot hold makes it a failed one. Whatever is not read must be eaten:
    // Xlib ends a process that leaves reply data behind.
    if (reply.nameLength == 0 || reply.nameLength > uint64_t{reply.length} * 4) {
        _XEatDataWords(dpy, reply.length);
        return reply.nameLength == 0 ? reply.status : False;
    }
    char* text = static_cast<char*>(malloc(size_t{reply.nameLength} + 1));
    if (text == nullptr) {
        _XEatDataWords(dpy, reply.length);
        return False;
    }
    _XReadPad(dpy, text, reply.nameLength);
    text[reply.nameLength] = '\0';
    _XEatDataWords(dpy, reply.length - (reply.nameLength + 3) / 4);
    *name = text;
    return reply.status;
}
KOR_OTHERWISE(False)

Bool XKorExtGetWindowInfo(Display* dpy, XExtCodes* codes, Window win, Bool* visible, int* visualId,
                          int* rect) try {
    if (visualId == nullptr || rect == nullptr)
        return False;
    Exchange exchange(dpy, codes);
    auto* request = exchange.request<protocol::GetWindowInfoRequest>(protocol::KorExtGetWindowInfo);
    request->window = static_cast<uint32_t>(win);
    protocol::GetWindowInfoReply reply{};
    if (!exchange.reply(reply))
        return False;
    _XEatDataWords(dpy, reply.length);

    if (visible != nullptr)
        *visible = reply.visible != 0 ? 1 : 0;
    rect[0] = reply.x;
    rect[1] = reply.y;
    rect[2] = static_cast<int>(reply.width);
    rect[3] = static_cast<int>(reply.height);
    *visualId = static_cast<int>(reply.visualId);
    return reply.status;
}
KOR_OTHERWISE(False)

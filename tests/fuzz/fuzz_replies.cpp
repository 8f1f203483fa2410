// The client of "KOR-V1" through Xlib, against a server that answers with any bytes: errors,
// failures, lengths that are wrong, and connections that break in the middle of a reply.

#include "../framework/scripted_server.h"
#include "input.h"

#include "display/kor_ext.h"
#include "display/kor_ext_protocol.h"

#include <X11/Xlib.h>
#include <X11/Xproto.h>

using kor::fuzz::require;
namespace protocol = kor::gl::protocol;

namespace {

kor::test::ScriptedServer* server;
Display* display;
XExtCodes* codes;
bool broken;
int handledErrors;

void open() {
    display = XOpenDisplay(server->displayName().c_str());
    require(display != nullptr, "the scripted server takes connections");
    XSetIOErrorExitHandler(
        display, [](Display* /*dpy*/, void* /*user*/) { broken = true; }, nullptr);
    codes = XInitExtension(display, protocol::extensionName);
    require(codes != nullptr && codes->major_opcode == kor::test::ScriptedServer::majorOpcode,
            "the scripted server has the extension");
}

template <typename Reply> bool complete(const std::vector<uint8_t>& answer, Reply& reply) {
    if (answer.size() < sizeof reply || answer[0] != X_Reply)
        return false;
    memcpy(&reply, answer.data(), sizeof reply);
    return answer.size() >= sizeof reply + uint64_t{reply.length} * 4;
}

void askForDisplay(const std::vector<uint8_t>& answer) {
    char untouched = 0;
    char* name = &untouched;
    const Bool result = XKorExtGetGLDisplay(display, codes, &name);
    protocol::GetGLDisplayReply reply{};
    if (complete(answer, reply)) {
        const bool fits = reply.nameLength <= uint64_t{reply.length} * 4;
        require(result == (fits ? reply.status : 0), "the result is the status");
        require((name != &untouched) == (fits && reply.nameLength > 0), "a name is a copy");
        if (name != &untouched)
            require(memcmp(name, answer.data() + sizeof reply, reply.nameLength) == 0 &&
                        name[reply.nameLength] == '\0',
                    "the name is the reply's");
    } else if (!answer.empty() && answer[0] == X_Reply && answer.size() < sizeof reply) {
        require(!result, "half a reply is a failure");
    }
    if (name != &untouched)
        free(name);
}

void askForWindow(const std::vector<uint8_t>& answer, bool withVisible) {
    Bool visible = 7;
    int visual = -1;
    int rect[4] = {};
    const Bool result = XKorExtGetWindowInfo(display, codes, 0x1234,
                                             withVisible ? &visible : nullptr, &visual, rect);
    protocol::GetWindowInfoReply reply{};
    if (!complete(answer, reply))
        return;
    require(result == reply.status, "the result is the status");
    require(rect[0] == reply.x && rect[1] == reply.y && rect[2] == static_cast<int>(reply.width) &&
                rect[3] == static_cast<int>(reply.height) &&
                visual == static_cast<int>(reply.visualId),
            "the window's data are the reply's");
    require(!withVisible || visible == (reply.visible != 0 ? 1 : 0), "visibility is 0 or 1");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    server = new kor::test::ScriptedServer(kor::test::ScriptedServer::Clients::OneByOne);
    XSetErrorHandler([](Display* /*dpy*/, XErrorEvent* /*error*/) {
        ++handledErrors;
        return 0;
    });
    XSetIOErrorHandler([](Display* /*dpy*/) { return 0; });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kor::fuzz::Input input(data, size);
    const uint8_t kind = input.byte();
    std::vector<uint8_t> answer(data + (size - input.left()), data + size);
    if (answer.empty())
        answer.push_back(0);
    answer[0] &= 1; // an error or a reply: anything else is an event and answers nothing
    if (display == nullptr)
        open();

    server->setAnswer(answer);
    handledErrors = 0;
    if ((kind & 1) != 0)
        askForDisplay(answer);
    else
        askForWindow(answer, (kind & 2) != 0);

    // In step afterwards, or closed by the server.
    if (!broken)
        XSync(display, False);
    protocol::GetGLDisplayReply reply{};
    if (answer[0] == X_Error ? answer.size() >= sizeof reply : complete(answer, reply))
        require(!broken && handledErrors == 0, "a whole answer leaves the connection in step");
    if (broken) {
        XCloseDisplay(display);
        display = nullptr;
        broken = false;
    }
    return 0;
}

#include "display_access.h"

#include "check.h"

#include <X11/Xatom.h>
#include <X11/Xauth.h>
#include <X11/Xutil.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netdb.h>
#include <pwd.h>
#include <random>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <xcb/xcb.h>

namespace kordoctor {

namespace {

constexpr int patience = 3; // seconds for each step of a connection

struct Name {
    std::string host;
    int number = 0;
    int screen = 0;
    bool isLocal() const { return host.empty() || host == "unix"; }
};

bool parseName(const std::string& text, Name& name) {
    char* host = nullptr;
    if (xcb_parse_display(text.c_str(), &host, &name.number, &name.screen) == 0)
        return false;
    name.host = host;
    free(host);
    return true;
}

class Socket {
  public:
    explicit Socket(int descriptor) : m_descriptor(descriptor) {
        const timeval limit{patience, 0};
        setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        setsockopt(m_descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }
    ~Socket() {
        if (m_descriptor >= 0)
            close(m_descriptor);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    int get() const { return m_descriptor; }

  private:
    int m_descriptor;
};

// Connects as Xlib does: first the abstract socket, then the one with a file. 0, or the error.
int connectLocally(int number, int& descriptor) {
    const std::string path = "/tmp/.X11-unix/X" + std::to_string(number);
    int error = ENOENT;
    for (const bool abstract : {true, false}) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path + (abstract ? 1 : 0), sizeof address.sun_path - 2);
        const auto length =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
        descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval limit{patience, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), length) == 0)
            return 0;
        error = errno;
        close(descriptor);
        descriptor = -1;
    }
    return error;
}

// Empty, or why there is no connection.
std::string connectByNetwork(const Name& name, int& descriptor) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const std::string port = std::to_string(6000 + name.number);
    if (const int error = getaddrinfo(name.host.c_str(), port.c_str(), &hints, &found); error != 0)
        return "the host " + name.host + " is not known: " + gai_strerror(error);
    std::string reason;
    for (const addrinfo* at = found; at != nullptr && descriptor < 0; at = at->ai_next) {
        descriptor = socket(at->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const timeval limit{patience, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        if (connect(descriptor, at->ai_addr, at->ai_addrlen) == 0)
            break;
        reason = "port " + port + " of " + name.host + " takes no connection: " + strerror(errno);
        close(descriptor);
        descriptor = -1;
    }
    freeaddrinfo(found);
    return descriptor < 0 ? reason : "";
}

std::string authorityFile() {
    const char* name = XauFileName();
    return name == nullptr ? "" : name;
}

constexpr char cookieKind[] = "MIT-MAGIC-COOKIE-1";

// The cookie for that display in the authority file; empty when it has none. Entries for one
// network address only are passed over, since the address in use is not known.
std::string cookieOf(const Name& name) {
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    const std::string number = std::to_string(name.number);
    Xauth* found = XauGetAuthByAddr(FamilyLocal, static_cast<unsigned short>(strlen(host)), host,
                                    static_cast<unsigned short>(number.size()), number.c_str(),
                                    sizeof cookieKind - 1, cookieKind);
    if (found == nullptr)
        return "";
    std::string cookie(found->data, found->data_length);
    XauDisposeAuth(found);
    return cookie;
}

struct Greeting {
    bool answered = false;
    int status = 0; // 0 refused, 1 admitted, 2 more is wanted
    int screens = 0;
    std::string reason;
};

// Says hello with that cookie, if there is one, and reads what the server makes of it.
Greeting greet(const Socket& socket, const std::string& cookie) {
    Greeting greeting;
    const auto padded = [](std::string text) {
        text.resize((text.size() + 3) / 4 * 4, '\0');
        return text;
    };
    const std::string kind = cookie.empty() ? "" : cookieKind;
    std::string hello = {'l', 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    hello[6] = static_cast<char>(kind.size());
    hello[8] = static_cast<char>(cookie.size());
    hello += padded(kind) + padded(cookie);
    if (cookie.size() > 255 || send(socket.get(), hello.data(), hello.size(), MSG_NOSIGNAL) !=
                                   static_cast<ssize_t>(hello.size()))
        return greeting;
    unsigned char head[8];
    if (recv(socket.get(), head, sizeof head, MSG_WAITALL) != sizeof head)
        return greeting;
    std::string body(size_t{4} * (head[6] + 256U * head[7]), '\0');
    if (recv(socket.get(), body.data(), body.size(), MSG_WAITALL) !=
        static_cast<ssize_t>(body.size()))
        return greeting;
    greeting.answered = true;
    greeting.status = head[0];
    if (greeting.status == 0)
        greeting.reason = body.substr(0, head[1]);
    else if (greeting.status == 1 && body.size() > 20)
        greeting.screens = static_cast<unsigned char>(body[20]);
    return greeting;
}

// As xhost(1) takes it.
std::string userName() {
    const passwd* user = getpwuid(getuid());
    return user == nullptr ? "#" + std::to_string(getuid()) : user->pw_name;
}

Refusal explainLackOfAccess(const std::string& name, const Name& parsed, const Greeting& greeting) {
    const std::string file = authorityFile();
    const std::string reason = oneLine(greeting.reason);
    const std::string said = reason.empty() ? "" : " (it says: " + reason + ")";
    const std::string allow =
        "or let its owner run \"xhost +si:localuser:" + userName() + "\" there";
    if (file.empty() || access(file.c_str(), F_OK) != 0)
        return {"a server is there but does not admit this user: the authority file " + file +
                    " is missing" + said,
                "set XAUTHORITY to the file with the cookie of " + name + ", " + allow};
    if (access(file.c_str(), R_OK) != 0)
        return {"a server is there but does not admit this user: the authority file " + file +
                    " cannot be read" + said,
                "let this user read it, or set XAUTHORITY to one with the cookie of " + name};
    if (cookieOf(parsed).empty())
        return {"a server is there but does not admit this user: " + file +
                    " has no cookie for it" + said,
                "add the cookie of " + name +
                    " with xauth, set XAUTHORITY to the file that has "
                    "it, " +
                    allow};
    return {"a server is there but does not admit this user: the cookie in " + file +
                " is not its own" + said,
            "the server was started anew, or is another's: add the present cookie of " + name +
                " with xauth, " + allow};
}

char firstError[256];

int noteError(Display* display, XErrorEvent* event) {
    if (firstError[0] == '\0') {
        char text[128] = "";
        XGetErrorText(display, event->error_code, text, sizeof text);
        snprintf(firstError, sizeof firstError, "%s (request %d.%d)", text, event->request_code,
                 event->minor_code);
    }
    return 0;
}

} // namespace

Refusal explainRefusal(const std::string& name) {
    Name parsed;
    if (!parseName(name, parsed))
        return {"\"" + name + "\" is no name of a display",
                "such a name reads :N, :N.S or HOST:N.S"};
    int descriptor = -1;
    std::string noServer;
    if (parsed.isLocal()) {
        const int error = connectLocally(parsed.number, descriptor);
        if (error == EACCES || error == EPERM)
            return {"its socket in /tmp/.X11-unix may not be used by this user",
                    "correct the rights of /tmp/.X11-unix"};
        if (error != 0)
            noServer = error == ECONNREFUSED ? "the server that had this number is gone"
                                             : "there is no server of this number";
    } else {
        noServer = connectByNetwork(parsed, descriptor);
    }
    if (!noServer.empty())
        return {"no server: " + noServer, "start an X server there, or name another display"};

    const Socket socket(descriptor);
    const Greeting greeting = greet(socket, cookieOf(parsed));
    if (!greeting.answered)
        return {"something takes connections there but does not answer as an X server does",
                "see whether the server is stuck; end it and start it anew"};
    if (greeting.status != 1)
        return explainLackOfAccess(name, parsed, greeting);
    if (parsed.screen >= greeting.screens)
        return {"its server has no screen " + std::to_string(parsed.screen),
                "name a screen below " + std::to_string(greeting.screens)};
    return {"the server is there, but Xlib cannot open it",
            "see whether XAUTHORITY names a wrong cookie, or the server has no room for more "
            "clients"};
}

ErrorTrap::ErrorTrap() : m_before(XSetErrorHandler(noteError)) {
    firstError[0] = '\0';
}

ErrorTrap::~ErrorTrap() {
    XSetErrorHandler(m_before);
}

std::string ErrorTrap::error(Display* display) {
    XSync(display, False);
    return firstError;
}

bool hasExtension(Display* display, const char* name) {
    int opcode = 0;
    int event = 0;
    int error = 0;
    return XQueryExtension(display, name, &opcode, &event, &error) != 0;
}

bool isSameServer(Display* a, Display* b) {
    std::random_device random;
    const std::string mark = "kordoctor " + std::to_string(random()) + std::to_string(random());
    const Window window =
        XCreateSimpleWindow(a, DefaultRootWindow(a), 0, 0, 1, 1, 0, 0, 0); // never mapped
    XStoreName(a, window, mark.c_str());
    XSync(a, False);
    bool same = false;
    {
        ErrorTrap trap; // the other server has no such window, or another's
        char* found = nullptr;
        if (XFetchName(b, window, &found) != 0 && found != nullptr)
            same = mark == found;
        if (found != nullptr)
            XFree(found);
        trap.error(b);
    }
    XDestroyWindow(a, window);
    XSync(a, False);
    return same;
}

std::string screenSize(Display* display) {
    const int screen = DefaultScreen(display);
    return std::to_string(DisplayWidth(display, screen)) + "x" +
           std::to_string(DisplayHeight(display, screen));
}

} // namespace kordoctor

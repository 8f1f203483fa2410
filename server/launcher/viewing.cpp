#include "viewing.h"

#include "server_files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace kor::server {

namespace {

constexpr int firstVncPort = 5900;
constexpr int firstWebPort = 6080;
constexpr int largestPort = 65535;
constexpr int portsTried = 1000;

/// The numeric addresses that an address of the options stands for.
std::vector<std::string> numericAddresses(const std::string& address) {
    if (address.empty())
        return {"127.0.0.1", "::1"};
    if (address == "all")
        return {"0.0.0.0", "::"};
    return {address};
}

/// Calls use(socket, address, length) with a fresh socket; 0 or what went wrong.
template <typename Use> int withSocket(const std::string& address, int port, Use use) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        return EADDRNOTAVAIL;
    int error = 0;
    const int end = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (end != -1 && found->ai_family == AF_INET6)
        setsockopt(end, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    if (end == -1 || use(end, found->ai_addr, found->ai_addrlen) != 0)
        error = errno;
    if (end != -1)
        close(end);
    freeaddrinfo(found);
    return error;
}

/// 0 when a server could listen there, else what keeps it from doing so.
int obstacle(const std::string& address, int port) {
    for (const std::string& numeric : numericAddresses(address)) {
        const int error =
            withSocket(numeric, port, [](int end, const sockaddr* where, socklen_t length) {
                const int on = 1; // connections that have just ended are no obstacle
                setsockopt(end, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
                const int bound = bind(end, where, length);
                return bound == 0 ? listen(end, 1) : bound;
            });
        // A machine without one of the two kinds of address does with the other.
        const bool oneOfTwo = numericAddresses(address).size() > 1;
        if (error != 0 && !(oneOfTwo && (error == EADDRNOTAVAIL || error == EAFNOSUPPORT)))
            return error;
    }
    return 0;
}

/// Checks the port that the user gave, or finds one.
int choosePort(const char* option, std::optional<int> given, const std::string& address, int first,
               std::optional<int> display) {
    if (!given && !display) {
        for (int port = first; port < first + portsTried; ++port)
            if (obstacle(address, port) == 0)
                return port;
        throw Problem(Problem::StartFailed, std::string("no port from ") + std::to_string(first) +
                                                " on is free for " + option + ": give one");
    }
    const int port = given ? *given : first + *display;
    const std::string text = std::to_string(port);
    if (port > largestPort)
        throw Problem(Problem::WrongUse, std::string(option) + " wants a PORT: " + text +
                                             ", which follows from the display number, is none");
    const int error = obstacle(address, port);
    if (error == EADDRINUSE)
        throw Problem(Problem::StartFailed, "port " + text + " for " + option +
                                                " is in use: give another one, as in " + option +
                                                " " + std::to_string(port % largestPort + 1));
    if (error != 0)
        throw Problem(Problem::StartFailed, "port " + text + " for " + option + " at " +
                                                (address.empty() ? "loopback" : address) +
                                                " cannot be used: " + strerror(error));
    return port;
}

void checkPasswordFile(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status {};
    char bytes[8];
    ssize_t got = -1;
    if (file != -1) {
        if (fstat(file, &status) == 0 && !S_ISREG(status.st_mode))
            errno = EINVAL;
        else
            got = read(file, bytes, sizeof bytes);
    }
    const int error = errno;
    if (file != -1)
        close(file);
    if (got == -1)
        throw Problem(Problem::StartFailed,
                      "the password file " + path + " cannot be read: " + strerror(error));
    if (got != static_cast<ssize_t>(sizeof bytes))
        throw Problem(Problem::StartFailed, "the password file " + path +
                                                " holds no password: make it with vncpasswd " +
                                                path);
}

} // namespace

std::string noVncFolder() {
    const char* named = getenv("KOR_NOVNC");
    return named ? named : "/usr/share/novnc";
}

std::string findWebsockify() {
    const char* path = getenv("PATH");
    std::string folders = path && *path ? path : "/usr/local/bin:/usr/bin:/bin";
    for (size_t begin = 0; begin <= folders.size();) {
        const size_t end = std::min(folders.find(':', begin), folders.size());
        std::string candidate = folders.substr(begin, end - begin) + "/websockify";
        if (access(candidate.c_str(), X_OK) == 0)
            return candidate;
        begin = end + 1;
    }
    return "";
}

void prepareViewing(Viewing& viewing, std::optional<int> display, const std::string& modulePath) {
    if (!viewing.vnc)
        return;
    if (!holdsModule(modulePath, "extensions/libvnc.so"))
        throw Problem(Problem::StartFailed, "the server's VNC module libvnc.so is missing in " +
                                                modulePath +
                                                ": install the package tigervnc-xorg-extension");
    if (viewing.web) {
        if (access((noVncFolder() + "/vnc.html").c_str(), R_OK) != 0)
            throw Problem(Problem::StartFailed, "noVNC, which -web serves, is not in " +
                                                    noVncFolder() + ": install the package novnc");
        if (findWebsockify().empty())
            throw Problem(Problem::StartFailed, "the program websockify, which -web needs, is "
                                                "missing: install the package websockify");
    }
    if (!viewing.passwordFile.empty())
        checkPasswordFile(viewing.passwordFile);
    viewing.vncPort =
        choosePort("-vnc", viewing.vncPort, viewing.vncAddress, firstVncPort, display);
    if (viewing.web)
        viewing.webPort =
            choosePort("-web", viewing.webPort, viewing.webAddress, firstWebPort, display);
    if (viewing.web && viewing.webPort == viewing.vncPort)
        throw Problem(Problem::WrongUse, "-vnc and -web cannot have the same port " +
                                             std::to_string(*viewing.webPort));
}

std::string vncOptions(const Viewing& viewing, bool verbose) {
    if (!viewing.vnc)
        return "";
    std::string text = "  Option \"rfbport\" \"" + std::to_string(*viewing.vncPort) + "\"\n";
    if (!verbose)
        text += "  Option \"Log\" \"*:stderr:0,Connections:stderr:30\"\n";
    if (viewing.vncAddress.empty())
        text += "  Option \"localhost\" \"true\"\n";
    else if (viewing.vncAddress != "all")
        text += "  Option \"interface\" \"" + viewing.vncAddress + "\"\n";
    if (viewing.withoutPassword)
        text += "  Option \"SecurityTypes\" \"None\"\n";
    else
        text += "  Option \"SecurityTypes\" \"TLSVnc,VncAuth\"\n"
                "  Option \"PasswordFile\" \"" +
                viewing.passwordFile + "\"\n";
    return text;
}

namespace {

std::string reachable(const std::string& address) {
    if (address.empty() || address == "all")
        return "127.0.0.1";
    return address.find(':') == std::string::npos ? address : "[" + address + "]";
}

} // namespace

std::string vncHost(const Viewing& viewing) {
    return reachable(viewing.vncAddress) + "::" + std::to_string(*viewing.vncPort);
}

std::string webPage(const Viewing& viewing) {
    return "http://" + reachable(viewing.webAddress) + ":" + std::to_string(*viewing.webPort) +
           "/vnc.html?autoconnect=true&resize=remote";
}

} // namespace kor::server

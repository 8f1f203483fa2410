#include "options.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>

namespace kor::server {

namespace {

// The server's listening port is 6000 + N.
constexpr int largestDisplay = 65535 - 6000;
// The server's configuration reader takes lines of about a thousand characters.
constexpr size_t longestName = 255;

[[noreturn]] void wrongUse(const std::string& line) {
    throw Problem(Problem::WrongUse, line);
}

/// The whole text as a number without sign; nothing else.
std::optional<int> number(const std::string& text) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || text[0] == '-' || error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

int displayNumber(const std::string& text) {
    const auto value = number(text.substr(1));
    if (!value || *value > largestDisplay)
        wrongUse("\"" + text + "\" is no display: it wants :N with N from 0 to " +
                 std::to_string(largestDisplay));
    return *value;
}

void setGeometry(Options& options, const std::string& text) {
    const size_t cross = text.find('x');
    std::optional<int> width;
    std::optional<int> height;
    if (cross != std::string::npos) {
        width = number(text.substr(0, cross));
        height = number(text.substr(cross + 1));
    }
    if (!width || !height)
        wrongUse("\"" + text + "\" is no geometry: -geometry wants WIDTHxHEIGHT in pixels, " +
                 "for example 1920x1080");
    if (*width < smallestWidth || *height < smallestHeight || *width > largestWidth ||
        *height > largestHeight)
        wrongUse("geometry " + text + " is out of range: it wants " +
                 std::to_string(smallestWidth) + "x" + std::to_string(smallestHeight) + " to " +
                 std::to_string(largestWidth) + "x" + std::to_string(largestHeight));
    options.width = *width;
    options.height = *height;
}

void setDisplayFd(Options& options, const std::string& text) {
    const auto value = number(text);
    if (!value)
        wrongUse("\"" + text + "\" is no file descriptor: -displayfd wants the number of one " +
                 "that is open for writing");
    const int flags = fcntl(*value, F_GETFL);
    if (flags == -1 || (flags & O_ACCMODE) == O_RDONLY)
        wrongUse("file descriptor " + text + " given with -displayfd is not open for writing");
    options.displayFd = value;
}

/// What passes through the server's configuration file, where nothing can be quoted.
bool fitsConfiguration(const std::string& text) {
    return !text.empty() && text.size() <= longestName &&
           std::none_of(text.begin(), text.end(), [](unsigned char character) {
               return character == '"' || character < ' ' || character == 127;
           });
}

void setGLDisplay(Options& options, const std::string& name) {
    if (name.empty() || name.size() > longestName)
        wrongUse("-gldisplay wants a display name of 1 to " + std::to_string(longestName) +
                 " characters, for example :0.0");
    if (!fitsConfiguration(name))
        wrongUse("the name given with -gldisplay holds a quotation mark or a control character");
    options.glDisplay = name;
}

int portNumber(const std::string& option, const std::string& text) {
    constexpr int largestPort = 65535;
    const auto value = number(text);
    if (!value || *value == 0 || *value > largestPort)
        wrongUse("\"" + text + "\" is no port: " + option + " wants one from 1 to " +
                 std::to_string(largestPort) + ", or none");
    return *value;
}

std::string listenAddress(const std::string& option, const std::string& text) {
    in6_addr address{}; // holds either kind
    if (text != "all" && inet_pton(AF_INET, text.c_str(), &address) != 1 &&
        inet_pton(AF_INET6, text.c_str(), &address) != 1)
        wrongUse("\"" + text + "\" is no address: " + option +
                 " wants a numeric one of this machine, or the word all");
    return text;
}

/// What can be said of the viewing options as a whole.
void checkViewing(Viewing& viewing) {
    const bool askedFor = viewing.vnc || viewing.web;
    if (!viewing.web && !viewing.webAddress.empty())
        wrongUse("-web-listen goes with -web, which is not given");
    if (!askedFor &&
        (!viewing.vncAddress.empty() || !viewing.passwordFile.empty() || viewing.withoutPassword))
        wrongUse("-vnc-listen, -vnc-password and -vnc-insecure go with -vnc or -web, and neither "
                 "is given");
    if (!askedFor)
        return;
    if (viewing.withoutPassword && !viewing.passwordFile.empty())
        wrongUse("-vnc-password and -vnc-insecure exclude each other");
    if (!viewing.withoutPassword && viewing.passwordFile.empty())
        wrongUse("a session that can be looked at wants a password: -vnc-password FILE with a "
                 "file made by vncpasswd, or -vnc-insecure to let in everybody on this machine");
    if (viewing.withoutPassword &&
        !(isLoopback(viewing.vncAddress) && isLoopback(viewing.webAddress)))
        wrongUse("-vnc-insecure is for loopback only: with -vnc-listen or -web-listen the session "
                 "wants -vnc-password FILE");
    viewing.vnc = true;
}

} // namespace

bool isLoopback(const std::string& address) {
    return address.empty() || address.starts_with("127.") || address == "::1";
}

Options parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&](const char* what) -> const std::string& {
            if (i + 1 == arguments.size())
                wrongUse(argument + " wants " + what + " after it");
            return arguments[++i];
        };
        auto port = [&]() -> std::optional<int> {
            const bool given = i + 1 < arguments.size() && !arguments[i + 1].empty() &&
                               arguments[i + 1][0] >= '0' && arguments[i + 1][0] <= '9';
            return given ? std::optional(portNumber(argument, arguments[++i])) : std::nullopt;
        };
        if (argument == "-help" || argument == "--help") {
            options.action = Options::Action::Help;
            return options;
        }
        if (argument == "-version" || argument == "--version") {
            options.action = Options::Action::Version;
            return options;
        }
        if (argument.starts_with(":")) {
            if (options.display)
                wrongUse("two displays given, :" + std::to_string(*options.display) + " and " +
                         argument);
            options.display = displayNumber(argument);
        } else if (argument == "-displayfd") {
            setDisplayFd(options, value("a file descriptor"));
        } else if (argument == "-geometry") {
            setGeometry(options, value("WIDTHxHEIGHT"));
        } else if (argument == "-gldisplay") {
            setGLDisplay(options, value("a display name"));
        } else if (argument == "-novendor") {
            options.vendorNames = false;
        } else if (argument == "-auth") {
            options.authority = value("an authority file");
            if (options.authority.empty())
                wrongUse("the authority file given with -auth has an empty name");
        } else if (argument == "-vnc") {
            options.viewing.vnc = true;
            options.viewing.vncPort = port();
        } else if (argument == "-web") {
            options.viewing.web = true;
            options.viewing.webPort = port();
        } else if (argument == "-vnc-listen") {
            options.viewing.vncAddress = listenAddress(argument, value("an address"));
        } else if (argument == "-web-listen") {
            options.viewing.webAddress = listenAddress(argument, value("an address"));
        } else if (argument == "-vnc-password") {
            options.viewing.passwordFile = value("a password file");
            std::error_code error;
            const auto path = std::filesystem::absolute(options.viewing.passwordFile, error);
            if (error || !fitsConfiguration(options.viewing.passwordFile) ||
                !fitsConfiguration(path.string()))
                wrongUse("the name of the file given with -vnc-password is empty, longer than " +
                         std::to_string(longestName) +
                         " characters, or holds a quotation mark or a control character");
            options.viewing.passwordFile = path;
        } else if (argument == "-vnc-insecure") {
            options.viewing.withoutPassword = true;
        } else if (argument == "-modulepath") {
            options.modulePath = value("a list of directories");
        } else if (argument == "-config" || argument == "-xf86config") {
            wrongUse(argument + " cannot be given: Xkor makes the server's configuration itself; "
                                "sections of your own go into a directory given with -configdir");
        } else {
            options.ownLog = options.ownLog || argument == "-logfile";
            options.verbose = options.verbose || argument == "-verbose";
            options.further.push_back(argument);
        }
    }
    checkViewing(options.viewing);
    return options;
}

std::string usage() {
    return "use: Xkor [:N | -displayfd FD] [options] [further arguments of the Xorg server]\n"
           "An X server without a screen of its own, for programs that draw with a GPU elsewhere\n"
           "in the machine.\n"
           "  :N                 the display number; :0 when neither it nor -displayfd is given\n"
           "  -displayfd FD      take a free number and write it to the file descriptor FD\n"
           "  -geometry WxH      size of the screen in pixels, " +
           std::to_string(smallestWidth) + "x" + std::to_string(smallestHeight) + " to " +
           std::to_string(largestWidth) + "x" + std::to_string(largestHeight) +
           " (1920x1080);\n"
           "                     xrandr changes it while the server runs\n"
           "  -gldisplay NAME    the display that drives the GPU, told to every program\n"
           "  -novendor          do not tell programs of KOR-GL's own GL vendor library: they "
           "find\n"
           "                     it no more by themselves\n"
           "  -auth FILE         authority file; without it Xkor makes one and says where\n"
           "  -vnc [PORT]        let VNC viewers in, on loopback only; 5900 + N unless given\n"
           "  -web [PORT]        show the screen in a browser, through noVNC, on loopback only;\n"
           "                     6080 + N unless given\n"
           "  -vnc-password FILE the password that viewers need, made with vncpasswd\n"
           "  -vnc-insecure      no password: everybody on this machine is let in\n"
           "  -vnc-listen ADDRESS|all, -web-listen ADDRESS|all\n"
           "                     listen there instead; wants a password\n"
           "  +extension Composite  turn Composite on, which is off: with it programs are offered\n"
           "                     visuals of depth 32, which cannot be painted\n"
           "  -verbose [N]       show what the Xorg server prints\n"
           "  -help, -version    this text; the version\n"
           "The server's log is kept in $XDG_STATE_HOME/kor (~/.local/state/kor).\n";
}

} // namespace kor::server

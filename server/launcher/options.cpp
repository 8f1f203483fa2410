#include "options.h"

#include <charconv>
#include <fcntl.h>

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

void setGLDisplay(Options& options, const std::string& name) {
    if (name.empty() || name.size() > longestName)
        wrongUse("-gldisplay wants a display name of 1 to " + std::to_string(longestName) +
                 " characters, for example :0.0");
    // The name passes through the server's configuration file, where nothing can be quoted.
    for (const char character : name)
        if (character == '"' || static_cast<unsigned char>(character) < ' ' || character == 127)
            wrongUse("the name given with -gldisplay holds a quotation mark or a control "
                     "character");
    options.glDisplay = name;
}

} // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        auto value = [&](const char* what) -> const std::string& {
            if (i + 1 == arguments.size())
                wrongUse(argument + " wants " + what + " after it");
            return arguments[++i];
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
           "  +extension Composite  turn Composite on, which is off: with it programs are offered\n"
           "                     visuals of depth 32, which cannot be painted\n"
           "  -verbose [N]       show what the Xorg server prints\n"
           "  -help, -version    this text; the version\n"
           "The server's log is kept in $XDG_STATE_HOME/kor (~/.local/state/kor).\n";
}

} // namespace kor::server

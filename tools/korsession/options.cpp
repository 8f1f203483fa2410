#include "options.h"

#include "failure.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>
#include <netinet/in.h>
#include <string_view>

namespace korsession {

namespace {

[[noreturn]] void refuse(const std::string& message) {
    throw korrun::Failure(korrun::StatusUsage, message + " (korsession --help lists the options)");
}

// What Xkor takes; it says what is wrong in the words of its own options, and only when the local
// display runs already. What it does not take for a value it would take for an option.
constexpr int largestPort = 65535;
constexpr int largestDisplay = largestPort - 6000; // its port is 6000 + N
constexpr int firstWebPort = 6080;                 // of display :0

// Digits, and nothing else.
std::optional<int> wholeNumber(std::string_view text) {
    int value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || text.starts_with('-'))
        return std::nullopt;
    return value;
}

// ":7" for ":7", "7" and ":7.0".
std::string readDisplay(const std::string& option, const std::string& text) {
    std::string_view number = text;
    if (number.starts_with(':'))
        number.remove_prefix(1);
    if (number.ends_with(".0"))
        number.remove_suffix(2);
    const auto value = wholeNumber(number);
    if (!value || *value > largestDisplay)
        refuse(option + " takes a display such as :7, up to :" + std::to_string(largestDisplay) +
               "; it was given \"" + text + "\"");
    return ":" + std::to_string(*value);
}

std::string readPort(const std::string& option, const std::string& text) {
    const auto value = wholeNumber(text);
    if (!value || *value < 1 || *value > largestPort)
        refuse(option + " takes a port, from 1 to " + std::to_string(largestPort) +
               "; it was given \"" + text + "\"");
    return std::to_string(*value);
}

std::string readListen(const std::string& text) {
    in6_addr address{}; // holds either kind
    if (text != "all" && inet_pton(AF_INET, text.c_str(), &address) != 1 &&
        inet_pton(AF_INET6, text.c_str(), &address) != 1)
        refuse("--listen takes a numeric address of this machine, or the word all; it was given "
               "\"" +
               text + "\"");
    return text;
}

// As Xkor takes it; the local display is started before Xkor could complain.
std::string readSize(const std::string& text) {
    int width = 0;
    int height = 0;
    char rest = 0;
    const bool plain = text.find_first_not_of("0123456789x") == std::string::npos;
    // NOLINTNEXTLINE(cert-err34-c): five digits cannot overflow
    if (!plain || std::sscanf(text.c_str(), "%5dx%5d%c", &width, &height, &rest) != 2 ||
        width < 64 || height < 64 || width > 7680 || height > 4320)
        refuse("--size takes WIDTHxHEIGHT, from 64x64 to 7680x4320, for example 1280x800; it was "
               "given \"" +
               text + "\"");
    return text;
}

struct ValueOption {
    const char* name;
    void (*store)(Options& options, const std::string& value);
};

constexpr ValueOption valueOptions[] = {
    {"--size", [](Options& o, const std::string& v) { o.size = readSize(v); }},
    {"--gl-display", [](Options& o, const std::string& v) { o.glDisplay = v; }},
    {"--display",
     [](Options& o, const std::string& v) { o.display = readDisplay("--display", v); }},
    {"--vnc", [](Options& o, const std::string& v) { o.vncPort = readPort("--vnc", v); }},
    {"--web", [](Options& o, const std::string& v) { o.webPort = readPort("--web", v); }},
    {"--listen", [](Options& o, const std::string& v) { o.listen = readListen(v); }},
    {"--password", [](Options& o, const std::string& v) { o.passwordFile = v; }},
    {"--log-dir", [](Options& o, const std::string& v) { o.logFolder = v; }},
};

// What can be said of the options of start as a whole.
void checkTogether(const Options& options) {
    if (!options.command.empty() && options.command[0].empty())
        refuse("the command has an empty name");
    if (options.insecure && options.passwordFile)
        refuse("--insecure and --password exclude each other");
    if (options.insecure && options.listen)
        refuse("--insecure is for loopback only: with --listen the session wants a password");
    if (!options.web && options.webPort)
        refuse("--web and --no-web exclude each other");
    if (options.webPort && options.webPort == options.vncPort)
        refuse("--vnc and --web cannot have the same port " + *options.webPort);
    if (options.web && !options.webPort && options.display &&
        std::stoi(options.display->substr(1)) > largestPort - firstWebPort)
        refuse("--display " + *options.display + " leaves no port for browsers: give --web PORT " +
               "or --no-web");
}

void readStartOptions(Options& options, const std::vector<std::string>& arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--") {
            options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                                   arguments.end());
            if (options.command.empty())
                refuse("a command is missing after --");
            break;
        }
        if (!argument.starts_with('-')) {
            options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(i),
                                   arguments.end());
            break;
        }
        if (argument == "--insecure") {
            options.insecure = true;
            continue;
        }
        if (argument == "--no-web") {
            options.web = false;
            continue;
        }
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto* const option =
            std::find_if(std::begin(valueOptions), std::end(valueOptions),
                         [&](const ValueOption& candidate) { return name == candidate.name; });
        if (option == std::end(valueOptions))
            refuse("unknown option " + argument);
        if (equals == std::string::npos && i + 1 == arguments.size())
            refuse(name + " wants a value");
        const std::string value =
            equals == std::string::npos ? arguments[++i] : argument.substr(equals + 1);
        if (value.empty())
            refuse(name + " was given an empty text");
        option->store(options, value);
    }
    checkTogether(options);
}

void readRunArguments(Options& options, const std::vector<std::string>& arguments) {
    std::size_t begin = 1;
    if (begin < arguments.size() && arguments[begin].starts_with(':'))
        options.session = readDisplay("run", arguments[begin++]);
    if (begin < arguments.size() && arguments[begin] == "--")
        ++begin;
    else if (begin < arguments.size() && arguments[begin].starts_with('-'))
        refuse("unknown option " + arguments[begin]);
    options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(begin), arguments.end());
    if (options.command.empty())
        refuse("run wants a command");
    if (options.command[0].empty())
        refuse("the command has an empty name");
}

void readSessionName(Options& options, const std::vector<std::string>& arguments) {
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        if (arguments[i] == "--all" && options.action == Action::Stop)
            options.all = true;
        else if (arguments[i].starts_with('-'))
            refuse("unknown option " + arguments[i]);
        else if (options.session)
            refuse("one session at a time");
        else
            options.session = readDisplay(arguments[0], arguments[i]);
    }
    if (options.all && options.session)
        refuse("--all and a session exclude each other");
}

} // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    if (arguments.empty())
        refuse("what to do? start, list, run, attach or stop");
    const std::string& verb = arguments[0];
    const bool wantsHelp = std::any_of(
        arguments.begin(), std::find(arguments.begin(), arguments.end(), "--"),
        [](const std::string& argument) { return argument == "-h" || argument == "--help"; });
    if (verb == "--version") {
        options.action = Action::Version;
    } else if (verb == "start" && !(arguments.size() == 2 && wantsHelp)) {
        options.action = Action::Start;
        readStartOptions(options, arguments);
    } else if (verb == "run" && !(arguments.size() == 2 && wantsHelp)) {
        options.action = Action::Run;
        readRunArguments(options, arguments);
    } else if (wantsHelp) {
        options.action = Action::Help;
    } else if (verb == "list" || verb == "stop" || verb == "attach") {
        options.action = verb == "list"   ? Action::List
                         : verb == "stop" ? Action::Stop
                                          : Action::Attach;
        if (options.action == Action::List && arguments.size() > 1)
            refuse("list takes no arguments");
        readSessionName(options, arguments);
    } else {
        refuse("\"" + verb + "\" is none of start, list, run, attach and stop");
    }
    return options;
}

const char* helpText() {
    return R"(use: korsession start [options] [COMMAND [ARGS]]
     korsession list
     korsession run [:N] COMMAND [ARGS]
     korsession attach [:N]
     korsession stop [:N | --all]

Keeps whole sessions: an X server, a desktop or COMMAND whose programs render on
the GPU's display, and a way to look at it. A session outlives the shell that
started it, and ends when COMMAND ends or by "korsession stop".

options of start:
  --size WIDTHxHEIGHT  size of the screen (default 1280x800); a viewer's window
                       changes it later
  --gl-display NAME    X display that drives the GPU (default: $KOR_GL_DISPLAY,
                       then :0.0; without a GPU a private software-rendering one)
  --display :N         the session's display number (default: a free one)
  --vnc PORT           port for VNC viewers (default: a free one from 5900 on)
  --web PORT           port for browsers (default: a free one from 6080 on)
  --no-web             no browsers
  --password FILE      password that viewers need, made with vncpasswd; without
                       it each session has one of its own
  --insecure           no password: everybody on this machine can look and type
  --listen ADDRESS|all let viewers in from elsewhere than this machine
  --log-dir DIR        where logs go (default: $XDG_STATE_HOME/kor/sessions/...)

Without COMMAND the first desktop or window manager that is installed is run.
"run" runs COMMAND in a session that is there already; "attach" shows one in a
VNC viewer. Without :N the only session is meant.
Statuses: 1 no such session, or it does not stop; 2 wrong options; 3 something is
missing or does not start; 127 COMMAND was not found.
)";
}

const char* versionText() {
    return "korsession " KOR_VERSION "\n";
}

} // namespace korsession

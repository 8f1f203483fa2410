#include "doctor_options.h"

#include "failure.h"

#include <charconv>
#include <cmath>

namespace kordoctor {

namespace {

constexpr double longestTime = 1e7; // seconds

[[noreturn]] void refuse(const std::string& message) {
    throw korrun::Failure(statusUsage, message + " (kordoctor --help lists the options)");
}

pid_t readProcess(const std::string& text) {
    pid_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value <= 0)
        refuse("--watch takes the number of a process; it was given \"" + text + "\"");
    return value;
}

double readSeconds(const std::string& text) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value) || value <= 0 ||
        value > longestTime)
        refuse("--seconds takes a number of seconds greater than 0; it was given \"" + text + "\"");
    return value;
}

} // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    size_t next = 0;
    while (next < arguments.size() && arguments[next].size() > 1 && arguments[next][0] == '-') {
        const std::string& argument = arguments[next++];
        if (argument == "--") {
            if (next == arguments.size())
                refuse("no program stands behind --");
            break;
        }
        const size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto value = [&](const char* what) {
            if (equals != std::string::npos)
                return argument.substr(equals + 1);
            if (next == arguments.size())
                refuse("a value is missing: " + name + " " + what);
            return arguments[next++];
        };
        if (name == "--watch")
            options.watch = readProcess(value("PID"));
        else if (name == "--seconds")
            options.seconds = readSeconds(value("N"));
        else if (argument == "--json")
            options.json = true;
        else if (argument == "--help" || argument == "-h")
            options.help = true;
        else if (argument == "--version")
            options.version = true;
        else
            refuse("unknown option " + argument);
    }
    options.program.assign(arguments.begin() + static_cast<std::ptrdiff_t>(next), arguments.end());
    if (options.help || options.version)
        return options;
    if (options.watch && !options.program.empty())
        refuse("--watch shows a process that runs already; a program cannot be given as well");
    if (options.seconds && !options.watch)
        refuse("--seconds says how long a process is watched: give --watch PID as well");
    return options;
}

const char* helpText() {
    return R"(Usage: kordoctor [--json] [--] [PROGRAM [ARGS]]
       kordoctor --watch PID [--seconds N] [--json]

Looks at everything that stands between an OpenGL program and its frames, and
says for each thing what was found and what to do. With PROGRAM, says also
whether its OpenGL calls would reach KOR-GL; PROGRAM is not run.

  --watch PID   show, once a second, what becomes of the frames of a running
                process, window by window
  --seconds N   stop watching after N seconds (default: when the process ends)
  --json        print JSON, for programs
  -h, --help    this text
  --version     the version

Statuses: 0 all is well, 1 there are warnings, 2 something is broken, 3 wrong
options.
)";
}

const char* versionText() {
    return "kordoctor " KOR_VERSION "\n";
}

} // namespace kordoctor

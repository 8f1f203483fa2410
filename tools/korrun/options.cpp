#include "options.h"

#include "failure.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

namespace korrun {

namespace {

// What Xkor accepts.
constexpr int smallestSide = 64;
constexpr Size largestSize{7680, 4320};
constexpr double longestTime = 1e7; // seconds; keeps the clock's arithmetic in range

[[noreturn]] void refuse(const std::string& message) {
    throw Failure(StatusUsage, message + " (korrun --help lists the options)");
}

std::optional<int> wholeNumber(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::string sizeText(Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

Size readSize(const std::string& text) {
    const std::size_t cross = text.find('x');
    if (cross != std::string::npos) {
        const auto width = wholeNumber(std::string_view(text).substr(0, cross));
        const auto height = wholeNumber(std::string_view(text).substr(cross + 1));
        const auto fits = [](std::optional<int> side, int largest) {
            return side && *side >= smallestSide && *side <= largest;
        };
        if (fits(width, largestSize.width) && fits(height, largestSize.height))
            return {*width, *height};
    }
    refuse("--size takes WIDTHxHEIGHT, from " + sizeText({smallestSide, smallestSide}) + " to " +
           sizeText(largestSize) + ", for example 1280x800; it was given \"" + text + "\"");
}

double readSeconds(const std::string& option, const std::string& text, bool zeroAllowed) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    const bool number = error == std::errc() && stop == end && std::isfinite(value);
    if (!number || value < 0 || value > longestTime || (value == 0 && !zeroAllowed))
        refuse(option + " takes a number of seconds " +
               (zeroAllowed ? "that is not negative" : "greater than 0") + "; it was given \"" +
               text + "\"");
    return value;
}

std::string readText(const std::string& option, const std::string& text) {
    if (text.empty())
        refuse(option + " was given an empty text");
    return text;
}

Front readFront(const std::string& text) {
    if (text == "auto")
        return Front::Auto;
    if (text == "classic")
        return Front::Classic;
    if (text == "glvnd")
        return Front::Glvnd;
    refuse("--front takes auto, classic or glvnd; it was given \"" + text + "\"");
}

// One option that takes a value.
struct ValueOption {
    const char* name;
    const char* valueName;
    void (*store)(Options& options, const std::string& value);
};

constexpr ValueOption valueOptions[] = {
    {"--size", "WIDTHxHEIGHT", [](Options& o, const std::string& v) { o.size = readSize(v); }},
    {"--gl-display", "NAME",
     [](Options& o, const std::string& v) { o.glDisplay = readText("--gl-display", v); }},
    {"--screenshot", "FILE.png",
     [](Options& o, const std::string& v) { o.screenshot = readText("--screenshot", v); }},
    {"--after", "SECONDS",
     [](Options& o, const std::string& v) { o.after = readSeconds("--after", v, true); }},
    {"--seconds", "N",
     [](Options& o, const std::string& v) { o.seconds = readSeconds("--seconds", v, false); }},
    {"--front", "KIND", [](Options& o, const std::string& v) { o.front = readFront(v); }},
};

// One option that stands alone.
struct Switch {
    const char* name;
    bool Options::*member;
};

constexpr Switch switches[] = {
    {"--session", &Options::session}, {"--verbose", &Options::verbose}, {"-v", &Options::verbose},
    {"--stats", &Options::stats},     {"--help", &Options::help},       {"-h", &Options::help},
    {"--version", &Options::version},
};

void checkTogether(const Options& options, const std::vector<std::string>& given) {
    const auto wasGiven = [&](const char* name) {
        return std::find(given.begin(), given.end(), name) != given.end();
    };
    if (wasGiven("--size") && !options.session)
        refuse("--size is the size of a session's screen: give --session as well");
    if (wasGiven("--after") && !options.screenshot)
        refuse("--after says when the picture is taken: give --screenshot FILE.png as well");
    if (options.screenshot && options.seconds && options.after >= *options.seconds)
        refuse("the picture would be taken when the command has already been ended: --after (2 "
               "unless given) must be less than --seconds");
    if (options.command.empty())
        refuse("no command was given: korrun [options] COMMAND [ARGS]");
}

} // namespace

Options parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    std::vector<std::string> given;
    std::size_t next = 0;
    while (next < arguments.size()) {
        const std::string& argument = arguments[next];
        if (argument.size() < 2 || argument[0] != '-')
            break;
        ++next;
        if (argument == "--")
            break;
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        given.push_back(name);

        const auto* plain = std::find_if(std::begin(switches), std::end(switches),
                                         [&](const Switch& s) { return name == s.name; });
        if (plain != std::end(switches)) {
            if (equals != std::string::npos)
                refuse(name + " takes no value");
            options.*(plain->member) = true;
            continue;
        }
        const auto* valued = std::find_if(std::begin(valueOptions), std::end(valueOptions),
                                          [&](const ValueOption& o) { return name == o.name; });
        if (valued == std::end(valueOptions))
            refuse("unknown option " + argument);
        if (equals != std::string::npos) {
            valued->store(options, argument.substr(equals + 1));
        } else {
            if (next == arguments.size())
                refuse("a value is missing: " + name + " " + valued->valueName);
            valued->store(options, arguments[next++]);
        }
    }
    options.command.assign(arguments.begin() + static_cast<std::ptrdiff_t>(next), arguments.end());
    if (!options.help && !options.version)
        checkTogether(options, given);
    return options;
}

const char* helpText() {
    return R"(Usage: korrun [options] COMMAND [ARGS]

Runs COMMAND so that it renders on the GPU's display and shows its frames in the
session's windows. Ends with COMMAND's own status.

  --session            give COMMAND a private session (Xkor) and, where no GPU
                       display answers, a private software-rendering display;
                       both are taken down afterwards
  --size WIDTHxHEIGHT  size of the session's screen (default 1280x800)
  --gl-display NAME    X display that drives the GPU (default: $KOR_GL_DISPLAY;
                       in a session also :0.0)
  --screenshot FILE    write a picture of the application's display as PNG
  --after SECONDS      when the picture is taken, counted from the start of
                       COMMAND (default 2)
  --seconds N          end COMMAND after N seconds; the status is then 0
  --front KIND         kind of front library: glvnd (the system's own GL library
                       loads ours), classic (ours stands in for it), or auto,
                       the default: glvnd where the system can do that
  --stats              say at the end what became of the frames of each window
  -v, --verbose        say which servers, displays and libraries are used
  -h, --help           this text
  --version            the version

Statuses of korrun's own: 2 wrong options, 3 something is missing or does not
start, 4 COMMAND succeeded but the picture failed, 126 COMMAND cannot be run,
127 COMMAND was not found.
)";
}

const char* versionText() {
    return "korrun " KOR_VERSION "\n";
}

} // namespace korrun

#pragma once

#include <optional>
#include <string>
#include <vector>

namespace korsession {

enum class Action { Help, Version, Start, List, Stop, Attach, Run };

// What the command line asks for.
struct Options {
    Action action = Action::Help;

    // start
    std::string size = "1280x800";        // of the screen in pixels
    std::optional<std::string> glDisplay; // the GPU's display
    std::optional<std::string> display;   // ":N", the number to take; none: a free one
    std::optional<std::string> vncPort;   // 1 to 65535; none: Xkor chooses
    std::optional<std::string> webPort;   // likewise
    std::optional<std::string> listen;    // numeric address or "all"; none: loopback
    std::optional<std::string> passwordFile;
    bool insecure = false; // no password
    bool web = true;
    std::optional<std::string> logFolder;

    // start and run
    std::vector<std::string> command; // start, empty: the first desktop that is installed

    // stop, attach and run
    std::optional<std::string> session; // ":N"
    bool all = false;                   // stop every session
};

// Reads the arguments that follow the program's name. Throws korrun::Failure (StatusUsage).
Options parseOptions(const std::vector<std::string>& arguments);

const char* helpText();
const char* versionText();

} // namespace korsession

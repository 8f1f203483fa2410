#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kordoctor {

// What the command line asks for.
struct Options {
    bool help = false;
    bool version = false;
    bool json = false;
    std::optional<pid_t> watch;       // the process whose windows are to be shown
    std::optional<double> seconds;    // how long it is watched
    std::vector<std::string> program; // the program that is to be examined, with its arguments
};

// The status of wrong options, apart from those that are findings.
constexpr int statusUsage = 3;

// Reads the arguments that follow the program's name. Throws korrun::Failure (statusUsage).
Options parseOptions(const std::vector<std::string>& arguments);

const char* helpText();
const char* versionText();

} // namespace kordoctor

#include "log_lines.h"

#include <filesystem>
#include <fstream>
#include <regex>

std::string LogLine::text() const {
    return std::string(1, level) + " " + function + ": " + message;
}

std::vector<LogLine> readLog(const std::string& directory) {
    // Function texts hold parentheses themselves; the last "): " before the message ends them, and
    // no message starts with one.
    static const std::regex record(
        R"(([EWID]) (\w{3} [ \d]\d \d\d:\d\d:\d\d:\d{6}) (\d+):(\d+) (\w+) \((.*?)\): (.*))");
    std::vector<LogLine> lines;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().extension() != ".log")
            continue;
        std::ifstream file(entry.path());
        for (std::string text; std::getline(file, text);) {
            std::smatch match;
            if (std::regex_match(text, match, record)) {
                lines.push_back({match[1].str()[0], match[2], std::stol(match[3]),
                                 std::stol(match[4]), match[5], match[6], match[7]});
            } else if (!lines.empty()) {
                lines.back().message += "\n" + text;
            } else {
                lines.emplace_back().message = text;
            }
        }
    }
    return lines;
}

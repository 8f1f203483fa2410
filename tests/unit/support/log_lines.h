#ifndef KOR_TESTS_UNIT_SUPPORT_LOG_LINES_H
#define KOR_TESTS_UNIT_SUPPORT_LOG_LINES_H

#include "stderr_capture.h"

#include "config/settings.h"
#include "support/log.h"

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

namespace kor::test {

/// One record of the log, taken apart. tag is empty where the line is no record.
struct LogLine {
    std::string letter, stamp, process, thread, tag, function, message;
};

inline LogLine parseLogLine(const std::string& line) {
    static const std::regex form(
        R"(([EWID]) ([A-Z][a-z]{2} [ 1-3][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2}:[0-9]{6}) ([0-9]+):([0-9]+) (\S+) \((.*?)\): (.*))");
    std::smatch part;
    if (!std::regex_match(line, part, form))
        return {.letter = {},
                .stamp = {},
                .process = {},
                .thread = {},
                .tag = {},
                .function = {},
                .message = line};
    return {part[1], part[2], part[3], part[4], part[5], part[6], part[7]};
}

/// Opens the log anew on stderr with everything let through, and collects what is written.
class LogLines {
  public:
    LogLines() {
        setenv("KOR_GL_VERBOSE", "1", 1);
        setenv("KOR_GL_LOG_DIR", "<null>", 1);
        kor::conf::Settings::reload();
        kor_close_log();
        kor_open_log();
    }
    ~LogLines() { kor_close_log(); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    /// All lines so far; a message's own newline leaves an empty line.
    std::vector<std::string> text() const { return capture_.lines(); }
    /// The records among them.
    std::vector<LogLine> records() const {
        std::vector<LogLine> all;
        for (const std::string& line : text()) {
            if (!line.empty())
                all.push_back(parseLogLine(line));
        }
        return all;
    }

  private:
    StderrCapture capture_;
};

} // namespace kor::test

#endif

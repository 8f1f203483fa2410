#ifndef KOR_TESTS_LIBRARY_LOG_LINES_H
#define KOR_TESTS_LIBRARY_LOG_LINES_H

#include <string>
#include <vector>

/// One record of the library's log file.
struct LogLine {
    char level = 0; ///< E, W, I or D
    std::string stamp;
    long process = 0;
    long thread = 0;
    std::string tag;
    std::string function;
    std::string message; ///< a message that holds newlines keeps them

    /// "D void kor_init(void*): START"
    std::string text() const;
};

/// The records of the one log file in that folder; none when there is no file. A line that is no
/// record and follows none is given as a record of level 0.
std::vector<LogLine> readLog(const std::string& directory);

#endif

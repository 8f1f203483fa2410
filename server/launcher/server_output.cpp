#include "server_output.h"

#include <cstring>

namespace kor::server {

std::string reasonOf(const std::string& output) {
    constexpr const char* mark = "Fatal server error:\n";
    size_t begin = output.find(mark);
    if (begin == std::string::npos)
        return "it gave no reason";
    begin += strlen(mark);
    std::string line = output.substr(begin, output.find('\n', begin) - begin);
    // The server marks its lines, some of them at both ends.
    constexpr const char* error = "(EE)";
    auto trim = [&line] {
        while (line.starts_with(' '))
            line.erase(0, 1);
        while (line.ends_with(' '))
            line.pop_back();
    };
    if (line.starts_with(error))
        line.erase(0, strlen(error));
    trim();
    if (line.ends_with(error))
        line.erase(line.size() - strlen(error));
    trim();
    return line.empty() ? "it gave no reason" : line;
}

} // namespace kor::server

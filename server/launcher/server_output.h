#ifndef KOR_SERVER_LAUNCHER_SERVER_OUTPUT_H
#define KOR_SERVER_LAUNCHER_SERVER_OUTPUT_H

#include <string>

namespace kor::server {

/// The line in which the server says why it gives up, out of all that it printed.
std::string reasonOf(const std::string& output);

} // namespace kor::server

#endif

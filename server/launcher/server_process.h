#ifndef KOR_SERVER_LAUNCHER_SERVER_PROCESS_H
#define KOR_SERVER_LAUNCHER_SERVER_PROCESS_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace kor::server {

/// The running Xorg. It gets SIGTERM when the launcher dies, however that happens. Until it has
/// handlers of its own it ignores SIGTERM, SIGINT and SIGHUP.
struct ServerProcess {
    pid_t process = -1;
    int display = -1; ///< reading end of the pipe that the server writes its number to; owned
    int output = -1;  ///< reading end of what the server prints; owned
};

/// The numbers under which the server has the files that it inherits.
constexpr int serverConfigurationFile = 3;
constexpr int serverDisplayFile = 4;

/// Starts the program. configuration is a file descriptor of the caller's; the server gets it as
/// serverConfigurationFile, and the pipe for its display number as serverDisplayFile. Of other
/// files it inherits none; its standard input is empty. Throws Problem.
ServerProcess startServer(const std::string& program, const std::vector<std::string>& arguments,
                          int configuration);

} // namespace kor::server

#endif

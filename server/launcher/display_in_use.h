#ifndef KOR_SERVER_LAUNCHER_DISPLAY_IN_USE_H
#define KOR_SERVER_LAUNCHER_DISPLAY_IN_USE_H

#include <string>

namespace kor::server {

/// Throws Problem when a server, of whatever kind, has the display number already. The server
/// itself finds out too, but says so in many lines.
void checkDisplayFree(int display);

/// Whether a process takes connections on a socket of the file system.
bool listensOn(const std::string& path);

} // namespace kor::server

#endif

#ifndef KOR_SERVER_LAUNCHER_DISPLAY_IN_USE_H
#define KOR_SERVER_LAUNCHER_DISPLAY_IN_USE_H

namespace kor::server {

/// Throws Problem when a server, of whatever kind, has the display number already. The server
/// itself finds out too, but says so in many lines.
void checkDisplayFree(int display);

} // namespace kor::server

#endif

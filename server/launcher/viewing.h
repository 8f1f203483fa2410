#ifndef KOR_SERVER_LAUNCHER_VIEWING_H
#define KOR_SERVER_LAUNCHER_VIEWING_H

#include "options.h"

#include <optional>
#include <string>

namespace kor::server {

/// Checks, before anything is started, that the session can be looked at as the options want: the
/// packages are there, the password file holds a password, the ports are free. Chooses the ports
/// that were not given: the display number above 5900 and 6080, or where the server picks its
/// number itself, the first that are free. Throws Problem.
void prepareViewing(Viewing& viewing, std::optional<int> display, const std::string& modulePath);

/// The options of the server's screen that the VNC module reads; empty when it is not wanted.
/// The module tells who connects and what goes wrong, and everything when verbose.
std::string vncOptions(const Viewing& viewing, bool verbose);

/// Where viewers and browsers on this machine go. Both want a prepared viewing.
std::string vncHost(const Viewing& viewing);
std::string webPage(const Viewing& viewing);

/// What noVNC consists of; the variable KOR_NOVNC names another folder.
std::string noVncFolder();
/// Path of the program that hands a browser's connection on to VNC; empty: there is none.
std::string findWebsockify();

} // namespace kor::server

#endif

#ifndef KOR_SERVER_LAUNCHER_OPTIONS_H
#define KOR_SERVER_LAUNCHER_OPTIONS_H

#include "problem.h"

#include <optional>
#include <string>
#include <vector>

namespace kor::server {

/// Screen sizes in pixels. The smallest is RandR's own lower limit in the dummy driver; the largest
/// decides how much video memory the screen is given, and with it how far it can be resized later.
constexpr int smallestWidth = 64;
constexpr int smallestHeight = 64;
constexpr int largestWidth = 7680;
constexpr int largestHeight = 4320;

/// How the session can be looked at from elsewhere.
struct Viewing {
    bool vnc = false;
    bool web = false;             ///< in a browser; goes through VNC
    std::optional<int> vncPort;   ///< none: it follows from the display number, or is looked for
    std::optional<int> webPort;   ///< the same
    std::string vncAddress;       ///< numeric; empty: loopback only; "all": every one
    std::string webAddress;       ///< the same
    std::string passwordFile;     ///< absolute; empty: none
    bool withoutPassword = false; ///< asked for in so many words
};

/// What the command line asks for.
struct Options {
    enum class Action { Run, Help, Version };

    Action action = Action::Run;
    std::optional<int> display;   ///< the number of ":N"
    std::optional<int> displayFd; ///< where the display number is to be written; open, writable
    int width = 1920;             ///< pixels
    int height = 1080;            ///< pixels
    std::string glDisplay;        ///< empty: none given
    bool vendorNames = true;      ///< the server tells clients of our GL vendor library
    std::string authority;        ///< empty: the launcher makes an authority file of its own
    std::string modulePath;       ///< the server's module path; empty: its usual one
    Viewing viewing;
    bool ownLog = false;              ///< the caller names the server's log file
    bool verbose = false;             ///< the caller wants to see what the server prints
    std::vector<std::string> further; ///< handed to the server as they are, in their order
};

/// Whether an address of Viewing can be reached from this machine alone.
bool isLoopback(const std::string& address);

/// Reads the command line, the program's name left out. What it does not know is the server's.
/// Throws Problem with a line for the user.
Options parseOptions(const std::vector<std::string>& arguments);

/// The text of -help.
std::string usage();

} // namespace kor::server

#endif

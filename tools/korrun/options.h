#pragma once

#include <optional>
#include <string>
#include <vector>

namespace korrun {

struct Size {
    int width;
    int height;
};

// Which front library the command gets.
enum class Front {
    Auto, // the vendor library where the system has the vendor-neutral dispatch, else the classic
    Classic, // in place of the system's GL library
    Glvnd    // the vendor library, which the system's own GL library loads
};

// What the command line asks for.
struct Options {
    bool help = false;
    bool version = false;
    bool verbose = false;
    bool session = false;
    bool stats = false;                    // say at the end what became of the frames
    Size size{1280, 800};                  // of the session's screen, in pixels
    std::optional<std::string> glDisplay;  // the GPU's display, if named on the command line
    std::optional<std::string> screenshot; // PNG file to write
    double after = 2;                      // seconds from the command's start to the picture
    std::optional<double> seconds;         // seconds after which the command is ended
    Front front = Front::Auto;
    std::vector<std::string> command; // the command and its arguments
};

// Reads the arguments that follow the program's name. The command begins at the first argument that
// is no option, or after "--"; all that follows is the command's own. Throws Failure (StatusUsage).
Options parseOptions(const std::vector<std::string>& arguments);

// The text of --help.
const char* helpText();
// The text of --version.
const char* versionText();

} // namespace korrun

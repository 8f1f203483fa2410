#pragma once

#include <string>
#include <vector>

namespace korrun {

// The file of our GL vendor library.
constexpr const char* vendorLibrary = "libGLX_kor.so.0";

// Where the parts that belong together lie. They are found beside the running korrun, so that a
// build tree, an installation and a copy of either each use their own.
struct Installation {
    std::string korrun;                     // the running program
    std::string server;                     // Xkor; empty when it is not there
    std::vector<std::string> frontFolders;  // folders holding a libGL.so.1 of ours, best first
    std::vector<std::string> searched;      // folders in which a front library was looked for
    std::vector<std::string> vendorFolders; // folders holding our GL vendor library, best first
};

// Looks around the running program.
Installation findInstallation();
// Looks around the program at `korrunPath`.
Installation findInstallation(const std::string& korrunPath);

// The path of a program as the shell would find it; empty when there is none.
std::string findProgram(const std::string& name);

} // namespace korrun

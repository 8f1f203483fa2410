#ifndef KOR_SERVER_LAUNCHER_SERVER_FILES_H
#define KOR_SERVER_LAUNCHER_SERVER_FILES_H

#include "options.h"

#include <string>

namespace kor::server {

/// What of the system and of ours the server is made of.
struct ServerFiles {
    std::string program;    ///< path of the Xorg program
    std::string modulePath; ///< comma-separated directories, ours first
};

/// Looks for the Xorg program (the variable KOR_XORG names another one than the system's), the
/// dummy driver and the module libkor.so. The module is looked for beside the launcher
/// (../lib*/xorg/modules of its folder, the multiarch one included), so that the build tree and any
/// installed prefix serve themselves. Throws Problem when one is missing, with what to do.
ServerFiles findServerFiles(const Options& options);

/// Whether one of the directories of a module path has the file, which is named below them.
bool holdsModule(const std::string& modulePath, const std::string& name);

/// Where the server's log goes, for the user alone: $XDG_STATE_HOME/kor, ~/.local/state/kor, or
/// /tmp/kor-UID when neither can be written. Made where it is missing. Throws Problem.
std::string logFolder();

} // namespace kor::server

#endif

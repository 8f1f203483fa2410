#ifndef KOR_SERVER_LAUNCHER_SUPERVISOR_H
#define KOR_SERVER_LAUNCHER_SUPERVISOR_H

#include "options.h"

namespace kor::server {

/// Runs the server that the options describe until it ends, and returns the exit status for the
/// launcher: the server's own, or 128 plus the signal that ended it. Meanwhile signals to the
/// launcher reach the server, the display number goes to whoever asked for it, and a parent that
/// started the launcher with SIGUSR1 ignored is sent that signal once the server takes clients.
/// Throws Problem when the server cannot be started; nothing is left behind then. Takes over the
/// process's signals: to be called once, by a process of one thread.
int runServer(const Options& options);

} // namespace kor::server

#endif

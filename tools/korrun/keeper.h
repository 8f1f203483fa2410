#pragma once

#include "options.h"

#include <string>

namespace korrun {

// What a session needs to be started.
struct SessionPlan {
    std::string xkor;      // path of the session's server
    std::string xvfb;      // path of the local display's server; empty: glDisplay is used
    std::string glDisplay; // display that drives the GPU; empty: a private one is started
    Size size{};
};

// The keeper is a process between korrun and the session's servers. It is tied to korrun by a pipe:
// when korrun ends, in whatever way, the pipe breaks, and the keeper takes everything down. It
// leads a session of its own, so that no terminal or process group signal that is meant for the
// command reaches the servers.
//
// Protocol, lines of text. To korrun: "ready", then the application display, the local display and
// the authority file, a line each; or "failed", then the message, to the end; later "lost NAME" for
// a server that ended by itself. From korrun: "command PID" when the command was started, "done"
// when it has ended.
//
// Runs in a process of its own that was forked for it, and never returns. Of the descriptors that
// it inherited it keeps only the two that are given.
[[noreturn]] void runKeeper(const SessionPlan& plan, int requests, int answers);

} // namespace korrun

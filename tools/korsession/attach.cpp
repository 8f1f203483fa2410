#include "actions.h"
#include "failure.h"
#include "installation.h"
#include "registry.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace korsession {

int attach(const Options& options) {
    const Entry entry = findSession(options.session);
    const auto fact = [&](const char* name) {
        const auto found = entry.facts.find(name);
        return found == entry.facts.end() ? std::string() : found->second;
    };
    const std::string host = fact(factVnc);
    const std::string password = fact(factPassword);
    const std::string viewer = korrun::findProgram("vncviewer");
    const char* display = std::getenv("DISPLAY");
    if (viewer.empty() || !display || !*display) {
        // Somebody who came over a plain text line: the viewer is to run where he sits.
        const std::string port = host.substr(host.rfind(':') + 1);
        // One that listens at an address of this machine listens nowhere else.
        const std::string address = host.substr(0, host.rfind("::"));
        const std::string target = address == "127.0.0.1" ? "localhost" : address;
        std::printf("%s; where you sit: ssh -L %s:%s:%s THIS_MACHINE, then a VNC viewer on "
                    "localhost::%s (korsession list shows the page for browsers)\n",
                    viewer.empty() ? "vncviewer is not installed" : "DISPLAY is not set",
                    port.c_str(), target.c_str(), port.c_str(), port.c_str());
        return 0;
    }
    if (password.empty())
        execl(viewer.c_str(), "vncviewer", host.c_str(), nullptr);
    else
        execl(viewer.c_str(), "vncviewer", "-passwd", password.c_str(), host.c_str(), nullptr);
    throw korrun::Failure(korrun::StatusNotExecutable, viewer + ": " + std::strerror(errno));
}

} // namespace korsession

#include "desktop.h"

#include "failure.h"
#include "installation.h"

#include <cstdlib>

namespace korsession {

namespace {

struct Desktop {
    const char* program;
    bool wantsBus; // talks over a message bus, and must not meet the one of another session
};

// Desktops come first, then window managers; those that need no compositing of their own GL.
constexpr Desktop desktops[] = {
    {"startxfce4", true},     {"mate-session", true},     {"startlxqt", true}, {"startlxde", true},
    {"icewm-session", false}, {"openbox-session", false}, {"openbox", false},  {"icewm", false},
    {"fluxbox", false},       {"fvwm3", false},           {"fvwm", false},     {"jwm", false},
    {"twm", false},
};

} // namespace

std::vector<std::string> findDesktop() {
    for (const Desktop& desktop : desktops) {
        const std::string program = korrun::findProgram(desktop.program);
        if (program.empty())
            continue;
        const std::string bus = desktop.wantsBus ? korrun::findProgram("dbus-run-session") : "";
        if (!bus.empty())
            return {bus, "--", program};
        return {program};
    }
    throw korrun::Failure(korrun::StatusMissing,
                          "no desktop or window manager is installed: install one, for example "
                          "openbox or xfce4, or give a command");
}

void leaveCallersSession() {
    for (const char* name : {"WAYLAND_DISPLAY", "SESSION_MANAGER", "DESKTOP_STARTUP_ID", "XDG_SEAT",
                             "XDG_VTNR", "WINDOWID"})
        unsetenv(name);
    setenv("XDG_SESSION_TYPE", "x11", 1);
}

} // namespace korsession

#include "gl_display.h"

#include "display_probe.h"
#include "failure.h"

#include <cstdlib>

namespace korrun {

namespace {

constexpr const char* usualGpuDisplay = ":0.0";

} // namespace

std::string chooseGlDisplay(const std::optional<std::string>& given, bool verbose,
                            void (*say)(const std::string& message)) {
    if (given) {
        const DisplayState state = probeDisplay(*given);
        if (!isUsable(state))
            throw Failure(StatusMissing,
                          "display " + *given + " " + describe(state) +
                              ": start an X server with GLX there and see that you may use it "
                              "(xauth, xhost), or leave --gl-display out to render in software");
        return *given;
    }
    const char* variable = std::getenv("KOR_GL_DISPLAY");
    const std::string named = variable ? variable : "";
    std::string name = named.empty() ? usualGpuDisplay : named;
    const DisplayState state = probeDisplay(name);
    // A display that nobody named may be anybody's; it is used only for its GPU.
    if (named.empty() ? state == DisplayState::DrivesGpu : isUsable(state))
        return name;
    // Whoever named a display wants to know that it is not used.
    if (verbose || !named.empty())
        say("display " + name + (named.empty() ? " " : " of KOR_GL_DISPLAY ") + describe(state) +
            ": rendering in software on a private display");
    return "";
}

} // namespace korrun

#include "actions.h"
#include "command.h"
#include "desktop.h"
#include "display_probe.h"
#include "environment.h"
#include "failure.h"
#include "installation.h"
#include "registry.h"

#include <cstdlib>
#include <string>

namespace korsession {

int run(const Options& options) {
    const Entry entry = findSession(options.session);
    const auto set = [&](const char* variable, const char* fact) {
        const auto found = entry.facts.find(fact);
        if (found == entry.facts.end())
            throw korrun::Failure(korrun::StatusMissing, "the session is still starting");
        setenv(variable, found->second.c_str(), 1);
    };
    set("DISPLAY", factDisplay);
    set("KOR_GL_DISPLAY", factGlDisplay);
    setenv("XAUTHORITY", (entry.folder + "/Xauthority").c_str(), 1);
    // Said once and here; the program would say it at every call, or find no picture.
    const std::string gpu = std::getenv("KOR_GL_DISPLAY");
    if (const korrun::DisplayState state = korrun::probeDisplay(gpu); !korrun::isUsable(state))
        throw korrun::Failure(korrun::StatusMissing,
                              "the session's GPU display " + gpu + " " + korrun::describe(state) +
                                  ": see that its server runs again, or start another session");
    leaveCallersSession();
    korrun::useFront(korrun::findInstallation(), korrun::Front::Auto, "");
    korrun::becomeCommand(options.command);
}

} // namespace korsession

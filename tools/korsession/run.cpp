#include "actions.h"
#include "command.h"
#include "desktop.h"
#include "environment.h"
#include "failure.h"
#include "installation.h"
#include "registry.h"

#include <cstdlib>

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
    leaveCallersSession();
    korrun::useFront(korrun::findInstallation(), korrun::Front::Auto, "");
    korrun::becomeCommand(options.command);
}

} // namespace korsession

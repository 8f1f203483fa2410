#include "gpu_display.h"

#include "display_access.h"

namespace kordoctor {

namespace {

constexpr const char* usualName = ":0.0"; // what the library takes when nobody names one

std::string factOf(const Facts& facts, const char* name) {
    const auto found = facts.find(name);
    return found == facts.end() ? "" : found->second;
}

std::string chooseName(Findings& findings, const SettingValue& setting,
                       const std::string& toldByServer, bool serverAsked) {
    findings.begin("gpu-display-name");
    if (setting.isSet) {
        findings.ok(setting.value + ", from " + setting.source);
        return setting.value;
    }
    if (!toldByServer.empty()) {
        findings.ok(toldByServer + ", from the session's server");
        return toldByServer;
    }
    findings.warning(std::string(usualName) + ", a guess: no setting names it, and " +
                         (serverAsked ? "the session's server knows none"
                                      : "there is no session's server to ask"),
                     "name it: setting gl-display, variable KOR_GL_DISPLAY, korrun --gl-display, "
                     "or Xkor -gldisplay");
    return usualName;
}

void checkDistinct(Findings& findings, Display* gpu, const std::string& session) {
    findings.begin("gpu-display-distinct");
    if (session.empty()) {
        findings.skipped("not tried: the session's display cannot be used");
        return;
    }
    const DisplayHandle application(XOpenDisplay(session.c_str()));
    if (!application)
        findings.broken("the session's display is gone", "start it anew");
    else if (isSameServer(application.get(), gpu))
        findings.broken("it is the session's own server: the library refuses to render there",
                        "name the X server that drives the GPU (gl-display, KOR_GL_DISPLAY), not "
                        "the session's");
    else
        findings.ok("it is another server than the session's");
}

void examine(Findings& findings, const SettingValue& setting, const Facts& facts) {
    const std::string session = factOf(facts, "application-display");
    const std::string name =
        chooseName(findings, setting, factOf(facts, "server-gl-display"), !session.empty());
    findings.begin("gpu-display");
    const DisplayHandle display(XOpenDisplay(name.c_str()));
    if (!display) {
        const Refusal refusal = explainRefusal(name);
        findings.broken(name + ": " + refusal.reason, refusal.advice);
        return;
    }
    findings.ok(name + " answers");
    checkDistinct(findings, display.get(), session);
    findings.begin("gpu-display-glx");
    if (!hasExtension(display.get(), "GLX")) {
        findings.broken(
            "it has no GLX: nothing can be rendered there",
            "install the GLX module of its driver, or start it with \"+extension GLX\"");
        return;
    }
    findings.ok("it has GLX");
    findings.fact("gpu-display", name);
}

} // namespace

Section gpuDisplaySection(const std::vector<SettingValue>& settings, const Facts& facts) {
    Section section;
    section.checks = {{"gpu-display-name", "GPU display's name"},
                      {"gpu-display", "GPU display"},
                      {"gpu-display-distinct", "GPU display's server"},
                      {"gpu-display-glx", "GLX of the GPU display"}};
    section.patience = std::chrono::seconds(15);
    section.adviceWhenLost = "see the log of the GPU's X server; one that hangs has to be started "
                             "anew";
    section.examine = [setting = settingOf(settings, "gl-display"), facts](Findings& findings) {
        examine(findings, setting, facts);
    };
    return section;
}

} // namespace kordoctor

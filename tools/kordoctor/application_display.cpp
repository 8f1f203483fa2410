#include "application_display.h"

#include "display/kor_ext.h"
#include "display/kor_ext_protocol.h"
#include "display_access.h"
#include "shared_memory.h"

#include <X11/Xutil.h>
#include <cstdlib>

namespace kordoctor {

namespace {

const char* const useXkor = "the session's server has to be Xkor: start one (Xkor :N), or run the "
                            "program with korrun --session";

int countVisuals(Display* display, int depth) {
    XVisualInfo wanted{};
    wanted.screen = DefaultScreen(display);
    wanted.depth = depth;
    int count = 0;
    XVisualInfo* found =
        XGetVisualInfo(display, VisualScreenMask | VisualDepthMask, &wanted, &count);
    if (found != nullptr)
        XFree(found);
    return count;
}

void checkVisuals(Findings& findings, Display* display) {
    findings.begin("visuals");
    const int painted = countVisuals(display, 24);
    const int transparent = countVisuals(display, 32);
    if (painted == 0)
        findings.broken("no visual has depth 24: no window can be painted",
                        "start the session's server with depth 24");
    else if (transparent > 0)
        findings.warning(
            std::to_string(painted) + " have depth 24, but " + std::to_string(transparent) +
                " have depth 32: windows of programs that choose one of these stay empty",
            "start the session's server with \"-extension Composite\"");
    else
        findings.ok(std::to_string(painted) + " visuals, all that programs draw with");
}

void checkGlx(Findings& findings, Display* display) {
    findings.begin("glx");
    if (hasExtension(display, "GLX"))
        findings.ok("the session's server has it");
    else
        findings.broken("the session's server has no GLX: programs find no visual for OpenGL",
                        "start it with \"+extension GLX\", and install its GLX module");
}

void checkKorV1(Findings& findings, Display* display) {
    findings.begin("kor-v1");
    Bool present = False;
    if (!XKorExtQueryExtension(display, &present)) {
        findings.broken("this server is no Xkor: every program ends with status 20", useXkor);
        return;
    }
    XExtCodes* codes = XInitExtension(display, kor::gl::protocol::extensionName);
    const Window window =
        XCreateSimpleWindow(display, DefaultRootWindow(display), 3, 5, 11, 7, 0, 0, 0);
    int visual = 0;
    int rect[4] = {};
    const bool answered = codes != nullptr &&
                          XKorExtGetWindowInfo(display, codes, window, nullptr, &visual, rect) &&
                          rect[2] == 11 && rect[3] == 7;
    char* name = nullptr;
    const bool named = codes != nullptr && XKorExtGetGLDisplay(display, codes, &name) != False;
    if (named && name != nullptr)
        findings.fact("server-gl-display", name);
    free(name);
    XDestroyWindow(display, window);
    if (answered)
        findings.ok("answers, and knows " +
                    std::string(named ? "the GPU's display" : "no GPU display of its own"));
    else
        findings.broken("the server has the extension, but does not tell a window's size", useXkor);
}

void examine(Findings& findings) {
    findings.begin("application-display");
    const char* variable = getenv("DISPLAY");
    const std::string name = variable == nullptr ? "" : variable;
    if (name.empty()) {
        findings.broken("DISPLAY is not set: there is no session to draw in",
                        "set DISPLAY to the session's display, or run the program with korrun "
                        "--session");
        return;
    }
    const DisplayHandle display(XOpenDisplay(name.c_str()));
    if (!display) {
        const Refusal refusal = explainRefusal(name);
        findings.broken(name + ": " + refusal.reason, refusal.advice);
        return;
    }
    findings.ok(name + " answers, its screen has " + screenSize(display.get()) + " pixels");
    findings.fact("application-display", name);
    findings.fact("session-size", screenSize(display.get()));
    ErrorTrap trap;
    checkKorV1(findings, display.get());
    checkVisuals(findings, display.get());
    checkGlx(findings, display.get());
    checkSharedMemory(findings, display.get());
}

} // namespace

Section applicationDisplaySection() {
    Section section;
    section.checks = {{"application-display", "session's display"},
                      {"kor-v1", "extension KOR-V1"},
                      {"visuals", "visuals"},
                      {"glx", "GLX of the session"},
                      {"shared-memory", "shared memory"}};
    section.patience = std::chrono::seconds(15);
    section.adviceWhenLost = "see the server's log; a server that hangs has to be started anew";
    section.examine = examine;
    return section;
}

} // namespace kordoctor

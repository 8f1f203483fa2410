#include "rendering.h"

#include "config/settings.h"
#include "core/system_gl.h"
#include "display_access.h"
#include "measurements.h"
#include "open_libraries.h"

#include <X11/Xlib.h>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace kordoctor {

namespace {

constexpr double slowestFrame = 1000.0 / 24; // milliseconds; what is slower is seen to stutter
constexpr int leastMajor = 3;
constexpr int leastMinor = 3;

std::string factOf(const Facts& facts, const char* name) {
    const auto found = facts.find(name);
    return found == facts.end() ? "" : found->second;
}

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof text, value < 10 ? "%.2f" : "%.0f", value);
    return text;
}

std::string sizeOf(const Times& times) {
    return std::to_string(times.width) + "x" + std::to_string(times.height);
}

// The functions that the library needs and that library lacks.
std::string missingFunctions(void* library) {
    std::string missing;
    const auto need = [&](const char* name) {
        if (dlsym(library, name) == nullptr)
            missing += (missing.empty() ? "" : ", ") + std::string(name);
    };
#define KOR_SYSTEM(name) need(#name);
#define KOR_SYSTEM_AS(name, reported) KOR_SYSTEM(name)
#define KOR_SYSTEM_OPTIONAL(name)
#include "core/system_functions.def"
#undef KOR_SYSTEM
#undef KOR_SYSTEM_AS
#undef KOR_SYSTEM_OPTIONAL
    return missing;
}

// Has libGLX render with the GL vendor's library that the vendor front would take for the GPU's
// display. An empty text when that is left to the display's server.
bool chooseVendor(Findings& findings, std::string& library) {
    const char* const name = getenv("KOR_FRONT_LOCAL_VENDOR");
    if (name == nullptr || *name == '\0')
        return true;
    library.append("libGLX_").append(name).append(".so.0");
    if (dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL) == nullptr) {
        findings.broken("KOR_FRONT_LOCAL_VENDOR=" + std::string(name) + ": " + dlerror(),
                        "install that vendor's driver, or correct the variable: by way of the "
                        "vendor front, OpenGL does nothing in programs that have it so");
        return false;
    }
    setenv("__GLX_VENDOR_LIBRARY_NAME", name, 1); // this process has no other use for libGLX
    return true;
}

// Opens it as the front does, and fills the library's table from it.
bool openSystemGl(Findings& findings) {
    findings.begin("system-gl");
    std::string vendorLibrary;
    if (!chooseVendor(findings, vendorLibrary))
        return false;
    kor::front::Libraries libraries;
    kor::front::openSystemLibrary(libraries, true);
    if (libraries.system == nullptr) {
        findings.broken("the system's libGL.so.1 cannot be opened",
                        "install it (apt-get install libgl1 libglx-mesa0, or the GPU's driver), or "
                        "correct KOR_FRONT_SYSTEM_GL if that is set");
        return false;
    }
    const std::string missing = missingFunctions(libraries.system);
    if (!missing.empty()) {
        findings.broken(std::string(libraries.systemPath) + " lacks " + missing,
                        "install a GL library that has all of OpenGL 3.3 and GLX 1.4");
        return false;
    }
    setup_sysgl(libraries.system);
    std::string found = libraries.systemPath;
    if (!vendorLibrary.empty())
        found.append(", with ").append(vendorLibrary).append(" by KOR_FRONT_LOCAL_VENDOR");
    findings.ok(found);
    return true;
}

std::string glText(GLenum name) {
    const auto* text = system_glGetString(name);
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

bool checkVersion(Findings& findings, const GlTarget& target) {
    findings.begin("gl-version");
    if (!target.problem().empty()) {
        findings.broken(target.problem(), "see whether glxinfo works there: the driver is not "
                                          "installed completely, or may not use the GPU's device "
                                          "(/dev/dri, /dev/nvidia*)");
        return false;
    }
    const std::string version = glText(GL_VERSION);
    int major = 0;
    int minor = 0;
    sscanf(version.c_str(), "%d.%d", &major, &minor);
    const std::string result =
        "OpenGL " + version + (target.isDirect() ? "" : ", rendering indirectly");
    if (major < leastMajor || (major == leastMajor && minor < leastMinor)) {
        findings.broken(result + ": frames cannot be read back with less than 3.3",
                        target.isDirect()
                            ? "install a newer driver, or see what lowers the version (the "
                              "environment's MESA_GL_VERSION_OVERRIDE, for instance)"
                            : "let the driver render directly: unset LIBGL_ALWAYS_INDIRECT, and "
                              "name a GPU display on this machine");
        return false;
    }
    findings.ok(result);
    return true;
}

void checkRenderer(Findings& findings) {
    findings.begin("renderer");
    const std::string renderer = glText(GL_RENDERER);
    if (rendersInSoftware(renderer))
        findings.warning("SOFTWARE RENDERING: " + renderer +
                             "; programs work, but no GPU is used at all",
                         "name a display that drives a GPU (gl-display, KOR_GL_DISPLAY), and see "
                         "that its driver is installed and may use the GPU's device; without a GPU "
                         "this is all there is");
    else
        findings.ok(renderer);
}

void examine(Findings& findings, const Facts& facts) {
    if (!openSystemGl(findings))
        return;
    const std::string gpuName = factOf(facts, "gpu-display");
    const std::string session = factOf(facts, "application-display");
    if (gpuName.empty()) {
        for (const char* check : {"gl-version", "renderer", "readback", "painting", "frame-rate"}) {
            findings.begin(check);
            findings.skipped("not tried: the GPU display cannot be used");
        }
        return;
    }
    findings.begin("gl-version");
    const DisplayHandle gpu(XOpenDisplay(gpuName.c_str()));
    if (!gpu) {
        findings.broken("the GPU's display is gone", "start it anew");
        return;
    }
    const ErrorTrap trap; // some drivers complain about their own requests
    Times times{1920, 1080};
    if (const std::string size = factOf(facts, "session-size"); !size.empty())
        sscanf(size.c_str(), "%dx%d", &times.width, &times.height);
    GlTarget target(gpu.get(), times.width, times.height);
    if (!checkVersion(findings, target))
        return;
    checkRenderer(findings);

    findings.begin("readback");
    times.readback = target.measureReadback();
    concludeReadback(findings, times);

    if (session.empty()) {
        for (const char* check : {"painting", "frame-rate"}) {
            findings.begin(check);
            findings.skipped("not tried: the session's display cannot be used");
        }
        return;
    }
    findings.begin("painting");
    const DisplayHandle application(XOpenDisplay(session.c_str()));
    if (!application) {
        findings.broken("the session's display is gone", "start it anew");
        return;
    }
    const Painting painting = measurePainting(application.get(), times.width, times.height);
    times.painting = painting.milliseconds;
    concludePainting(findings, times, painting.sharedMemory);
    if (times.painting < 0 || times.readback < 0)
        return;
    findings.begin("frame-rate");
    concludeFrameRate(findings, times, kor::conf::settings().copybackFrameRate);
}

} // namespace

bool rendersInSoftware(const std::string& renderer) {
    std::string low;
    for (const char letter : renderer)
        low += static_cast<char>(tolower(static_cast<unsigned char>(letter)));
    for (const char* word : {"llvmpipe", "softpipe", "swrast", "software", "swiftshader",
                             "lavapipe", "mesa x11", "openswr"})
        if (low.find(word) != std::string::npos)
            return true;
    return false;
}

void concludeReadback(Findings& findings, const Times& times) {
    const std::string result =
        number(times.readback) + " ms for a frame of " + sizeOf(times) + " pixels";
    if (times.readback < 0)
        findings.broken("no frame of " + sizeOf(times) + " pixels could be read back",
                        "see that the GPU's driver has room for it, and works (glxgears on the GPU "
                        "display)");
    else if (times.readback > slowestFrame)
        findings.warning(result + ": too slow for 24 frames a second",
                         "use a GPU, or one that is less busy, or smaller windows");
    else
        findings.ok(result);
}

void concludePainting(Findings& findings, const Times& times, bool sharedMemory) {
    const std::string how = sharedMemory ? "shared memory" : "plain image requests";
    const std::string result =
        number(times.painting) + " ms for a frame of " + sizeOf(times) + " pixels, by " + how;
    if (times.painting < 0)
        findings.broken("no frame could be painted by " + how, "see \"shared memory\" above");
    else if (times.painting > slowestFrame)
        findings.warning(result + ": too slow for 24 frames a second",
                         sharedMemory ? "see what else keeps the session's server busy"
                                      : "paint by shared memory: setting copyback-strategy");
    else
        findings.ok(result);
}

void concludeFrameRate(Findings& findings, const Times& times, int limit) {
    const double road = std::max(times.readback + times.painting, 0.001);
    const double interval = 1000.0 / std::max(limit, 1);
    // Each pass of the painter lasts a whole interval and the road's own time.
    const std::string result = "a window of the whole screen is painted " +
                               number(1000 / (interval + road)) +
                               " times a second (the road alone allows " + number(1000 / road) +
                               ", the setting copyback-frame-rate " + std::to_string(limit) + ")";
    if (road > interval)
        findings.warning(result, "the road takes longer than the setting's interval: lower "
                                 "copyback-frame-rate, use smaller windows, or see readback and "
                                 "painting");
    else
        findings.ok(result);
}

Section renderingSection(const Facts& facts) {
    Section section;
    section.checks = {{"system-gl", "system's GL library"},
                      {"gl-version", "OpenGL version"},
                      {"renderer", "renderer"},
                      {"readback", "readback"},
                      {"painting", "painting"},
                      {"frame-rate", "frame rate"}};
    section.patience = std::chrono::seconds(30);
    section.adviceWhenLost = "the driver of the GPU's display fails: try glxgears on that display, "
                             "see the kernel's log, install another version of the driver";
    section.examine = [facts](Findings& findings) { examine(findings, facts); };
    return section;
}

} // namespace kordoctor

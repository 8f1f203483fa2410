#include "app_displays.h"

#include "support/forked_child.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace kor::front {

namespace {

constexpr const char* extensionName = "KOR-V1";

// The name of the first display that we serve. In memory of the library's own, so that nothing is
// left behind when it is unloaded; names are far shorter.
char firstName[1024];
enum NameState { NoName, NameBeingWritten, NameKnown };
std::atomic<int> nameState{NoName};

/// A child serves displays of its own, and may find this one half written.
InForkedChild forgetName([] { nameState = NoName; });

void noteName(const char* name) {
    int none = NoName;
    if (strlen(name) >= sizeof firstName ||
        !nameState.compare_exchange_strong(none, NameBeingWritten))
        return;
    strcpy(firstName, name);
    nameState.store(NameKnown, std::memory_order_release);
}

std::string askServer(void* korLibrary) {
    const auto getGLDisplay = reinterpret_cast<Bool (*)(Display*, XExtCodes*, char**)>(
        dlsym(korLibrary, "XKorExtGetGLDisplay"));
    Display* display = nullptr;
    if (getGLDisplay != nullptr && nameState.load(std::memory_order_acquire) == NameKnown)
        display = XOpenDisplay(firstName);
    if (display == nullptr)
        return "";
    std::string answer;
    char* text = nullptr;
    XExtCodes* codes = XInitExtension(display, extensionName);
    if (codes != nullptr && getGLDisplay(display, codes, &text) && text != nullptr)
        answer = text;
    free(text);
    XCloseDisplay(display);
    return answer;
}

} // namespace

bool isAppDisplay(Display* display) {
    int opcode = 0;
    int event = 0;
    int error = 0;
    if (!XQueryExtension(display, extensionName, &opcode, &event, &error))
        return false;
    noteName(DisplayString(display));
    return true;
}

std::string localDisplayName(void* korLibrary) {
    const auto setting =
        reinterpret_cast<const char* (*)()>(dlsym(korLibrary, "kor_gl_display_setting"));
    if (const char* given = setting == nullptr ? nullptr : setting(); given != nullptr)
        return given;
    const std::string answer = askServer(korLibrary);
    return answer.empty() ? ":0.0" : answer;
}

} // namespace kor::front

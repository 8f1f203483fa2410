#include "app_displays.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace kor::front {

namespace {

constexpr const char* extensionName = "KOR-V1";

// Null until the first; never freed, it lasts as long as this library.
std::atomic<char*> firstName{nullptr};

std::string askServer(void* korLibrary) {
    const auto getGLDisplay = reinterpret_cast<Bool (*)(Display*, XExtCodes*, char**)>(
        dlsym(korLibrary, "XKorExtGetGLDisplay"));
    const char* name = firstName.load();
    Display* display = getGLDisplay == nullptr || name == nullptr ? nullptr : XOpenDisplay(name);
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
    if (firstName.load() == nullptr) {
        char* name = strdup(DisplayString(display));
        char* none = nullptr;
        if (!firstName.compare_exchange_strong(none, name))
            free(name);
    }
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

// Attribute lists of any words through the calls that walk them, against a made-up visual map. What
// the walk rests on (displays, contexts, the system's GLX) is stood in for below.

#include "input.h"

#include "context/context_map.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/log.h"
#include "visual/visual_map.h"

#include <algorithm>
#include <cstdarg>
#include <vector>

using kor::fuzz::require;

namespace {

kor::gl::TSD thread;
kor::gl::LocalVisualInfo mapping;
alignas(16) char displayMemory[1024];
Display* const display = reinterpret_cast<Display*>(displayMemory);
GLXFBConfig const knownConfig = reinterpret_cast<GLXFBConfig>(displayMemory);
std::vector<int> passedOn; ///< the list that the system's GLX was given, without its end

void notePassed(const int* list) {
    passedOn.clear();
    while (list != nullptr && *list != None)
        passedOn.push_back(*list++);
}

GLXFBConfig* chooseFBConfig(Display* /*dpy*/, int /*screen*/, const int* list, int* count) {
    notePassed(list);
    auto* configs = static_cast<GLXFBConfig*>(calloc(3, sizeof(GLXFBConfig)));
    configs[1] = knownConfig;
    *count = 3;
    return configs;
}

GLXContext createContextAttribs(Display* /*dpy*/, GLXFBConfig /*config*/, GLXContext /*share*/,
                                Bool /*direct*/, const int* list) {
    notePassed(list);
    return reinterpret_cast<GLXContext>(displayMemory);
}

void fillVisual(kor::gl::VisualAttribs& visual, kor::fuzz::Input& input) {
    int32_t words[sizeof visual / sizeof(int32_t)];
    for (int32_t& word : words) {
        const uint8_t kind = input.byte();
        word = (kind & 1) != 0 ? input.word() : kind >> 1;
    }
    memcpy(&visual, words, sizeof visual);
}

void checkDescription(const kor::gl::VisualAttribs& visual) {
    // On the heap, so that a word too many is noticed.
    std::vector<int> list(kor::gl::maxAttribList);
    kor::gl::populateAttribList(visual, list.data());
    size_t length = 0;
    while (list.at(length) != None)
        length += 2;
    const auto value = [&](int attribute) {
        for (size_t i = 0; i < length; i += 2) {
            if (list[i] == attribute)
                return list[i + 1];
        }
        return -1;
    };
    require(value(GLX_RED_SIZE) == visual.redSize, "sizes are described");
    require(value(GLX_RENDER_TYPE) == (visual.rgba != 0 ? GLX_RGBA_BIT : GLX_COLOR_INDEX_BIT),
            "the kind of pixels is described");
    require((value(GLX_SAMPLES) == visual.samples) || visual.sampleBuffers <= 0,
            "samples are described where there are any");
}

} // namespace

// What choose_visual.cpp, choose_fbconfig.cpp, get_config.cpp and create_context.cpp call.
kor::gl::TSD::~TSD() = default;
kor::gl::TSD* getTSD() {
    return &thread;
}
bool _setupAppDisplay(Display* /*dpy*/, kor::gl::TSD* /*tsd*/) {
    return true;
}
kor::gl::TSD::TSD() = default;
kor::gl::LocalDisplay kor::gl::pinLocalDisplay(TSD* /*tsd*/) {
    static auto* local = new SharedConnection(display, nullptr);
    return LocalDisplay(local);
}
void kor::gl::SharedConnection::lastPinGone(SharedConnection* /*connection*/) {}
kor::Mutex& getLocalDisplayMutex() {
    static auto* mutex = new kor::Mutex;
    return *mutex;
}
int korSprintf(char* buffer, unsigned size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}
kor::Mutex& kor::gl::getVisualMapMutex() {
    static auto* mutex = new kor::Mutex;
    return *mutex;
}
kor::gl::VisualMap& kor::gl::getVisualMap() {
    static auto* map = new VisualMap{&mapping};
    return *map;
}
void initializeVisualMap(Display* /*dpy*/, int /*screen*/, kor::gl::TSD* /*tsd*/) {}
kor::gl::LocalVisualInfo* _getLVI(Display* /*dpy*/, GLXFBConfig config, kor::gl::TSD* /*tsd*/) {
    return config == knownConfig ? &mapping : nullptr;
}
kor::gl::LocalVisualInfo* _getLVI(Display* /*dpy*/, VisualID /*id*/, kor::gl::TSD* /*tsd*/) {
    return &mapping;
}
void addToContextMap(Display* /*dpy*/, GLXContext /*ctx*/, kor::gl::LocalVisualInfo* /*lvi*/,
                     GLXFBConfig /*config*/, const kor::gl::LocalDisplay& /*local*/) {}
// The log, written into nothing: every record is formatted, so that its arguments are looked at.
std::atomic<int> kor::logThreshold{kor::LogDebug};
extern "C" {
void kor_printlog(const char* /*tag*/, int /*level*/, const char* /*word*/,
                  const char* /*function*/, bool /*echo*/, const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
}

// Xlib's, which would ask a server.
XVisualInfo* XGetVisualInfo(Display* /*dpy*/, long /*mask*/, XVisualInfo* wanted, int* count) {
    auto* visual = static_cast<XVisualInfo*>(calloc(1, sizeof(XVisualInfo)));
    visual->visualid = wanted->visualid;
    *count = 1;
    return visual;
}
}

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
    setenv("KOR_GL_ADD_GL_DEBUG_CALLBACK", "true", 1);
    setenv("HOME", kor::fuzz::temporaryFolder().c_str(), 1);
    system_glXChooseFBConfig = chooseFBConfig;
    system_glXCreateContextAttribsARB = createContextAttribs;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kor::fuzz::Input input(data, size);
    const uint8_t flags = input.byte();
    fillVisual(mapping.appVisual, input);
    fillVisual(mapping.localVisual, input);
    checkDescription(mapping.appVisual);

    // A list ends with its first word 0 in the place of an attribute. Where a value is missing
    // there, or a value that is taken for an attribute wants one itself, the walk ends one word
    // further on.
    std::vector<int> list;
    while (input.left() > 0) {
        const uint8_t kind = input.byte();
        list.push_back((kind & 0x80) != 0 ? input.word() : kind);
    }
    list.insert(list.end(), {None, None});

    XVisualInfo* visual = kor_glXChooseVisual(display, 0, list.data());
    if (visual != nullptr)
        require(visual->visualid == static_cast<uint32_t>(mapping.appVisual.visualId),
                "the application's visual is chosen");
    free(visual);

    int count = -1;
    GLXFBConfig* configs = kor_glXChooseFBConfig(display, 0, list.data(), &count);
    require(configs != nullptr && count == 1 && configs[0] == knownConfig,
            "only fbconfigs with a visual are kept");
    free(configs);

    const int* given = (flags & 1) != 0 ? nullptr : list.data();
    size_t length = 0;
    while (given != nullptr && given[length] != None)
        ++length;
    kor_glXCreateContextAttribsARB(display, knownConfig, nullptr, True, given);
    require(passedOn.size() == length + 2 &&
                std::equal(passedOn.begin(), passedOn.end() - 2, list.begin()) &&
                passedOn[length] == GLX_CONTEXT_FLAGS_ARB &&
                passedOn[length + 1] == GLX_CONTEXT_DEBUG_BIT_ARB,
            "the debug flag is appended");

    XVisualInfo asked{};
    asked.visualid = static_cast<uint32_t>(mapping.appVisual.visualId);
    for (size_t i = 0; i < length; ++i) {
        int value = -1;
        const int result = kor_glXGetConfig(display, &asked, list[i], &value);
        require(result == 0 || (result == GLX_BAD_ATTRIBUTE && value == 0),
                "an attribute is answered or refused");
    }
    return 0;
}

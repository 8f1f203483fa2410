#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/displays.h"
#include "support/failures.h"
#include "support/log.h"
#include "visual/visual_map.h"

using kor::Lock;
using kor::gl::LocalVisualInfo;
using kor::gl::VisualAttribs;

namespace {

/// One attribute that is compared: "at least" in every case.
struct Compared {
    int attribute;
    int32_t VisualAttribs::*field;
    const char* requestLine; // null: not written out in the request's log
    const char* rejectionLine;
};

constexpr Compared comparedAttributes[] = {
#define KOR_VISUAL_ATTRIBUTE(attribute, field, request, rejection, answer)                         \
    {attribute, &VisualAttribs::field, request, rejection},
#include "visual/visual_attributes.def"
#undef KOR_VISUAL_ATTRIBUTE
};

const Compared* findCompared(int attribute) {
    for (const Compared& compared : comparedAttributes) {
        if (compared.attribute == attribute)
            return &compared;
    }
    return nullptr;
}

const char* booleanName(int attribute) {
    switch (attribute) {
    case GLX_USE_GL:
        return "GLX_USE_GL";
    case GLX_RGBA:
        return "GLX_RGBA";
    case GLX_DOUBLEBUFFER:
        return "GLX_DOUBLEBUFFER";
    case GLX_STEREO:
        return "GLX_STEREO";
    default:
        return nullptr;
    }
}

#define CHOOSE_DEBUG(...)                                                                          \
    KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG",                                                    \
               "XVisualInfo* kor_glXChooseVisual(Display*, int, int*)", false, __VA_ARGS__)

/// Of an attribute that it does not know, only the word itself is skipped: whether a value follows
/// cannot be told.
void logRequest(const int* list) {
    if (!kor::logs(kor::LogDebug))
        return;
    while (list != nullptr && *list != None) {
        const int attribute = *list++;
        const Compared* compared = findCompared(attribute);
        if (const char* name = booleanName(attribute)) {
            CHOOSE_DEBUG("%s", name);
        } else if (attribute == GLX_DEPTH_SIZE) {
            CHOOSE_DEBUG("GLX_DEPTH_SIZE %d", *list++);
        } else if (compared != nullptr && compared->requestLine != nullptr) {
            CHOOSE_DEBUG(compared->requestLine, *list++);
        } else {
            CHOOSE_DEBUG("unknown attribute %x", attribute);
        }
    }
}

/// What a request asks for, against one local visual.
class Test {
  public:
    Test(const int* list, const VisualAttribs& local) : list_(list), local_(local) {}

    bool accepts() {
        while (list_ != nullptr && *list_ != None) {
            if (!acceptsNext())
                return false;
        }
        // A double-buffered visual must be asked for, and without a word on depth only the usual
        // colour depth is given.
        return (doubleBufferAsked_ || local_.doubleBuffer == 0) &&
               (depthAsked_ || local_.depth == 24);
    }

  private:
    bool acceptsNext() {
        const int attribute = *list_++;
        switch (attribute) {
        case GLX_USE_GL:
        case GLX_RGBA:
        case GLX_STEREO:
            return true;
        case GLX_DOUBLEBUFFER:
            doubleBufferAsked_ = true;
            if (local_.doubleBuffer == 0) {
                CHOOSE_DEBUG("GLX_DOUBLEBUFFER request YES has NO");
                return false;
            }
            return true;
        case GLX_DEPTH_SIZE: {
            // Compared with the X visual's colour depth, not with its depth buffer: applications
            // have always been given their visual that way, and it is kept on purpose.
            const unsigned wanted = static_cast<unsigned>(*list_++);
            depthAsked_ = true;
            if (wanted > static_cast<unsigned>(local_.depth)) {
                CHOOSE_DEBUG("GLX_DEPTH_SIZE request %u has %u", wanted,
                             static_cast<unsigned>(local_.depth));
                return false;
            }
            return true;
        }
        default:
            break;
        }
        const Compared* compared = findCompared(attribute);
        if (compared == nullptr) {
            CHOOSE_DEBUG("unknown attribute %x", attribute);
            return true;
        }
        const int wanted = *list_++;
        if (wanted > local_.*compared->field) {
            CHOOSE_DEBUG(compared->rejectionLine, wanted, local_.*compared->field);
            return false;
        }
        return true;
    }

    const int* list_;
    const VisualAttribs& local_;
    bool doubleBufferAsked_ = false;
    bool depthAsked_ = false;
};

bool isInMap(VisualID id) {
    const Lock lock(kor::gl::getVisualMapMutex());
    for (const LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        if (static_cast<VisualID>(static_cast<uint32_t>(mapping->appVisual.visualId)) == id)
            return true;
    }
    return false;
}

} // namespace

XVisualInfo* kor_glXChooseVisual(Display* dpy, int screen, int* attribList) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return nullptr;
    logRequest(attribList);
    initializeVisualMap(dpy, screen, nullptr);

    Lock lock(kor::gl::getVisualMapMutex());
    const LocalVisualInfo* chosen = nullptr;
    for (const LocalVisualInfo* mapping : kor::gl::getVisualMap()) {
        if (Test(attribList, mapping->localVisual).accepts()) {
            chosen = mapping;
            break;
        }
    }
    if (chosen == nullptr) {
        lock.unlock();
        KOR_DEBUG("FAILED!");
        return nullptr;
    }
    XVisualInfo wanted{};
    wanted.visualid = static_cast<uint32_t>(chosen->appVisual.visualId);
    int count = 0;
    XVisualInfo* visual = XGetVisualInfo(dpy, VisualIDMask, &wanted, &count);
    if (visual == nullptr) {
        lock.unlock();
        KOR_DEBUG("FAILED!");
        return nullptr;
    }
    KOR_DEBUG("choosing visual %x", static_cast<unsigned>(visual->visualid));
    lock.unlock();
    if (!isInMap(visual->visualid)) {
        KOR_DEBUG("BIG PROBLEM cannot find id %lx", visual->visualid);
        XFree(visual);
        return nullptr;
    }
    KOR_DEBUG("return %x.", static_cast<unsigned>(visual->visualid));
    return visual;
}
KOR_OTHERWISE(nullptr)

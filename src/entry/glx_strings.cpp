#include "config/settings.h"
#include "core/entry_points.h"
#include "core/system_gl.h"
#include "display/local_call.h"
#include "entry/extension_filter.h"
#include "support/failures.h"
#include "support/forked_child.h"
#include "support/log.h"

#include <atomic>

using kor::Lock;
using kor::gl::callLocal;
using kor::gl::LocalDisplay;

namespace {

constexpr const char* ownVendor = "TESSERA s.r.l.";

/// An extension string, built once for whoever asks first. The check is made without the lock, so
/// two first callers may both build; the earlier text is then left alone, since it was handed out.
class ExtensionCache {
  public:
    const char* get() const { return text_.load(); }

    void build(const char* reported, const char* function) {
        const char* blacklist = kor::conf::settings().glxExtBlacklist;
        const Lock lock(mutex_);
        const char* text = kor::gl::filterExtensions(reported, blacklist);
        text_.store(text);
        KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false, "Extensions: %s",
                   text != nullptr ? text : "");
        if (blacklist != nullptr)
            KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false,
                       "Blacklisted Extensions: %s", blacklist);
    }

  private:
    kor::Mutex mutex_;
    std::atomic<const char*> text_{nullptr};
};

kor::PerProcess<ExtensionCache> combinedExtensions;
kor::PerProcess<ExtensionCache> clientExtensions;

/// The display to ask: the local one for an application display, none for none.
LocalDisplay localFor(Display* dpy, const char* function) {
    if (dpy == nullptr) {
        KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false, "Called with NULL display");
        return LocalDisplay();
    }
    _setupAppDisplay(dpy, nullptr);
    LocalDisplay local = kor::gl::pinLocalDisplay(nullptr);
    if (!local)
        KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function, false, "no local display");
    return local;
}

} // namespace

const char* kor_glXQueryExtensionsString(Display* dpy, int screen) try {
    KOR_DEBUG("START");
    if (const char* cached = combinedExtensions->get())
        return cached;
    const LocalDisplay pinned = localFor(dpy, __PRETTY_FUNCTION__);
    Display* const local = pinned.get();
    if (dpy != nullptr) {
        if (local == nullptr)
            return combinedExtensions->get();
        screen = DefaultScreen(local);
    }
    const char* reported = callLocal(system_glXQueryExtensionsString, local, screen);
    combinedExtensions->build(reported, __PRETTY_FUNCTION__);
    return combinedExtensions->get();
}
KOR_OTHERWISE(nullptr)

const char* kor_glXGetClientString(Display* dpy, int name) try {
    KOR_DEBUG("querying %d", name);
    if (name == GLX_EXTENSIONS) {
        if (const char* cached = clientExtensions->get())
            return cached;
    }
    const LocalDisplay pinned = localFor(dpy, __PRETTY_FUNCTION__);
    Display* const local = pinned.get();
    if (name == GLX_VENDOR && !kor::conf::settings().originalVendor)
        return ownVendor;
    if (dpy != nullptr && local == nullptr)
        return nullptr;
    const char* reported = callLocal(system_glXGetClientString, local, name);
    if (name != GLX_EXTENSIONS)
        return reported;
    clientExtensions->build(reported, __PRETTY_FUNCTION__);
    return clientExtensions->get();
}
KOR_OTHERWISE(nullptr)

const char* kor_glXQueryServerString(Display* dpy, int screen, int name) try {
    KOR_DEBUG("querying %d", name);
    const LocalDisplay pinned = localFor(dpy, __PRETTY_FUNCTION__);
    Display* const local = pinned.get();
    if (dpy != nullptr) {
        if (local == nullptr)
            return nullptr;
        screen = DefaultScreen(local);
    }
    if (name == GLX_VENDOR && !kor::conf::settings().originalVendor)
        return ownVendor;
    // The server's extensions come unfiltered, unlike the client's: that difference is intended.
    return callLocal(system_glXQueryServerString, local, screen, name);
}
KOR_OTHERWISE(nullptr)

Bool kor_glXQueryExtension(Display* dpy, int* errorBase, int* eventBase) try {
    KOR_DEBUG("START");
    const LocalDisplay pinned = localFor(dpy, __PRETTY_FUNCTION__);
    return callLocal(system_glXQueryExtension, pinned.get(), errorBase, eventBase);
}
KOR_OTHERWISE(False)

Bool kor_glXQueryVersion(Display* dpy, int* major, int* minor) try {
    KOR_DEBUG("START");
    const LocalDisplay pinned = localFor(dpy, __PRETTY_FUNCTION__);
    return callLocal(system_glXQueryVersion, pinned.get(), major, minor) ? 1 : 0;
}
KOR_OTHERWISE(False)

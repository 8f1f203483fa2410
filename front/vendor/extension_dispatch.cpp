#include "extension_dispatch.h"

#include <atomic>
#include <cstring>
#include <type_traits>

namespace kor::front {

namespace {

std::atomic<const __GLXapiExports*> exports{nullptr};

const __GLXapiExports& dispatchLibrary() {
    return *exports.load(std::memory_order_acquire);
}

// Whose a call is. Each is given the call's arguments.

struct OfScreen {
    template <typename... Rest>
    static __GLXvendorInfo* vendor(Display* display, int screen, Rest...) {
        return dispatchLibrary().getDynDispatch(display, screen);
    }
};

struct OfDisplay {
    template <typename... Rest> static __GLXvendorInfo* vendor(Display* display, Rest...) {
        return display == nullptr
                   ? nullptr
                   : dispatchLibrary().getDynDispatch(display, DefaultScreen(display));
    }
};

struct OfVisual {
    static __GLXvendorInfo* vendor(Display* display, XVisualInfo* visual) {
        return visual == nullptr ? nullptr
                                 : dispatchLibrary().getDynDispatch(display, visual->screen);
    }
};

struct OfConfig {
    template <typename... Rest>
    static __GLXvendorInfo* vendor(Display* display, GLXFBConfig config, Rest... rest) {
        // Without a config the display decides what becomes of the call.
        return config == nullptr ? OfDisplay::vendor(display, config, rest...)
                                 : dispatchLibrary().vendorFromFBConfig(display, config);
    }
};

struct OfDrawable {
    template <typename... Rest>
    static __GLXvendorInfo* vendor(Display* display, GLXDrawable drawable, Rest...) {
        return dispatchLibrary().vendorFromDrawable(display, drawable);
    }
};

struct OfContext {
    static __GLXvendorInfo* vendor(GLXContext context) {
        return dispatchLibrary().vendorFromContext(context);
    }
    template <typename... Rest>
    static __GLXvendorInfo* vendor(Display*, GLXContext context, Rest...) {
        return vendor(context);
    }
};

struct OfThread {
    template <typename... Rest> static __GLXvendorInfo* vendor(Rest...) {
        return dispatchLibrary().getCurrentDynDispatch();
    }
};

// What becomes of the objects of a call. before is told the arguments, after the result as well.

struct Nothing {
    template <typename... Rest> static void before(Rest...) {}
    template <typename Result, typename... Rest>
    static Result after(__GLXvendorInfo*, Result result, Rest...) {
        return result;
    }
};

struct MakesContext : Nothing {
    template <typename... Rest>
    static GLXContext after(__GLXvendorInfo* vendor, GLXContext made, Display* display, Rest...) {
        if (made != nullptr)
            dispatchLibrary().addVendorContextMapping(display, made, vendor);
        return made;
    }
};

struct EndsContext : Nothing {
    static void before(Display* display, GLXContext context) {
        dispatchLibrary().removeVendorContextMapping(display, context);
    }
};

struct MakesDrawable : Nothing {
    template <typename... Rest>
    static GLXDrawable after(__GLXvendorInfo* vendor, GLXDrawable made, Display* display, Rest...) {
        if (made != None)
            dispatchLibrary().addVendorDrawableMapping(display, made, vendor);
        return made;
    }
};

struct EndsDrawable : Nothing {
    static void before(Display* display, GLXDrawable drawable) {
        dispatchLibrary().removeVendorDrawableMapping(display, drawable);
    }
};

struct FindsConfig : Nothing {
    template <typename... Rest>
    static GLXFBConfig after(__GLXvendorInfo* vendor, GLXFBConfig found, Display* display,
                             Rest...) {
        if (found != nullptr)
            dispatchLibrary().addVendorFBConfigMapping(display, found, vendor);
        return found;
    }
};

struct FindsConfigs : Nothing {
    static GLXFBConfigSGIX* after(__GLXvendorInfo* vendor, GLXFBConfigSGIX* found, Display* display,
                                  int, int*, int* count) {
        for (int i = 0; found != nullptr && i < *count; ++i)
            dispatchLibrary().addVendorFBConfigMapping(display, found[i], vendor);
        return found;
    }
};

/// One function of the list below.
template <int place, typename Function, typename Owner, typename Effect> struct Dispatch;

std::atomic<int>& indexOf(int place);

template <int place, typename Result, typename... Arguments, typename Owner, typename Effect>
struct Dispatch<place, Result(Arguments...), Owner, Effect> {
    static Result call(Arguments... arguments) {
        __GLXvendorInfo* const vendor = Owner::vendor(arguments...);
        if (vendor == nullptr)
            return Result();
        const auto function =
            reinterpret_cast<Result (*)(Arguments...)>(dispatchLibrary().fetchDispatchEntry(
                vendor, indexOf(place).load(std::memory_order_relaxed)));
        if (function == nullptr)
            return Result();
        Effect::before(arguments...);
        if constexpr (std::is_void_v<Result>)
            return function(arguments...);
        else
            return Effect::after(vendor, function(arguments...), arguments...);
    }
};

struct Extension {
    const char* name;
    void* dispatch;
};

#define KOR_EXTENSIONS(X)                                                                          \
    X(glXCreateContextAttribsARB, OfConfig, MakesContext)                                          \
    X(glXAllocateMemoryNV, OfThread, Nothing)                                                      \
    X(glXFreeMemoryNV, OfThread, Nothing)                                                          \
    X(glXJoinSwapGroupNV, OfDrawable, Nothing)                                                     \
    X(glXBindSwapBarrierNV, OfDisplay, Nothing)                                                    \
    X(glXQuerySwapGroupNV, OfDrawable, Nothing)                                                    \
    X(glXQueryMaxSwapGroupsNV, OfScreen, Nothing)                                                  \
    X(glXQueryFrameCountNV, OfScreen, Nothing)                                                     \
    X(glXResetFrameCountNV, OfScreen, Nothing)                                                     \
    X(glXGetVideoSyncSGI, OfThread, Nothing)                                                       \
    X(glXWaitVideoSyncSGI, OfThread, Nothing)                                                      \
    X(glXGetRefreshRateSGI, OfThread, Nothing)                                                     \
    X(glXGetFBConfigAttribSGIX, OfConfig, Nothing)                                                 \
    X(glXChooseFBConfigSGIX, OfScreen, FindsConfigs)                                               \
    X(glXCreateGLXPixmapWithConfigSGIX, OfConfig, MakesDrawable)                                   \
    X(glXCreateContextWithConfigSGIX, OfConfig, MakesContext)                                      \
    X(glXGetVisualFromFBConfigSGIX, OfConfig, Nothing)                                             \
    X(glXGetFBConfigFromVisualSGIX, OfVisual, FindsConfig)                                         \
    X(glXCreateGLXPbufferSGIX, OfConfig, MakesDrawable)                                            \
    X(glXDestroyGLXPbufferSGIX, OfDrawable, EndsDrawable)                                          \
    X(glXQueryGLXPbufferSGIX, OfDrawable, Nothing)                                                 \
    X(glXSelectEventSGIX, OfDrawable, Nothing)                                                     \
    X(glXGetSelectedEventSGIX, OfDrawable, Nothing)                                                \
    X(glXSet3DfxModeMESA, OfThread, Nothing)                                                       \
    X(glXReleaseVideoImageNV, OfDrawable, Nothing)                                                 \
    X(glXSendPbufferToVideoNV, OfDrawable, Nothing)                                                \
    X(glXBindChannelToWindowSGIX, OfScreen, Nothing)                                               \
    X(glXBindTexImageEXT, OfDrawable, Nothing)                                                     \
    X(glXChannelRectSGIX, OfScreen, Nothing)                                                       \
    X(glXChannelRectSyncSGIX, OfScreen, Nothing)                                                   \
    X(glXFreeContextEXT, OfContext, EndsContext)                                                   \
    X(glXGetContextIDEXT, OfContext, Nothing)                                                      \
    X(glXImportContextEXT, OfDisplay, MakesContext)                                                \
    X(glXQueryChannelDeltasSGIX, OfScreen, Nothing)                                                \
    X(glXQueryChannelRectSGIX, OfScreen, Nothing)                                                  \
    X(glXQueryContextInfoEXT, OfContext, Nothing)                                                  \
    X(glXReleaseTexImageEXT, OfDrawable, Nothing)

enum Place {
#define KOR_PLACE(name, owner, effect) place_##name,
    KOR_EXTENSIONS(KOR_PLACE)
#undef KOR_PLACE
        placeCount
};

/// Written once per name, before an application gets the function.
std::atomic<int> indices[placeCount];

std::atomic<int>& indexOf(int place) {
    return indices[place];
}

const Extension extensions[placeCount] = {
#define KOR_EXTENSION(name, owner, effect)                                                         \
    {#name,                                                                                        \
     reinterpret_cast<void*>(                                                                      \
         &Dispatch<place_##name, std::remove_pointer_t<decltype(&::name)>, owner, effect>::call)},
    KOR_EXTENSIONS(KOR_EXTENSION)
#undef KOR_EXTENSION
};

int placeOf(const char* name) {
    int place = 0;
    while (place < placeCount && strcmp(extensions[place].name, name) != 0)
        ++place;
    return place;
}

} // namespace

void useDispatchLibrary(const __GLXapiExports* library) {
    exports.store(library, std::memory_order_release);
}

void* extensionDispatch(const char* name) {
    const int place = placeOf(name);
    return place < placeCount ? extensions[place].dispatch : nullptr;
}

void setExtensionIndex(const char* name, int index) {
    const int place = placeOf(name);
    if (place < placeCount)
        indices[place].store(index, std::memory_order_relaxed);
}

} // namespace kor::front

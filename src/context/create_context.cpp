#include "context/context_map.h"

#include "config/settings.h"
#include "core/entry_points.h"
#include "display/local_call.h"
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

#include <vector>

using kor::gl::callLocal;
using kor::gl::LocalVisualInfo;
using kor::gl::TSD;

namespace {

/// What the three ways of creating a context share. Logs under the entry point's name.
class Creation {
  public:
    Creation(const char* function, Display* dpy, Bool direct) : function_(function), dpy_(dpy) {
        if (!direct)
            KOR_LOG_AT("KORGL", kor::LogInfo, "INFO", function_, false,
                       "trying to create an indirect context. Forcing direct.");
    }

    bool setUp() {
        tsd_ = getTSD();
        if (!_setupAppDisplay(dpy_, tsd_))
            return false;
        local_ = kor::gl::pinLocalDisplay(tsd_);
        if (!local_)
            debug("no local display");
        return static_cast<bool>(local_);
    }

    template <typename Key> bool findVisual(Key key) {
        visual_ = _getLVI(dpy_, key, tsd_);
        if (visual_ == nullptr)
            debug("failed for no visual.");
        return visual_ != nullptr;
    }

    /// Keeps what the local library made.
    GLXContext finish(GLXContext context, GLXFBConfig fbconfig) {
        if (context == nullptr) {
            debug("failed in createnewcontext.");
            return nullptr;
        }
        if (tsd_->throwawayContext == nullptr)
            tsd_->throwawayContext = context;
        const kor::OnFailure undo([&] {
            if (tsd_->throwawayContext == context)
                tsd_->throwawayContext = nullptr;
            callLocal(system_glXDestroyContext, local_.get(), context);
        });
        addToContextMap(dpy_, context, visual_, fbconfig, local_);
        return context;
    }

    void debug(const char* message) const {
        KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", function_, false, "%s", message);
    }

    /// True when the mapping's chosen fbconfig is to be used in place of the application's.
    bool forcesBest() const {
        return kor::conf::settings().forceBestFbconfig && visual_->localFbconfigs != nullptr;
    }

    Display* local() const { return local_.get(); }
    const LocalVisualInfo& visual() const { return *visual_; }

  private:
    const char* function_;
    Display* dpy_;
    TSD* tsd_ = nullptr;
    kor::gl::LocalDisplay local_;
    LocalVisualInfo* visual_ = nullptr;
};

/// The application's list with the debug flag appended. The words are counted one by one up to the
/// first zero, values included: what follows a zero value is dropped, which is kept on purpose.
std::vector<int> withDebugFlag(const int* attribs) {
    std::vector<int> list;
    while (attribs != nullptr && *attribs != 0)
        list.push_back(*attribs++);
    list.insert(list.end(), {GLX_CONTEXT_FLAGS_ARB, GLX_CONTEXT_DEBUG_BIT_ARB, 0});
    return list;
}

} // namespace

GLXContext kor_glXCreateContext(Display* dpy, XVisualInfo* vis, GLXContext shareList,
                                Bool direct) try {
    if (vis == nullptr)
        return nullptr;
    KOR_DEBUG("visual id %x", static_cast<unsigned>(vis->visualid));
    Creation creation(__PRETTY_FUNCTION__, dpy, direct);
    if (!creation.setUp() || !creation.findVisual(vis->visualid))
        return nullptr;
    const GLXFBConfig config = creation.visual().chosenFbconfig();
    if (config == nullptr) {
        creation.debug("failed for local fbconfigs");
        return nullptr;
    }
    return creation.finish(callLocal(system_glXCreateNewContext, creation.local(), config,
                                     GLX_RGBA_TYPE, shareList, True),
                           config);
}
KOR_OTHERWISE(nullptr)

GLXContext kor_glXCreateNewContext(Display* dpy, GLXFBConfig config, int renderType,
                                   GLXContext shareList, Bool direct) try {
    KOR_DEBUG("fbconfig %x, render type %d", handleText(config), renderType);
    Creation creation(__PRETTY_FUNCTION__, dpy, direct);
    if (!creation.setUp() || !creation.findVisual(config))
        return nullptr;
    if (creation.forcesBest()) {
        config = creation.visual().chosenFbconfig();
        renderType = GLX_RGBA_TYPE;
        KOR_DEBUG("forcing fbconfig %x, render type %d", handleText(config), renderType);
    }
    return creation.finish(callLocal(system_glXCreateNewContext, creation.local(), config,
                                     renderType, shareList, True),
                           config);
}
KOR_OTHERWISE(nullptr)

GLXContext kor_glXCreateContextWithConfigSGIX(Display* dpy, GLXFBConfigSGIX config, int renderType,
                                              GLXContext shareList, Bool direct) try {
    KOR_DEBUG("START");
    return kor_glXCreateNewContext(dpy, config, renderType, shareList, direct);
}
KOR_OTHERWISE(nullptr)

GLXContext kor_glXCreateContextAttribsARB(Display* dpy, GLXFBConfig config, GLXContext shareContext,
                                          Bool direct, const int* attribList) try {
    KOR_DEBUG("fbconfig %x", handleText(config));
    Creation creation(__PRETTY_FUNCTION__, dpy, direct);
    if (!creation.setUp() || !creation.findVisual(config))
        return nullptr;
    if (creation.forcesBest()) {
        config = creation.visual().chosenFbconfig();
        KOR_DEBUG("forcing fbconfig %x", handleText(config));
    }
    std::vector<int> debugList;
    if (kor::conf::settings().addGlDebugCallback) {
        debugList = withDebugFlag(attribList);
        attribList = debugList.data();
        KOR_INFO("Added GLX_CONTEXT_FLAGS_ARB and GLX_CONTEXT_DEBUG_BIT_ARB to the attrib list");
    }
    return creation.finish(callLocal(system_glXCreateContextAttribsARB, creation.local(), config,
                                     shareContext, True, attribList),
                           config);
}
KOR_OTHERWISE(nullptr)

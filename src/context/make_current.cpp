#include "context/context_map.h"
#include "context/debug_callback.h"
#include "context/frame_end.h"

#include "config/settings.h"
#include "core/entry_points.h"
#include "display/display_end.h"
#include "display/local_call.h"
#include "drawable/registry.h" // a make-current joins both kinds of record
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

#include <memory>

using kor::Lock;
using kor::gl::callLocal;
using kor::gl::ContextInfo;
using kor::gl::DrawableInfo;
using kor::gl::DrawableRef;
using kor::gl::LocalDisplay;
using kor::gl::pinLocalDisplay;
using kor::gl::TSD;

namespace {

/// What setCurrent and its helper sign their records with.
constexpr const char* setCurrentFunction =
    "void setCurrent(kor::gl::TSD*, GLXContext, kor::gl::DrawableInfo*, kor::gl::DrawableInfo*)";

/// Takes the thread's old context out of use. Returns its record when the application has destroyed
/// the context in the meantime: it has left the map and is to be deleted without the lock.
ContextInfo* leaveContext(GLXContext ctx) {
    ContextInfo* record = kor::gl::findContext(ctx);
    if (record == nullptr) {
        KOR_LOG_AT("KORGL", kor::LogWarning, "WARNING", setCurrentFunction, false,
                   "context %x not found in the map.", handleText(ctx));
        return nullptr;
    }
    if (record->destroyed) {
        KOR_LOG_AT("KORGL", kor::LogDebug, "DEBUG", setCurrentFunction, false,
                   "context %x removed from the map.", handleText(ctx));
        kor::gl::getContextMap().remove(ctx);
        return record;
    }
    record->current = false;
    return nullptr;
}

/// True when the thread has another window current than drawable.
bool leavesWindow(const TSD& tsd, GLXDrawable drawable) {
    return tsd.currentDrawable != nullptr && tsd.currentDrawable->appDrawable != drawable &&
           tsd.currentDrawable->type == kor::gl::WindowDrawable;
}

bool leavesWindow(const TSD& tsd, const DrawableInfo* draw) {
    return tsd.currentDrawable != nullptr && tsd.currentDrawable != draw &&
           tsd.currentDrawable->type == kor::gl::WindowDrawable;
}

} // namespace

/// Notes what has become current (or, all null, that nothing is). Called after the local
/// make-current.
static void setCurrent(TSD* tsd, GLXContext ctx, DrawableInfo* draw, DrawableInfo* read) {
    std::unique_ptr<ContextInfo> left;
    {
        const Lock lock(kor::gl::getContextMutex());
        if (tsd->currentContext != nullptr)
            left.reset(leaveContext(tsd->currentContext));
        if (ctx != nullptr) {
            if (ContextInfo* record = kor::gl::findContext(ctx)) {
                record->current = true;
                record->leftBehind = false;
                if (kor::conf::settings().addGlDebugCallback && !record->debugCallbackRegistered) {
                    kor::gl::registerDebugCallback();
                    record->debugCallbackRegistered = true;
                }
            } else {
                KOR_WARNING("context %x not found in the map.", handleText(ctx));
            }
        }
    }
    left.reset();
    kor::gl::nameDrawable(tsd->currentDrawable, draw);
    if (draw != nullptr)
        draw->lastContext = ctx;
    kor::gl::nameDrawable(tsd->currentReadDrawable, read);
    if (read != nullptr && read != draw)
        read->lastContext = ctx;
    tsd->currentContext = ctx;
}

void kor::gl::leaveCurrentOf(TSD& tsd, Display* appDpy) {
    const auto belongs = [&](const DrawableInfo* record) {
        return record != nullptr && record->appDisplay == appDpy;
    };
    bool leaves = belongs(tsd.currentDrawable) || belongs(tsd.currentReadDrawable);
    LocalDisplay local;
    if (tsd.currentContext != nullptr) {
        const Lock lock(getContextMutex());
        if (const ContextInfo* record = findContext(tsd.currentContext)) {
            leaves = leaves || record->display == appDpy;
            local = record->local;
        }
    }
    if (!leaves)
        return;
    if (local)
        callLocal(system_glXMakeCurrent, local.get(), GLXDrawable{None}, GLXContext{nullptr});
    setCurrent(&tsd, nullptr, nullptr, nullptr);
}

Bool kor_glXMakeCurrent(Display* dpy, GLXDrawable drawable, GLXContext ctx) try {
    KOR_DEBUG("drawable: %lx, context: %x", drawable, handleText(ctx));
    const kor::Undisturbed undisturbed; // until what is current is noted, too
    TSD* tsd = getTSD();
    if (tsd == nullptr)
        return False;
    if (leavesWindow(*tsd, drawable)) {
        KOR_DEBUG("flushing old context");
        finishOrFlush(system_glFlush, tsd);
    }
    if (!_setupAppDisplay(dpy, tsd))
        return False;

    if (ctx == nullptr && drawable == None) {
        if (tsd->currentContext == nullptr) {
            KOR_DEBUG("no current context, skipping...");
            return True;
        }
        const LocalDisplay local = pinLocalDisplay(tsd);
        if (!local) {
            KOR_DEBUG("no local display");
            return False;
        }
        const Bool result =
            callLocal(system_glXMakeCurrent, local.get(), GLXDrawable{None}, GLXContext{nullptr});
        setCurrent(tsd, nullptr, nullptr, nullptr);
        return result;
    }
    if (ctx == nullptr || drawable == None) {
        KOR_INFO("bad parameter combination passed, skipping...");
        return False;
    }

    const LocalDisplay local = pinLocalDisplay(tsd);
    if (!local) {
        KOR_DEBUG("no local display");
        return False;
    }
    const DrawableRef draw = getDrawableInfo(dpy, drawable, getFBConfig(ctx), tsd);
    if (!draw) {
        KOR_DEBUG("failed for no drawable.");
        return False;
    }
    if (leavesWindow(*tsd, draw.get())) {
        KOR_DEBUG("flushing old drawable output");
        finishOrFlush(system_glFlush, tsd);
    }
    Bool result = False;
    {
        const Lock lock(getLocalDisplayMutex());
        result = system_glXMakeCurrent(local.get(), draw->localDrawable, ctx);
    }
    if (!result) {
        KOR_DEBUG("failed on local make current.");
        return False;
    }
    setCurrent(tsd, ctx, draw.get(), draw.get());
    return result;
}
KOR_OTHERWISE(False)

Bool kor_glXMakeContextCurrent(Display* dpy, GLXDrawable draw, GLXDrawable read,
                               GLXContext ctx) try {
    KOR_DEBUG("drawable: %lx, read drawable %lx, context: %x", draw, read, handleText(ctx));
    const kor::Undisturbed undisturbed; // as above
    TSD* tsd = getTSD();
    if (tsd == nullptr || !_setupAppDisplay(dpy, tsd))
        return False;
    if (leavesWindow(*tsd, draw)) {
        KOR_DEBUG("flushing old context");
        finishOrFlush(system_glFlush, tsd);
    }

    if (ctx == nullptr && draw == None && read == None) {
        if (tsd->currentContext == nullptr) {
            KOR_DEBUG("no current context, skipping...");
            return True;
        }
        const LocalDisplay local = pinLocalDisplay(tsd);
        if (!local) {
            KOR_DEBUG("no local display");
            return False;
        }
        const Bool result = callLocal(system_glXMakeContextCurrent, local.get(), GLXDrawable{None},
                                      GLXDrawable{None}, GLXContext{nullptr});
        setCurrent(tsd, nullptr, nullptr, nullptr);
        return result;
    }
    if (ctx == nullptr || draw == None) {
        KOR_INFO("bad parameter combination passed, skipping...");
        return False;
    }

    const LocalDisplay local = pinLocalDisplay(tsd);
    if (!local) {
        KOR_DEBUG("no local display");
        return False;
    }
    const GLXFBConfig fbconfig = getFBConfig(ctx);
    const DrawableRef drawRecord = getDrawableInfo(dpy, draw, fbconfig, tsd);
    if (!drawRecord)
        return False;
    DrawableRef readRecord;
    if (read != None) {
        readRecord = getDrawableInfo(dpy, read, fbconfig, tsd);
        if (!readRecord)
            return False;
    }
    if (leavesWindow(*tsd, drawRecord.get()))
        finishOrFlush(system_glFlush, tsd);
    Bool result = False;
    {
        const Lock lock(getLocalDisplayMutex());
        result = system_glXMakeContextCurrent(
            local.get(), drawRecord->localDrawable,
            readRecord ? readRecord->localDrawable.load() : GLXDrawable{None}, ctx);
    }
    if (!result)
        return False;
    setCurrent(tsd, ctx, drawRecord.get(), readRecord.get());
    return result;
}
KOR_OTHERWISE(False)

GLXContext kor_glXGetCurrentContext() try {
    KOR_DEBUG("START");
    const TSD* tsd = getTSD();
    return tsd != nullptr ? tsd->currentContext : nullptr;
}
KOR_OTHERWISE(nullptr)

GLXDrawable kor_glXGetCurrentDrawable() try {
    KOR_DEBUG("START");
    const TSD* tsd = getTSD();
    return tsd != nullptr && tsd->currentDrawable != nullptr ? tsd->currentDrawable->appDrawable
                                                             : GLXDrawable{None};
}
KOR_OTHERWISE(None)

GLXDrawable kor_glXGetCurrentReadDrawable() try {
    KOR_DEBUG("START");
    const TSD* tsd = getTSD();
    return tsd != nullptr && tsd->currentReadDrawable != nullptr
               ? tsd->currentReadDrawable->appDrawable
               : GLXDrawable{None};
}
KOR_OTHERWISE(None)

Display* kor_glXGetCurrentDisplay() try {
    KOR_DEBUG("START");
    const TSD* tsd = getTSD();
    return tsd != nullptr && tsd->currentContext != nullptr ? tsd->appDisplay.load() : nullptr;
}
KOR_OTHERWISE(nullptr)

#include "context/context_map.h"
#include "context/deleted_drawables.h"

#include "core/entry_points.h"
#include "display/local_call.h"
#include "support/failures.h"
#include "support/handle_text.h"
#include "support/log.h"

#include <memory>

using kor::Lock;
using kor::gl::callLocal;
using kor::gl::ContextInfo;
using kor::gl::LocalDisplay;
using kor::gl::pinLocalDisplay;

void kor_glXDestroyContext(Display* dpy, GLXContext ctx) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return;
    const LocalDisplay local = pinLocalDisplay(nullptr);
    if (!local) {
        KOR_DEBUG("no local display");
        return;
    }
    std::unique_ptr<ContextInfo> removed; // deleted outside the lock
    {
        const Lock lock(kor::gl::getContextMutex());
        ContextInfo* record = kor::gl::findContext(ctx);
        if (record == nullptr) {
            KOR_WARNING("context %x not found in the map.", handleText(ctx));
        } else if (record->current) {
            KOR_DEBUG("context %x is current to a thread, mark as destroyed without removing from "
                      "the map.",
                      handleText(ctx));
            record->destroyed = true;
        } else {
            KOR_DEBUG("context %x removed from the map.", handleText(ctx));
            kor::gl::getContextMap().remove(ctx);
            removed.reset(record);
        }
    }
    removed.reset();
    clearDeletedDrawables();
    callLocal(system_glXDestroyContext, local.get(), ctx);
}
KOR_OTHERWISE()

void kor_glXCopyContext(Display* dpy, GLXContext src, GLXContext dst, unsigned long mask) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return;
    const LocalDisplay local = pinLocalDisplay(nullptr);
    if (!local) {
        KOR_DEBUG("no local display");
        return;
    }
    callLocal(system_glXCopyContext, local.get(), src, dst, mask);
    // Whatever the mask holds: of the state that is tracked, only the draw buffer is copied.
    const Lock lock(kor::gl::getContextMutex());
    const ContextInfo* source = kor::gl::findContext(src);
    ContextInfo* destination = kor::gl::findContext(dst);
    if (source != nullptr && destination != nullptr)
        destination->drawBuffer = source->drawBuffer;
}
KOR_OTHERWISE()

int kor_glXQueryContext(Display* dpy, GLXContext ctx, int attribute, int* value) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return -1; // no GLX error code: kept on purpose
    const LocalDisplay local = pinLocalDisplay(nullptr);
    if (!local) {
        KOR_DEBUG("no local display");
        return -1;
    }
    return callLocal(system_glXQueryContext, local.get(), ctx, attribute, value);
}
KOR_OTHERWISE(-1)

Bool kor_glXIsDirect(Display* dpy, GLXContext ctx) try {
    KOR_DEBUG("START");
    if (!_setupAppDisplay(dpy, nullptr))
        return False;
    const LocalDisplay local = pinLocalDisplay(nullptr);
    if (!local) {
        KOR_DEBUG("no local display");
        return False;
    }
    if (ctx == nullptr)
        return False;
    return callLocal(system_glXIsDirect, local.get(), ctx);
}
KOR_OTHERWISE(False)

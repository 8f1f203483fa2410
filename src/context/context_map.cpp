#include "context/context_map.h"

#include "display/displays.h"
#include "display/users.h"
#include "support/forked_child.h"
#include "support/handle_text.h"
#include "support/log.h"

#include <memory>
#include <new>
#include <utility>

namespace kor::gl {

namespace {

/// A table that has got no buckets stays empty for good. There is none then, and the next caller
/// makes another.
struct WholeContextMap : ContextMap {
    WholeContextMap() {
        if (findOrInsert(nullptr) == nullptr)
            throw std::bad_alloc();
        remove(nullptr);
    }
};
PerProcess<WholeContextMap> contextMap;
PerProcess<Mutex> contextMutex;

} // namespace

ContextInfo::ContextInfo(Display* display, GLXContext context, LocalVisualInfo* visualInfo,
                         GLXFBConfig fbconfig, LocalDisplay local)
    : display(display), context(context), visualInfo(visualInfo), fbconfig(fbconfig),
      drawBuffer(visualInfo != nullptr && visualInfo->doubleBuffered ? GL_BACK : GL_FRONT),
      local(std::move(local)) {}

ContextInfo::~ContextInfo() {
    local = LocalDisplay();
    _unsetLocalDisplay(display);
}

ContextMap& getContextMap() {
    return *contextMap;
}

Mutex& getContextMutex() {
    return *contextMutex;
}

ContextInfo* findContext(GLXContext ctx) {
    ContextInfo** record = getContextMap().find(ctx);
    return record != nullptr ? *record : nullptr;
}

bool anyContextUses(Display* appDpy) {
    const Lock lock(getContextMutex());
    bool found = false;
    getContextMap().any([&](GLXContext, const ContextInfo* record) {
        found = found || record->display == appDpy;
        return false; // every record is looked at
    });
    return found;
}

} // namespace kor::gl

void addToContextMap(Display* dpy, GLXContext ctx, kor::gl::LocalVisualInfo* lvi,
                     GLXFBConfig fbconfig, const kor::gl::LocalDisplay& local) {
    // Deleted outside the lock, where it has no place.
    auto record = std::make_unique<kor::gl::ContextInfo>(dpy, ctx, lvi, fbconfig, local);
    {
        const kor::Lock lock(kor::gl::getContextMutex());
        kor::gl::ContextInfo** slot = kor::gl::getContextMap().findOrInsert(ctx);
        if (slot == nullptr)
            throw std::bad_alloc();
        *slot = record.release();
    }
    KOR_DEBUG("added context %x to the map.", handleText(ctx));
}

GLXFBConfig getFBConfig(GLXContext ctx) {
    const kor::Lock lock(kor::gl::getContextMutex());
    if (const kor::gl::ContextInfo* record = kor::gl::findContext(ctx))
        return record->fbconfig;
    KOR_ERROR("context not found.");
    return nullptr;
}

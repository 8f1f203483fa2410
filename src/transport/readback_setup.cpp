#include "core/system_gl.h"
#include "display/displays.h"
#include "drawable/drawable_info.h"
#include "support/failures.h"
#include "support/log.h"
#include "transport/readback_context.h"

namespace kor::gl {

void DrawableInfo::initDummyReadbackPbuffer() {
    const LocalDisplay local = localDisplay();
    if (!local)
        return;
    const int attributes[] = {
        GLX_PBUFFER_WIDTH, 10, GLX_PBUFFER_HEIGHT, 10, GLX_PRESERVED_CONTENTS, True, None};
    const Lock lock(getLocalDisplayMutex());
    livesOn(local);
    dummyPbuffer = system_glXCreatePbuffer(local.get(), fbconfig, attributes);
}

bool DrawableInfo::setupReadbackContexts() {
    KOR_DEBUG("START");
    const TSD* tsd = getTSD();
    const LocalDisplay pinned = localDisplay();
    Display* const local = pinned.get();
    if (tsd == nullptr || local == nullptr)
        return false;
    const Lock lock(getLocalDisplayMutex());
    if (released())
        return false;
    const auto create = [&] {
        return system_glXCreateNewContext(local, fbconfig, GLX_RGBA_TYPE, nullptr, True);
    };
    bool isNew = false;
    if (readContext == nullptr) {
        readContext = create();
        if (readContext == nullptr) {
            KOR_WARNING("Failed to create GLX read context");
            return false;
        }
        isNew = true;
    }
    if (!system_glXMakeCurrent(local, localDrawable, readContext)) {
        KOR_INFO("Failed to make GLX context current to the local drawable");
        system_glXMakeCurrent(local, None, nullptr);
        system_glXDestroyContext(local, readContext);
        readContext = create();
        if (readContext == nullptr) {
            KOR_WARNING("Failed to recreate GLX read context");
            return false;
        }
        if (!system_glXMakeCurrent(local, localDrawable, readContext)) {
            KOR_WARNING("Failed to make recreated GLX context current to the local drawable");
            return false;
        }
        isNew = true;
    }
    if (!isNew)
        return true;

    system_glPixelStorei(GL_PACK_ALIGNMENT, 1);
    system_glDisable(GL_DEPTH_TEST);
    system_glDisable(GL_DITHER);
    system_glReadBuffer(GL_FRONT);
    system_glViewport(0, 0, 2, 2);

    // The next frame begins anew.
    const OnFailure undo([&] {
        system_glXMakeCurrent(local, None, nullptr);
        system_glXDestroyContext(local, readContext);
        readContext = nullptr;
    });
    auto* context = new ReadbackContext;
    context->ref();
    context->countIn(statistics);
    if (!context->setSharedContext(pinned, fbconfig, readContext, dummyPbuffer))
        KOR_WARNING("Failed to set readback context");
    // Published complete. After a recreation the one before is overwritten and leaks: the copyback
    // thread may be using it.
    readbackContext.store(context, std::memory_order_release);
    return true;
}

} // namespace kor::gl

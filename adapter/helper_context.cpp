#include "helper_context.h"

#include "driver.h"
#include "driver_trial.h"
#include "pbuffer_put_error.h"
#include "process_end.h"

#include <array>

namespace kor::adapter {

HelperContext::HelperContext(Display* display, GLXFBConfig fbconfig)
    : display_(display), fbconfig_(fbconfig) {
    takeIdle();
    if (helper_.context)
        return;
    if (!fbconfig_)
        fbconfig_ = choosePbufferConfig(display);
    if (fbconfig_)
        helper_.context =
            driver.glXCreateNewContext(display, fbconfig_, renderType(), nullptr, True);
}

void HelperContext::takeIdle() {
    const std::lock_guard lock(tablesMutex());
    LocalDisplay* local = findLocalDisplay(display_);
    if (!local)
        return;
    for (auto& [config, idle] : local->idleHelpers) {
        if (idle.empty() || (fbconfig_ && config != fbconfig_))
            continue;
        fbconfig_ = config;
        helper_ = idle.back();
        idle.pop_back();
        return;
    }
}

HelperContext::~HelperContext() {
    if (!helper_.context)
        return;
    {
        const std::lock_guard lock(tablesMutex());
        if (LocalDisplay* local = findLocalDisplay(display_)) {
            local->idleHelpers[fbconfig_].push_back(helper_);
            return;
        }
    }
    driver.glXDestroyContext(display_, helper_.context);
    if (helper_.pbuffer != None)
        driver.glXDestroyPbuffer(display_, helper_.pbuffer);
}

GLXPbuffer HelperContext::pbuffer() {
    if (helper_.pbuffer == None && helper_.context) {
        const std::array<int, 5> size{GLX_PBUFFER_WIDTH, 1, GLX_PBUFFER_HEIGHT, 1, None};
        helper_.pbuffer = driver.glXCreatePbuffer(display_, fbconfig_, size.data());
        addPbuffer(display_, helper_.pbuffer);
    }
    return helper_.pbuffer;
}

int HelperContext::renderType() const {
    int types = 0;
    driver.glXGetFBConfigAttrib(display_, fbconfig_, GLX_RENDER_TYPE, &types);
    if (types & GLX_RGBA_BIT)
        return GLX_RGBA_TYPE;
    if (types & GLX_RGBA_FLOAT_BIT_ARB)
        return GLX_RGBA_FLOAT_TYPE_ARB;
    if (types & GLX_RGBA_UNSIGNED_FLOAT_BIT_EXT)
        return GLX_RGBA_UNSIGNED_FLOAT_TYPE_EXT;
    return GLX_RGBA_TYPE;
}

ContextForDestroying::ContextForDestroying(Display* display) {
    if (!driver.canLendContext() || driver.glXGetCurrentContext() || processEnds())
        return;
    {
        const std::lock_guard lock(tablesMutex());
        if (!findLocalDisplay(display))
            return;
    }
    helper_.emplace(display, nullptr);
    if (!helper_->get() || helper_->pbuffer() == None)
        return;
    current_.emplace();
    current_->change(display, helper_->pbuffer(), helper_->get());
}

ContextForDestroying::~ContextForDestroying() = default;

bool clearsNewPbuffers(Display* display) {
    if (!driver.canLendContext() || !driver.glClear || !driver.glDrawBuffer || !driver.glFinish ||
        processEnds())
        return false;
    const std::lock_guard lock(tablesMutex());
    return findLocalDisplay(display) != nullptr;
}

void clearAllBuffers(Display* display, GLXFBConfig fbconfig) {
    int auxiliary = 0;
    driver.glXGetFBConfigAttrib(display, fbconfig, GLX_AUX_BUFFERS, &auxiliary);
    for (int i = 0; i < auxiliary && i < 4; i++) { // GL names four
        driver.glDrawBuffer(static_cast<GLenum>(GL_AUX0 + i));
        driver.glClear(GL_COLOR_BUFFER_BIT);
    }
    driver.glDrawBuffer(GL_FRONT_AND_BACK);
    driver.glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT |
                   GL_ACCUM_BUFFER_BIT);
    // Other contexts may rely on a finished clear only, not on a flushed one.
    driver.glFinish();
}

} // namespace kor::adapter

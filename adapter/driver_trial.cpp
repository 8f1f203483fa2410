#include "driver_trial.h"

#include "current_state.h"
#include "driver.h"

#include <X11/Xlibint.h>
#include <X11/Xproto.h>
#undef min
#undef max

#include <X11/Xutil.h>

#include <array>
#include <memory>

namespace kor::adapter {
namespace {

/// Swallows the errors of the connection for a scope, and counts the BadMatch among them.
class ErrorTrap {
  public:
    explicit ErrorTrap(Display* display) : display_(display) {
        handler_.handler = swallow;
        handler_.data = reinterpret_cast<XPointer>(this);
        LockDisplay(display);
        handler_.next = display->async_handlers;
        display->async_handlers = &handler_;
        UnlockDisplay(display);
    }
    ~ErrorTrap() {
        XSync(display_, False);
        LockDisplay(display_);
        DeqAsyncHandler(display_, &handler_);
        UnlockDisplay(display_);
    }
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;

    /// True when anything was answered with BadMatch.
    bool sawBadMatch() const {
        XSync(display_, False);
        return badMatches_ > 0;
    }

  private:
    static Bool swallow(Display* /*display*/, xReply* reply, char* /*buffer*/, int /*length*/,
                        XPointer data) {
        if (reply->generic.type != X_Error)
            return False;
        if (reply->error.errorCode == BadMatch)
            reinterpret_cast<ErrorTrap*>(data)->badMatches_++;
        return True;
    }

    Display* display_;
    _XAsyncHandler handler_{};
    int badMatches_ = 0;
};

struct XFreeDeleter {
    void operator()(void* data) const { XFree(data); }
};

/// The pbuffer and the two contexts of one trial.
class Trial {
  public:
    Trial(Display* display, GLXFBConfig config) : display_(display) {
        const std::array<int, 5> size{GLX_PBUFFER_WIDTH, 4, GLX_PBUFFER_HEIGHT, 4, None};
        pbuffer_ = driver.glXCreatePbuffer(display, config, size.data());
        writer_ = driver.glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
        reader_ = driver.glXCreateNewContext(display, config, GLX_RGBA_TYPE, nullptr, True);
    }
    ~Trial() {
        if (reader_)
            driver.glXDestroyContext(display_, reader_);
        if (writer_)
            driver.glXDestroyContext(display_, writer_);
        if (pbuffer_)
            driver.glXDestroyPbuffer(display_, pbuffer_);
    }
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;

    /// Red is drawn and swapped, green drawn after it: the front buffer must be red.
    bool losesFront() const {
        CurrentState application;
        if (!pbuffer_ || !writer_ || !reader_ || !application.change(display_, pbuffer_, writer_))
            return false;
        driver.glClearColor(1, 0, 0, 1);
        driver.glClear(GL_COLOR_BUFFER_BIT);
        driver.glXSwapBuffers(display_, pbuffer_);
        driver.glClearColor(0, 1, 0, 1);
        driver.glClear(GL_COLOR_BUFFER_BIT);
        driver.glFinish();
        if (!application.change(display_, pbuffer_, reader_))
            return false;
        std::array<unsigned char, 4> pixel{};
        driver.glReadBuffer(GL_FRONT);
        driver.glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
        return pixel[0] < 128 || pixel[1] >= 128;
    }

  private:
    Display* display_;
    GLXPbuffer pbuffer_ = None;
    GLXContext writer_ = nullptr;
    GLXContext reader_ = nullptr;
};

} // namespace

GLXFBConfig choosePbufferConfig(Display* display) {
    const std::array<int, 15> wanted{GLX_DRAWABLE_TYPE,
                                     GLX_PBUFFER_BIT,
                                     GLX_RENDER_TYPE,
                                     GLX_RGBA_BIT,
                                     GLX_DOUBLEBUFFER,
                                     True,
                                     GLX_RED_SIZE,
                                     8,
                                     GLX_GREEN_SIZE,
                                     8,
                                     GLX_BLUE_SIZE,
                                     8,
                                     None};
    int count = 0;
    const std::unique_ptr<GLXFBConfig[], XFreeDeleter> configs(
        driver.glXChooseFBConfig(display, DefaultScreen(display), wanted.data(), &count));
    if (!configs || count == 0)
        return nullptr;
    for (int i = 0; i < count; i++) {
        int alpha = 0;
        driver.glXGetFBConfigAttrib(display, configs[i], GLX_ALPHA_SIZE, &alpha);
        if (alpha == 0)
            continue;
        const std::unique_ptr<XVisualInfo, XFreeDeleter> visual(
            driver.glXGetVisualFromFBConfig(display, configs[i]));
        if (visual && visual->depth == 24)
            return configs[i];
    }
    return configs[0];
}

DriverHabits tryDriver(Display* display) {
    DriverHabits habits;
    if (!driver.canMendFront())
        return habits;
    const ErrorTrap trap(display);
    if (!driver.glXQueryExtension(display, nullptr, nullptr))
        return habits;
    GLXFBConfig config = choosePbufferConfig(display);
    if (!config)
        return habits;
    {
        const Trial trial(display, config);
        habits.forgetsFront = trial.losesFront();
    }
    habits.putErrors = trap.sawBadMatch();
    return habits;
}

} // namespace kor::adapter

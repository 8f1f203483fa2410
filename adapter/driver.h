#ifndef KOR_ADAPTER_DRIVER_H
#define KOR_ADAPTER_DRIVER_H

#include "core/gl_headers.h"

namespace kor::adapter {

/// Where the driver's functions come from. find gives null for what the driver lacks; it may be
/// called on any thread and always gives the same answer.
class FunctionSource {
  public:
    virtual ~FunctionSource() = default;
    virtual void* find(const char* name) const = 0;
};

/// The system's GL library, reached through its dlopen handle. Its vendor-neutral dispatch chooses
/// the server's own vendor by the display of each call, so one source serves every display.
class SystemLibrary : public FunctionSource {
  public:
    explicit SystemLibrary(void* handle) : handle_(handle) {}
    void* find(const char* name) const override;
    /// True when the handle leads to a front library of ours or to the adapter: its calls would
    /// come back to us for ever.
    bool isOurs() const;
    void* handle() const { return handle_; }

  private:
    void* handle_;
};

// The driver's functions that the adapter itself calls: all of them are null until useSource, and
// afterwards where the driver lacks one.
#define KOR_DRIVER_FUNCTIONS(X)                                                                    \
    X(glXSwapBuffers)                                                                              \
    X(glXMakeCurrent)                                                                              \
    X(glXMakeContextCurrent)                                                                       \
    X(glXCreatePbuffer)                                                                            \
    X(glXDestroyPbuffer)                                                                           \
    X(glXCreateGLXPbufferSGIX)                                                                     \
    X(glXDestroyGLXPbufferSGIX)                                                                    \
    X(glXCreatePixmap)                                                                             \
    X(glXCreateGLXPixmapWithConfigSGIX)                                                            \
    X(glXDestroyPixmap)                                                                            \
    X(glXDestroyGLXPixmap)                                                                         \
    X(glXCreateNewContext)                                                                         \
    X(glXCreateContextAttribsARB)                                                                  \
    X(glXCreateContextWithConfigSGIX)                                                              \
    X(glXDestroyContext)                                                                           \
    X(glXGetCurrentContext)                                                                        \
    X(glXGetCurrentDisplay)                                                                        \
    X(glXGetCurrentDrawable)                                                                       \
    X(glXGetCurrentReadDrawable)                                                                   \
    X(glXQueryExtension)                                                                           \
    X(glXQueryVersion)                                                                             \
    X(glXQueryExtensionsString)                                                                    \
    X(glXQueryServerString)                                                                        \
    X(glXGetClientString)                                                                          \
    X(glXChooseFBConfig)                                                                           \
    X(glXChooseFBConfigSGIX)                                                                       \
    X(glXGetFBConfigs)                                                                             \
    X(glXGetFBConfigAttrib)                                                                        \
    X(glXGetVisualFromFBConfig)                                                                    \
    X(glXGetFBConfigAttribSGIX)                                                                    \
    X(glXGetVisualFromFBConfigSGIX)                                                                \
    X(glXQueryDrawable)                                                                            \
    X(glBeginQuery)                                                                                \
    X(glBlitFramebuffer)                                                                           \
    X(glClear)                                                                                     \
    X(glClearColor)                                                                                \
    X(glDrawBuffer)                                                                                \
    X(glEndQuery)                                                                                  \
    X(glFinish)                                                                                    \
    X(glFlush)                                                                                     \
    X(glGetIntegerv)                                                                               \
    X(glGetQueryObjectiv)                                                                          \
    X(glGetQueryiv)                                                                                \
    X(glGetString)                                                                                 \
    X(glIsQuery)                                                                                   \
    X(glReadBuffer)                                                                                \
    X(glReadPixels)

struct Driver {
#define KOR_DRIVER_POINTER(name) decltype(&::name) name = nullptr;
    KOR_DRIVER_FUNCTIONS(KOR_DRIVER_POINTER)
#undef KOR_DRIVER_POINTER
    /// False where a function is missing without which no front buffer can be tried or mended.
    bool canMendFront() const;
    /// False where one is missing without which no context of ours can be made current meanwhile.
    bool canLendContext() const;
};

/// Written once, by useSource, before any exported name is looked up; read without a lock.
extern Driver driver;

/// Fills the driver's functions from a source, which must live as long as the process.
void useSource(const FunctionSource& source);

/// The source in use, null before useSource.
const FunctionSource* source();

} // namespace kor::adapter

#endif

#ifndef KOR_ADAPTER_VENDOR_LIBRARY_H
#define KOR_ADAPTER_VENDOR_LIBRARY_H

#include "core/gl_headers.h"

#include <string>

struct __GLXapiExportsRec;
struct __GLXvendorInfoRec;

namespace kor::adapter {

/// What the vendor-neutral dispatch library gave to the front: the drivers' libraries are given the
/// same.
struct DispatchLibrary {
    const __GLXapiExportsRec* exports = nullptr;
    __GLXvendorInfoRec* vendor = nullptr;
};

/// A driver's own library, libGLX_NAME.so.0, reached without the vendor-neutral dispatch between.
/// The dispatch library may load the same one for other displays of the process, before us or after
/// us, and some (Mesa 22.3) hand their functions out once per process only. Those are loaded a
/// second time, from a copy in memory, so that each of us has one of its own. Nothing is unloaded.
class VendorLibrary {
  public:
    /// The library of that name; null when there is none, or none that works. A name with a slash
    /// in it, which would be a path, is none. Always the same object for a name. One thread at a
    /// time.
    static const VendorLibrary* open(const std::string& name, const DispatchLibrary& dispatch);

    /// One of its GLX or GL functions, null for what it lacks. Any thread.
    void* function(const char* name) const;
    /// Whether it can serve that screen. Costs as much as the first GLX call there.
    bool supports(Display* display, int screen) const;
    const std::string& name() const { return name_; }

    // Those that are asked about the application's displays as well as local ones.
    decltype(&::glXChooseFBConfig) chooseFBConfig = nullptr;
    decltype(&::glXGetConfig) getConfig = nullptr;
    decltype(&::glXGetFBConfigAttrib) getFBConfigAttrib = nullptr;
    decltype(&::glXQueryDrawable) queryDrawable = nullptr;
    decltype(&::glXQueryExtensionsString) queryExtensionsString = nullptr;

  private:
    explicit VendorLibrary(std::string name) : name_(std::move(name)) {}
    bool load(const DispatchLibrary& dispatch);
    bool take(void* handle, const DispatchLibrary& dispatch);

    std::string name_;
    void* (*getProcAddress_)(const GLubyte*) = nullptr;
    Bool (*isScreenSupported_)(Display*, int) = nullptr;
};

} // namespace kor::adapter

#endif

#ifndef KOR_FRONT_VENDOR_VENDOR_H
#define KOR_FRONT_VENDOR_VENDOR_H

/// The vendor front, libGLX_kor.so.0: what the vendor-neutral dispatch library (libGLX.so.0) loads
/// for the screens of an application display, whose server names us. The application uses the
/// system's own libGL, libGLX and libOpenGL.
///
/// vendor.cpp answers the dispatch library: GLX functions that libGL_KOR.so takes over are its
/// entry points (entry_points.h), every other GL function is the local driver's own, so that the
/// dispatch library jumps to it as it would without us, and no other GLX function is there. The
/// first of them that is called starts the front (start.cpp): libGL_KOR.so and the adapter are
/// opened, which reaches the drivers' vendor libraries by itself, and kor_init is called.
/// extension_dispatch.h is about GLX functions that more than one vendor may have.
namespace kor::front {

/// What the dispatch library gave us, as the drivers' libraries are given it.
struct DispatchHandles {
    const void* exports;
    void* vendor;
};
DispatchHandles dispatchHandles();

/// Keeps the dispatch library mapped for good: drivers go on calling it.
void keepDispatchLibrary();

} // namespace kor::front

#endif

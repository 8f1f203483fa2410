#ifndef KOR_ADAPTER_ADAPTER_H
#define KOR_ADAPTER_ADAPTER_H

#include <X11/Xlib.h>

/// libkor-sysgl.so stands between libGL_KOR.so and the system's GL library. Its dlopen handle is
/// given to kor_init in place of the system's: it exports the functions that the library calls
/// (src/core/system_functions.def), each as an indirect function that dlsym resolves to
///   - the driver's own function, where the drivers are what the library expects,
///   - a function of ours that calls the driver's, where some driver is not,
///   - null, where the driver lacks it.
/// What is made right, one file for each cause:
///   front_buffer.h             a driver that forgets a pbuffer's front buffer at a swap
///   pbuffer_put_error.h        a driver whose pbuffers answer with BadMatch
///   release_without_context.h  a make-current of a drawable without a context
///   id_range.h                 ids of two servers that are alike
///   query_state.h              questions that leave an error in the application's context
///   no_display.h               questions without a display
///   driver.h                   a system library that is our own front
///   late_destroy.h             contexts that keep the buffers of drawables that are gone, and
///                              pbuffers that are ended and made anew for nothing
///   helper_context.h           a destroy with no context current; new pbuffers that are not clear
///   process_end.h              a driver whose destructors ran before the last calls
/// bound_objects.h keeps what is current alive meanwhile; local_displays.h holds the tables.

/// The name of a symbol that every front library of ours defines, so that none of them is ever
/// taken for the system's library.
#define KOR_FRONT_MARKER "kor_front_marker"

extern "C" {

/// Tells where the driver's functions come from: systemHandle is the dlopen handle of the system's
/// GL library, opened by its full path, and stays open. Called once, on any thread, before any of
/// the exported names is looked up. False, with nothing changed, when the handle is null, when it
/// lacks glXSwapBuffers, when it leads to a front library of ours or to this one, or when another
/// handle was given before.
__attribute__((visibility("default"))) bool kor_adapter_init(void* systemHandle);

/// What the vendor front knows when it starts. Texts are copied.
struct KorAdapterVendors {
    const void* exports;      // the vendor-neutral dispatch library's __GLXapiExports, for good
    void* vendor;             // its handle of our vendor library
    const char* localDisplay; // the local display's name
    const char* localVendor;  // the local display's vendor; null: the one that its server names
    const char* appVendor;    // the application display's; null: the next that its server names
};

/// In place of kor_adapter_init: the driver's functions come from the drivers' vendor libraries,
/// and never through the vendor-neutral dispatch, which would lead back to the front. A function
/// that the driver lacks is there all the same and does nothing. False, with nothing changed, when
/// a source was given before; where the local display has no vendor that can be had, it is true and
/// no function does anything.
__attribute__((visibility("default"))) bool
kor_adapter_init_vendors(const struct KorAdapterVendors* vendors);

/// The local display's vendor's own function of that name; null when it lacks it, and after
/// kor_adapter_init. Any thread.
__attribute__((visibility("default"))) void* kor_adapter_driver_function(const char* name);

/// Prepares a connection to the local display: moves its ids out of the range of the
/// application's and tries what its driver needs. Called on the thread that opened the connection,
/// before anything else is done with it and before another thread knows it. The calling thread's
/// current context is left as it was. Never fails visibly: where nothing can be tried, nothing is
/// changed. What it sets up ends with XCloseDisplay.
__attribute__((visibility("default"))) void kor_adapter_local_display(Display* display);
}

#endif

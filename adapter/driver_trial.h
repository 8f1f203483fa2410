#ifndef KOR_ADAPTER_DRIVER_TRIAL_H
#define KOR_ADAPTER_DRIVER_TRIAL_H

#include "core/gl_headers.h"

namespace kor::adapter {

/// What a driver was seen to do.
struct DriverHabits {
    bool forgetsFront = false; // see front_buffer.h
    bool putErrors = false;    // see pbuffer_put_error.h
};

/// Tries the driver of a connection once: draws into a small pbuffer, swaps, draws again, and reads
/// the front buffer in a second context. Called while the connection is the calling thread's own;
/// what the thread has current is put back, and no error of the trial reaches an error handler. A
/// driver that cannot be tried has no bad habits.
DriverHabits tryDriver(Display* display);

/// A double-buffered config for pbuffers, null where there is none; one of depth 24 with alpha
/// where there is one, since that is where drivers err.
GLXFBConfig choosePbufferConfig(Display* display);

} // namespace kor::adapter

#endif

#ifndef KOR_ADAPTER_LATE_DESTROY_H
#define KOR_ADAPTER_LATE_DESTROY_H

#include "local_displays.h"

#include <atomic>

namespace kor::adapter {

/// A drawable that the library destroys is left for a while before the driver destroys it.
///
/// First cause: Mesa's contexts keep the buffers of every drawable that they were current on until
/// they find, at a make-current, that it no longer exists; and they know a drawable by an address,
/// which the next drawable that is made likely gets (22.3, st_manager.c). Destroyed and made anew
/// in a row, as a window's pbuffer is when the window changes its size, all the old buffers stay.
/// So a drawable ends when its thread has made a context current elsewhere, that is, after the next
/// one was made, and a make-current comes before the one that follows.
///
/// Second cause: the library ends a window's pbuffer and makes another also when only the window's
/// visibility has changed, and what was drawn would be lost. Where the pbuffer that a thread
/// destroyed last is asked for again, in a row and with the same fbconfig and size, the thread gets
/// it back as it was.
///
/// What a thread leaves is limited: by number and pixels, and no lower than that, since one that
/// ends too early leaves its buffers with a context again. It passes to the other threads of the
/// connection after a second, unless the thread had it current, and when the thread ends; it ends
/// with the connection at the latest.

/// The entry must be gone from the table. Destroys at once on a connection that is not in the
/// tables.
void destroyLater(Display* display, GLXDrawable drawable, const DrawableEntry& entry);

/// The pbuffer that the calling thread destroyed last, living again and back in the table; None
/// when that is of another kind, or when the thread has called anything else since.
GLXPbuffer takeBack(Display* display, GLXFBConfig fbconfig, const PlainSize& size);

/// How many drawables all threads left on all connections. Without any, a make-current and a swap
/// cost this one look.
extern std::atomic<int> leftDrawables;
inline bool nothingLeft() {
    return __builtin_expect(leftDrawables.load(std::memory_order_relaxed) == 0, 1);
}

/// To be called after a make-current with a context: ends what the thread left, and what others
/// left long ago.
void destroyWhatIsLeft(Display* display);
inline void destroyLeft(Display* display) {
    if (!nothingLeft())
        destroyWhatIsLeft(display);
}

/// The library has just destroyed the drawable, which is left: the next call may ask for it again.
void beginRow(Display* display, GLXDrawable drawable);
/// To be called by whatever stands between a pbuffer's end and the next one's making.
void forgetRow();
inline void endRow() {
    if (!nothingLeft())
        forgetRow();
}

/// For the end of a connection, which is in the tables no more: ends all that was left, with the
/// helper current when the thread has nothing.
void destroyAtClose(Display* display, const std::vector<LeftDrawable>& left, const Helper& helper);

/// The size out of glXCreatePbuffer's attributes.
PlainSize plainSizeOf(const int* attributes);

} // namespace kor::adapter

#endif

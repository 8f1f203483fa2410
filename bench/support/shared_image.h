#ifndef KOR_BENCH_SUPPORT_SHARED_IMAGE_H
#define KOR_BENCH_SUPPORT_SHARED_IMAGE_H

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>

namespace kor::bench {

/// An image in memory shared with the server. Lives as long as the program.
class SharedImage {
  public:
    /// Ends the program when the server shares no memory.
    SharedImage(Display* display, const XVisualInfo& visual, int width, int height);

    char* pixels() const { return m_image->data; }
    /// Asks for the whole image to be put at the window's origin; does not flush.
    void put(Window window, GC gc);

  private:
    Display* m_display;
    XImage* m_image;
    XShmSegmentInfo m_segment{};
};

} // namespace kor::bench

#endif

#ifndef KOR_BENCH_E2E_WINDOW_INFO_H
#define KOR_BENCH_E2E_WINDOW_INFO_H

#include <X11/Xlib.h>

namespace kor::bench {

/// The bare exchange with the session's server about one window: geometry, visual, visibility.
class WindowInfo {
  public:
    /// Ends the program when the server has no such extension.
    explicit WindowInfo(Display* display);
    /// One round trip. True when the window is known.
    bool ask(Window window);

  private:
    Display* m_display;
    int m_major = 0;
};

} // namespace kor::bench

#endif

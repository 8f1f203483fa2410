#ifndef KOR_TESTS_LIBRARY_FRAMES_H
#define KOR_TESTS_LIBRARY_FRAMES_H

#include "displays.h"

#include "drawable/registry.h"

/// A context current on a window, and what its frames make the threads do.
class Frames : public Displays {
  protected:
    /// kor_init, a double-buffered window of that size and a context "ctx" current on it.
    void begin(int width, int height);

    /// Ends a frame of the window and waits until it was transferred; false when it never is.
    bool swapAndPaint();

    /// The recorded calls of this thread, as texts...
    std::vector<std::string> mine() const;
    /// ... and those of the thread that called glReadPixels last.
    std::vector<std::string> workers() const;

    /// The name of the window's pbuffer.
    std::string pbuffer() const;
    kor::gl::DrawableRef record() const { return findLocalDrawable(window); }

    GLXContext context = nullptr;
    Window window = None;
};

#endif

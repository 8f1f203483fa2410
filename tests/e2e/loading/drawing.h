// One small window with a picture in it, and whether the picture is to be seen. Nothing here is
// linked with a GL library.
#pragma once

#include "functions.h"

#include <string>

namespace kor::loading {

// A window on a display, drawn by GL. Every way in which it can fail ends the process with status 1
// and says what it was.
class Drawing {
  public:
    // Opens the display of that name (a null name: $DISPLAY) and a window on it, so many pixels
    // from its left edge: windows that cover each other do not show what was drawn.
    Drawing(const Functions& functions, const char* display, int x = 10);
    // A window on a display that stays the caller's.
    Drawing(const Functions& functions, Display* display);
    Drawing(const Drawing&) = delete;
    Drawing& operator=(const Drawing&) = delete;
    ~Drawing();

    // Makes its context current and draws four areas of different colours; frames differ.
    void draw(int frame);
    // Waits, no longer than 15 s, until the window shows what was drawn last.
    void requireShown() const;
    // Takes the context away from this thread.
    void release();

    Display* display() const { return display_; }
    GLXContext context() const { return context_; }
    void useContext(GLXContext context) { context_ = context; }
    Window window() const { return window_; }
    const XVisualInfo& visual() const { return *visual_; }

  private:
    void openWindow(int x);

    const Functions gl_;
    Display* display_;
    bool ownsDisplay_;
    XVisualInfo* visual_ = nullptr;
    Window window_ = None;
    GLXContext context_ = nullptr;
    int frame_ = 0;
};

// Draws some frames into one window of $DISPLAY and requires the last to be shown. The exit status.
int drawAndCheck(const Functions& functions, int x = 10);

[[noreturn]] void fail(const std::string& what);
inline void require(bool holds, const std::string& what) {
    if (!holds)
        fail(what);
}

} // namespace kor::loading

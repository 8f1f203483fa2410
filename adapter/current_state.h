#ifndef KOR_ADAPTER_CURRENT_STATE_H
#define KOR_ADAPTER_CURRENT_STATE_H

#include "driver.h"

namespace kor::adapter {

/// Remembers what the calling thread has current, as the driver sees it, and makes it current
/// again at the end of the scope: context, draw and read drawable, display, or nothing at all.
class CurrentState {
  public:
    CurrentState()
        : display_(driver.glXGetCurrentDisplay()), context_(driver.glXGetCurrentContext()),
          draw_(driver.glXGetCurrentDrawable()), read_(driver.glXGetCurrentReadDrawable()) {}
    CurrentState(const CurrentState&) = delete;
    CurrentState& operator=(const CurrentState&) = delete;
    ~CurrentState() {
        if (!changedOn_)
            return;
        if (context_)
            driver.glXMakeContextCurrent(display_, draw_, read_, context_);
        else
            driver.glXMakeContextCurrent(changedOn_, None, None, nullptr);
    }

    /// Makes a context of ours current on a drawable; false when the driver refuses. A refusal may
    /// have taken the old context away all the same, so that too is made good in the end.
    bool change(Display* display, GLXDrawable drawable, GLXContext context) {
        changedOn_ = display;
        return driver.glXMakeContextCurrent(display, drawable, drawable, context);
    }

    bool drawsTo(Display* display, GLXDrawable drawable) const {
        return context_ && display_ == display && draw_ == drawable;
    }

  private:
    Display* display_;
    GLXContext context_;
    GLXDrawable draw_;
    GLXDrawable read_;
    Display* changedOn_ = nullptr;
};

} // namespace kor::adapter

#endif

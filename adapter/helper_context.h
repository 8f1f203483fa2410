#ifndef KOR_ADAPTER_HELPER_CONTEXT_H
#define KOR_ADAPTER_HELPER_CONTEXT_H

#include "current_state.h"
#include "local_displays.h"

#include <optional>

namespace kor::adapter {

/// A context for one errand, taken from the idle ones of its connection and fbconfig or made anew:
/// no other thread has it meanwhile. Goes back to the idle ones, which end with the connection.
class HelperContext {
  public:
    /// Of that fbconfig, or of any when it is null. The connection must be in the tables.
    HelperContext(Display* display, GLXFBConfig fbconfig);
    ~HelperContext();
    HelperContext(const HelperContext&) = delete;
    HelperContext& operator=(const HelperContext&) = delete;

    /// Null where none could be made.
    GLXContext get() const { return helper_.context; }
    /// A small pbuffer of its own, made at the first question; None where the driver refuses.
    GLXPbuffer pbuffer();

  private:
    void takeIdle();
    int renderType() const;

    Display* display_;
    GLXFBConfig fbconfig_;
    Helper helper_;
};

/// Cause: drivers that crash when a drawable or a context is destroyed by a thread that has no
/// context current. For the scope of a call that destroys, such a thread gets a helper current;
/// then it has none again. A thread that has a context keeps it and pays for one question.
class ContextForDestroying {
  public:
    explicit ContextForDestroying(Display* display);
    ~ContextForDestroying();
    ContextForDestroying(const ContextForDestroying&) = delete;
    ContextForDestroying& operator=(const ContextForDestroying&) = delete;

  private:
    std::optional<HelperContext> helper_;
    std::optional<CurrentState> current_; // goes first: the helper is idle only when it was left
};

/// Cause: drivers that hand out memory as they find it. Makes a pbuffer and clears all its buffers,
/// so that it never shows what another drawable left there: in a helper context, once. `make` is
/// called exactly once and gives the new pbuffer; None when the driver refused.
template <typename Make> GLXPbuffer makeCleared(Display* display, GLXFBConfig fbconfig, Make make);

// Its two steps.
/// Clears every buffer of what is current in a helper context.
void clearAllBuffers(Display* display, GLXFBConfig fbconfig);
/// True where new pbuffers of the connection can and need to be cleared.
bool clearsNewPbuffers(Display* display);

template <typename Make> GLXPbuffer makeCleared(Display* display, GLXFBConfig fbconfig, Make make) {
    if (!clearsNewPbuffers(display))
        return make();
    HelperContext helper(display, fbconfig);
    CurrentState current; // gives the thread's context back before the helper goes idle
    // Being elsewhere while the new one is made frees what the helper had last (late_destroy.h).
    const bool ready = helper.get() && helper.pbuffer() != None &&
                       current.change(display, helper.pbuffer(), helper.get());
    const GLXPbuffer made = make();
    if (ready && made != None && current.change(display, made, helper.get()))
        clearAllBuffers(display, fbconfig);
    return made;
}

} // namespace kor::adapter

#endif

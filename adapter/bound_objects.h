#ifndef KOR_ADAPTER_BOUND_OBJECTS_H
#define KOR_ADAPTER_BOUND_OBJECTS_H

#include "local_displays.h"

namespace kor::adapter {

/// GLX lets an application destroy what is current: it then lives until it is current no more.
/// Mending the front buffer takes the application's context away for a moment and gives it back,
/// which must not be the moment of its death; so must the library's own readback, which takes it
/// away for one make-current, on any driver. So what is current in any thread reaches the driver's
/// destroy function only when the last thread has left it: from the start on a driver that needs
/// help, on others from the first context on that is destroyed while its thread has it current.

/// Drawables made through the adapter. `plainSize` is for pbuffers. `backing` is the pixmap of a
/// GLX pixmap: the library makes one for each and leaves it to the connection's end, so it is freed
/// with the GLX pixmap here.
void addDrawable(Display* display, GLXDrawable drawable, GLXFBConfig fbconfig,
                 DestroyDrawable destroy, const PlainSize& plainSize = {}, Pixmap backing = None);
/// Destroys later (late_destroy.h): when it is in use, after that.
void destroyDrawable(Display* display, GLXDrawable drawable, DestroyDrawable destroy);
/// The same for a context. One that the thread leaves lives on until the thread changes its context
/// once more without having come back.
void destroyContext(Display* display, GLXContext context);

/// On a display that counts no bindings: begins to, if the context is current in this thread, so
/// that destroyContext can keep it.
void keepCurrentContext(Display* display, GLXContext context);

/// Keeps a drawable alive for a scope, and gives what is known of it.
class DrawableUse {
  public:
    DrawableUse(Display* display, GLXDrawable drawable);
    ~DrawableUse();
    DrawableUse(const DrawableUse&) = delete;
    DrawableUse& operator=(const DrawableUse&) = delete;

    /// False for a drawable that was not made through the adapter on a display in the tables.
    bool known() const { return known_; }
    /// Double-buffered, on a driver that forgets front buffers.
    bool losesFront() const { return losesFront_; }
    GLXFBConfig fbconfig() const { return entry_.fbconfig; }
    /// In pixels; asks the driver once. A drawable of this kind never changes its size.
    unsigned width();
    unsigned height();

  private:
    void askSize();

    Display* display_;
    GLXDrawable drawable_;
    DrawableEntry entry_; // a copy
    bool known_ = false;
    bool losesFront_ = false;
};

/// What a thread has current on a display of the tables.
struct Binding {
    Display* display = nullptr;
    GLXDrawable draw = None;
    GLXDrawable read = None;
    GLXContext context = nullptr;
    bool operator==(const Binding&) const = default;
};

/// Once the driver is loaded: finds out how to make it forget a thread's context.
void learnMesaContext();
/// Ahead of the first make-current of the thread that forked, in the child: the driver must not
/// flush the parent's context, which takes locks that other threads of the parent may have held and
/// waits for threads that the child does not have.
void leaveParentsBinding(Display* display);

/// Around the driver's make-current: the constructor counts the new binding, finish() keeps it and
/// leaves the thread's old one, or, when the driver refused, undoes it.
class BindingChange {
  public:
    BindingChange(Display* display, GLXDrawable draw, GLXDrawable read, GLXContext context);
    void finish(bool accepted);

  private:
    Binding wanted_;
    bool changes_; // false: it is what the thread has current already
};

} // namespace kor::adapter

#endif

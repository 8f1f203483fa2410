#ifndef KOR_ADAPTER_LOCAL_DISPLAYS_H
#define KOR_ADAPTER_LOCAL_DISPLAYS_H

#include "core/gl_headers.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace kor::adapter {

/// How a drawable is given back to the driver.
using DestroyDrawable = void (*)(Display*, GLXDrawable);

/// The size of a pbuffer that was made with nothing but a size and the wish that its contents be
/// kept, in pixels; 0x0 for any other pbuffer or drawable.
struct PlainSize {
    int width = 0;
    int height = 0;
    bool operator==(const PlainSize&) const = default;
};

/// A drawable that was made through the adapter on a local display.
struct DrawableEntry {
    GLXFBConfig fbconfig = nullptr;
    DestroyDrawable destroy = nullptr;
    bool doubleBuffered = false;
    PlainSize plainSize;
    Pixmap backing = None; // of a GLX pixmap, made for it alone: goes with it
    unsigned width = 0;    // pixels; 0 until first asked for
    unsigned height = 0;
    int users = 0;       // bindings of threads, and swaps that are going on
    bool doomed = false; // destroyed by the application while in use
};

/// A context that is current in some thread.
struct ContextEntry {
    int users = 0;
    bool doomed = false;
};

/// A drawable that is destroyed for the library, and not yet for the driver (late_destroy.h).
struct LeftDrawable {
    GLXDrawable drawable = None;
    DrawableEntry entry;
    const void* thread = nullptr; // a mark of the one that destroyed it; null when that has ended
    /// From then on any thread may end it.
    std::chrono::steady_clock::time_point forAll = std::chrono::steady_clock::time_point::max();
};

/// A context of the adapter's own (helper_context.h).
struct Helper {
    GLXContext context = nullptr;
    GLXPbuffer pbuffer = None;
};

/// What is known of a connection to the local display.
struct LocalDisplay {
    pid_t owner = 0; // the process that opened it: a forked child leaves the server alone
    bool forgetsFront = false;
    bool countsBindings = false; // what threads have current is counted (bound_objects.h)
    std::unordered_map<GLXDrawable, DrawableEntry> drawables;
    std::unordered_map<GLXContext, ContextEntry> contexts;
    std::vector<LeftDrawable> left; // the oldest first
    /// Helper contexts that no thread has current.
    std::unordered_map<GLXFBConfig, std::vector<Helper>> idleHelpers;
};

/// True once a connection counts bindings. Until then a make-current and a swap cost this one test.
extern std::atomic<bool> helpNeeded;
inline bool noHelpNeeded() {
    return __builtin_expect(!helpNeeded.load(std::memory_order_relaxed), 1);
}

/// The adapter's one lock, over all tables. It guards every LocalDisplay, is held for look-ups
/// only, never while the driver or Xlib is called. A forked child has tables of its own, empty
/// ones: the parent's connections and what was made on them are none of its business.
std::mutex& tablesMutex();

/// The entry of a connection, or null. Under tablesMutex(), for as long as the pointer is used.
LocalDisplay* findLocalDisplay(Display* display);

/// Calls it for the entry of every connection. Under tablesMutex().
void forEachLocalDisplay(void (*visit)(LocalDisplay&));

/// Adds the entry of a connection. The entry ends with XCloseDisplay, its helper contexts and what
/// was left too; to be called after the first GLX call on the connection, so that GLX is still
/// there when the connection closes.
void addLocalDisplay(Display* display, bool forgetsFront);

/// From now on the connection counts bindings; sets helpNeeded.
void countBindings(Display* display);

} // namespace kor::adapter

#endif

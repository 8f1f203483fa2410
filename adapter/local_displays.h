#ifndef KOR_ADAPTER_LOCAL_DISPLAYS_H
#define KOR_ADAPTER_LOCAL_DISPLAYS_H

#include "core/gl_headers.h"

#include <atomic>
#include <mutex>
#include <sys/types.h>
#include <unordered_map>
#include <vector>

namespace kor::adapter {

/// How a drawable is given back to the driver.
using DestroyDrawable = void (*)(Display*, GLXDrawable);

/// A drawable that was made through the adapter on a local display whose driver needs help.
struct DrawableEntry {
    GLXFBConfig fbconfig = nullptr;
    DestroyDrawable destroy = nullptr;
    bool doubleBuffered = false;
    unsigned width = 0; // pixels; 0 until first asked for
    unsigned height = 0;
    int users = 0;       // bindings of threads, and swaps that are going on
    bool doomed = false; // destroyed by the application while in use
};

/// A context that is current in some thread.
struct ContextEntry {
    int users = 0;
    bool doomed = false;
};

/// What is known of a connection whose driver needs help. A connection to any other driver has no
/// entry.
struct LocalDisplay {
    pid_t owner = 0; // the process that opened it: a forked child leaves the server alone
    bool forgetsFront = false;
    std::unordered_map<GLXDrawable, DrawableEntry> drawables;
    std::unordered_map<GLXContext, ContextEntry> contexts;
    /// Helper contexts that no thread has current.
    std::unordered_map<GLXFBConfig, std::vector<GLXContext>> idleHelpers;
};

/// True once a connection needed help. Until then every fixed function costs this one test.
extern std::atomic<bool> helpNeeded;
inline bool noHelpNeeded() {
    return __builtin_expect(!helpNeeded.load(std::memory_order_relaxed), 1);
}

/// The adapter's one lock, over all tables. It guards every LocalDisplay, is held for look-ups
/// only, never while the driver or Xlib is called, and across fork, so that a child finds the
/// tables whole.
std::mutex& tablesMutex();

/// The entry of a connection, or null. Under tablesMutex(), for as long as the pointer is used.
LocalDisplay* findLocalDisplay(Display* display);

/// Adds the entry of a connection and sets helpNeeded. The entry ends with XCloseDisplay, its
/// helper contexts too; to be called after the first GLX call on the connection, so that GLX is
/// still there when the connection closes.
void addLocalDisplay(Display* display, bool forgetsFront);

} // namespace kor::adapter

#endif

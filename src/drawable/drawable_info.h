#ifndef KOR_DRAWABLE_DRAWABLE_INFO_H
#define KOR_DRAWABLE_DRAWABLE_INFO_H

#include "core/tsd.h"
#include "display/shared_connection.h"
#include "drawable/irect.h"
#include "support/mutex.h"
#include "support/relaxed.h"
#include "visual/visual_map.h"

#include <atomic>
#include <memory>
#include <mutex>

namespace kor::gl {

class FrameStatistics;
class ReadbackContext;
class XImagePainter;

enum LocalDrawableType : int32_t {
    WindowDrawable = 0, // an offscreen pbuffer sized like the application's window
    PixmapDrawable = 1, // a GLX pixmap on the local display
    PbufferDrawable = 2,
};

/// The record of one application drawable and the local drawable that stands in for it.
///
/// Life: the registry (drawable/registry.h) owns it. A record that leaves the registry is
/// discarded: what it holds on the GPU is released there and then, its memory when nobody names it
/// any more: a thread may still have it current, or be in the middle of one of its members. Whoever
/// keeps a pointer beyond the registry's lock names the record (DrawableRef, nameDrawable). A
/// released record is an empty one: its members do nothing.
///
/// Fields without a remark are set before the record is registered and constant afterwards. Relaxed
/// ones are read and written without a lock by design.
class DrawableInfo {
  public:
    /// x, y, width and height in pixels; fbconfig is a local one.
    DrawableInfo(LocalDrawableType type, unsigned long appDrawable, GLXFBConfig fbconfig,
                 Display* appDisplay, int x, int y, unsigned width, unsigned height);
    virtual ~DrawableInfo();
    DrawableInfo(const DrawableInfo&) = delete;
    DrawableInfo& operator=(const DrawableInfo&) = delete;

    const LocalDrawableType type;
    const unsigned long appDrawable;          // the application's id: the registry's key
    Relaxed<GLXDrawable> localDrawable{0};    // where rendering goes; owned
    LocalVisualInfo* visualInfo = nullptr;    // not owned
    Relaxed<Display*> appDisplay;             // null once that is closed
    const GLXFBConfig fbconfig;               // the local one, as the maker gave it
    Pixmap appPixmap = 0;                     // pixmaps only: the application's X pixmap
    Pixmap localPixmap = 0;                   // pixmaps only: its local stand-in; never freed
    Relaxed<bool> skipNextSwap{false};        // see "skip-double-swap"
    Relaxed<GLXContext> lastContext{nullptr}; // last made current on it; never cleared
    GLXContext readContext = nullptr;         // under the local display mutex; owned

    /// Refreshes geometry, visual and visibility from the application display; each pointer may be
    /// null. False when the window is unknown there. One round trip.
    bool updateWindowInfo(bool* resized, bool* moved, bool* visibilityChanged);
    /// Brings a window's pbuffer to the window's size, unbinding and binding the thread's context
    /// where it is bound to it. Takes the local display mutex.
    void checkForResize();
    /// Makes the pbuffer anew at the current size, 10 x 10 at least.
    void updateOffscreenPbuffer();
    /// Counts a frame at nowMs (milliseconds) and reports the rate every five seconds.
    void incrementFpsCounter(uint64_t nowMs);

    bool isVisible();
    VisualID getVisualID();
    void getGeometry(kor::IRect* rect);
    bool isDoubleBuffered() const { return visualInfo != nullptr && visualInfo->doubleBuffered; }
    bool fbconfigChanged(GLXFBConfig other) const { return other != fbconfig; }
    void invalidateFbconfig() { fbconfigInvalidated = true; }
    bool invalidatedFbconfig() const { return fbconfigInvalidated; }
    bool getViewportCheckForResize() const { return viewportCheckForResize; }
    void setViewportCheckForResize(bool check) { viewportCheckForResize = check; }

    // Frame transport; implemented in transport/.

    /// One frame: copied on the GPU, announced to the copyback thread, paced. Application thread;
    /// its context is current again afterwards.
    void readback();
    /// Paints the pending frame of a window over the copyback thread's connection.
    void copyback(Display* display);
    /// Makes the read context current, and everything it needs the first time. Leaves it current.
    bool setupReadbackContexts();
    void initDummyReadbackPbuffer();

    // Memory.

    /// Releases what the record holds on the local display and in the frame transport, once. Called
    /// with no lock held.
    void release();
    /// Notes where the local objects are made. A window's record keeps that connection open; the
    /// others' objects die with it.
    void livesOn(const LocalDisplay& local);
    bool released() const { return released_.load(std::memory_order_acquire); }
    /// True when anybody names it besides the registry. Under the registry's lock.
    bool isNamedElsewhere() const { return names_.load() > 1; }
    void name() { names_.fetch_add(1, std::memory_order_relaxed); }
    /// Takes a name back; the last one frees the record.
    void unname();

  private:
    void releaseLocalObjects(Display* local);
    /// A frame was finished that nobody could have seen.
    void countHiddenFrame();
    /// The local connection for what is to be done for the record now: the calling thread's, or,
    /// where the display that the thread worked on is closed, the record's own.
    LocalDisplay localDisplay();
    /// The readback context with a reference of the caller's own, or null.
    ReadbackContext* holdReadbackContext();

    /// One thread at a time copies a frame of the drawable, replaces its pbuffer or releases it:
    /// the read context is current to the copying thread meanwhile. Taken before all locks that
    /// these steps take. Recursive: an application's error handler may end a frame in the middle of
    /// one.
    std::recursive_mutex frameMutex;

    Mutex mutex; // innermost lock; guards the next six
    VisualID visualID = 0;
    int x_;
    int y_;
    unsigned width_;
    unsigned height_;
    bool visible = true;

    Relaxed<bool> fbconfigInvalidated{false};
    Relaxed<bool> viewportCheckForResize{true};
    // Both under the local display mutex.
    std::shared_ptr<SharedConnection> connection_; // where the local objects are
    LocalDisplay heldOpen_;                        // the same; windows only
    GLXPbuffer dummyPbuffer = 0;                   // 10 x 10, the readback worker's; owned
    // One counted reference. Written under the local display mutex, read by the copyback thread.
    std::atomic<ReadbackContext*> readbackContext{nullptr};
    Relaxed<uint64_t> lastReadbackTime{0}; // milliseconds
    Relaxed<int> frameCount{0};            // since the last rate report
    Relaxed<uint64_t> lastFpsReport{0};    // milliseconds; 0: never
    Relaxed<bool> pbufferNeedsUpdate{true};
    const std::shared_ptr<FrameStatistics> statistics; // shared with the readback context
    XImagePainter* painter;                            // owned; the copyback thread's

    std::atomic<bool> released_{false};
    std::atomic<int> names_{1}; // the maker's, then the registry's
};

/// Names a record for a scope. Null is allowed.
class DrawableRef {
  public:
    DrawableRef() = default;
    /// Adds a name.
    explicit DrawableRef(DrawableInfo* record) : record_(record) {
        if (record_ != nullptr)
            record_->name();
    }
    DrawableRef(const DrawableRef& other) : DrawableRef(other.record_) {}
    DrawableRef(DrawableRef&& other) noexcept : record_(other.record_) { other.record_ = nullptr; }
    DrawableRef& operator=(DrawableRef other) noexcept {
        DrawableInfo* const record = record_;
        record_ = other.record_;
        other.record_ = record;
        return *this;
    }
    ~DrawableRef() {
        if (record_ != nullptr)
            record_->unname();
    }

    DrawableInfo* get() const { return record_; }
    DrawableInfo* operator->() const { return record_; }
    DrawableInfo& operator*() const { return *record_; }
    explicit operator bool() const { return record_ != nullptr; }

  private:
    DrawableInfo* record_ = nullptr;
};

/// Lets a field of a thread's record name another drawable record, or none.
void nameDrawable(DrawableInfo*& field, DrawableInfo* record);

/// Ends a record that has left the registry, or never was in it: releases it now and gives up the
/// owner's name.
void discard(DrawableInfo* record);

} // namespace kor::gl

#endif

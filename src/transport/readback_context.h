#ifndef KOR_TRANSPORT_READBACK_CONTEXT_H
#define KOR_TRANSPORT_READBACK_CONTEXT_H

#include "core/gl_headers.h"
#include "display/shared_connection.h"
#include "support/high_res_timer.h"
#include "support/mutex.h"
#include "support/semaphore.h"
#include "support/thread.h"
#include "transport/frame_statistics.h"

#include <X11/Xlib.h>
#include <atomic>
#include <memory>
#include <vector>

namespace kor::gl {

class ReadbackSlice;
class XImagePainter;

/// Moves the finished frames of one window from the GPU to the application display. Three threads
/// take turns: the application thread copies a frame on the GPU (performGPUReadback), the copyback
/// thread asks for it and paints it (copyToAppDisplay), the worker, with a context of its own,
/// waits for the GPU and reads the pixels (svc).
///
/// The copy lock serialises the first against the other two; the worker does not take it, it runs
/// only while the copyback thread holds it and waits. At most one frame is in flight.
class ReadbackContext {
  public:
    ReadbackContext();
    /// Ends the worker and waits for it. Never under the local display mutex, which it needs.
    virtual ~ReadbackContext();
    ReadbackContext(const ReadbackContext&) = delete;
    ReadbackContext& operator=(const ReadbackContext&) = delete;

    /// Counted ownership: the count starts at 0, the one who takes it from 1 to 0 deletes.
    void ref();
    void unref();

    /// Creates the worker's context, sharing textures with share, to be current on drawable, and
    /// starts the worker once. The caller holds the local display mutex. False when the context
    /// cannot be had: then the object does nothing, ever.
    /// Keeps the local connection open from then on, since the worker makes its last calls on it.
    bool setSharedContext(const LocalDisplay& local, GLXFBConfig fbconfig, GLXContext share,
                          GLXDrawable drawable);

    /// The GPU's side of one frame of width x height pixels; the read context is current. Waits
    /// while the previous frame is being painted.
    bool performGPUReadback(int width, int height);

    /// Transfers and paints the pending frame, if there is one. Copyback thread; display is its
    /// own.
    void copyToAppDisplay(Display* display, XImagePainter* painter, VisualID visual);

    /// Where its frames are counted: in the record's counters. Before the first frame.
    void countIn(std::shared_ptr<FrameStatistics> statistics) {
        statistics_ = std::move(statistics);
    }

    int refCount() const { return refCount_.load(); }

  private:
    void layGrid(int width, int height);
    bool transfer();
    bool tryTransfer();
    void makeWorkerCurrent();
    void svc();
    bool checkExit();
    static bool callback(ReadbackContext* self);

    std::atomic<int> refCount_{0};
    LocalDisplay local_;
    GLXDrawable drawable_ = 0;
    GLXContext context_ = nullptr;
    int columns_ = 0;
    int rows_ = 0;
    std::vector<std::unique_ptr<ReadbackSlice>> slices_; // row by row
    GLsync fence_ = nullptr;                             // behind the GPU copy of the frame
    int width_ = 0;                                      // extent of the pending frame
    int height_ = 0;
    bool framePending_ = false;
    std::shared_ptr<FrameStatistics> statistics_ = std::make_shared<FrameStatistics>();
    Mutex copyLock_; // guards all of the above but the first four, and the transfer below
    Thread<ReadbackContext> thread_;
    Mutex exitLock_; // guards the next one
    bool exitFlag_ = false;
    Semaphore done_;
    bool transferSucceeded_ = false;
    Semaphore work_; // a transfer to do, or the exit
    int transferWidth_ = 0;
    int transferHeight_ = 0;
    char* destinationBuffer_ = nullptr; // null when no transfer is handed over
    HighResTimer timer_;
};

} // namespace kor::gl

#endif

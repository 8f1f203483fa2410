#ifndef KOR_TRANSPORT_COPYBACK_H
#define KOR_TRANSPORT_COPYBACK_H

#include "support/high_res_timer.h"
#include "support/mutex.h"
#include "support/semaphore.h"
#include "support/singleton.h"
#include "support/thread.h"

#include <X11/Xlib.h>
#include <cstdint>

namespace kor::gl {

class Copyback;

/// The thread that paints; it has its own connection to the application display.
class CopybackThread : public Thread<CopybackThread> {
  public:
    /// Starts at once.
    explicit CopybackThread(Copyback* copyback);
    ~CopybackThread() override;

  private:
    static bool callback(CopybackThread* self);
    void svc();

    Copyback* copyback_;
};

/// Paints read-back frames into the application's windows, at its own rate: whatever the
/// application renders, at most about "copyback-frame-rate" passes happen a second. Made at the
/// first readback, never destroyed.
class Copyback : public Singleton<Copyback> {
  public:
    Copyback();

    /// Wakes the copyback thread for one pass. Any thread; posts are counted, not merged.
    void unblock();
    /// Asks the copyback thread to end.
    void stop();
    bool checkStop();
    /// Waits until the copyback thread has left its function, at most a second. True when it has.
    bool waitForEnd();
    /// One pass of the copyback thread: waits for work, lets an interval pass, paints every pending
    /// frame under the local drawables mutex.
    void doCopyback(Display* display);

    /// In a forked child.
    static void forgetParents() { forget(); }

    /// Microseconds.
    uint32_t frameInterval() const { return frameInterval_; }

  private:
    Mutex lock_; // reserved: no operation needs it
    Semaphore wake_;
    Mutex stopLock_; // guards the next one
    bool stopFlag_ = false;
    HighResTimer timer_;
    CopybackThread thread_;
    uint32_t frameInterval_;
};

} // namespace kor::gl

#endif

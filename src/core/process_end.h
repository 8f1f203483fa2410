#ifndef KOR_CORE_PROCESS_END_H
#define KOR_CORE_PROCESS_END_H

#include "support/export.h"

#include <atomic>

extern "C" {
/// Tells that the process has begun to end. From now on the library renders nothing of its own: the
/// driver's destructors come next, and calls of the application's exit handlers after them. Those
/// go to the driver and end no frame. The copyback thread is stopped unless "cleanup-atexit" is
/// off. For the front library, whose exit handler was registered once the driver was there.
KOR_EXPORT void kor_process_ends();
}

namespace kor::gl {

extern std::atomic<bool> processEndBegun;

inline bool processEnds() {
    return __builtin_expect(processEndBegun.load(std::memory_order_relaxed), 0);
}

/// To be called once the library has rendered something: a driver registers handlers of its own
/// when it compiles its first shader, and ours must run before those.
void watchForProcessEnd();

/// Around what the library renders by itself, on any thread. The end of the process waits for what
/// has begun, within the second that it has: the driver's destructors would take away what is in
/// use. Nothing begins afterwards.
class OwnRendering {
  public:
    OwnRendering();
    ~OwnRendering();
    OwnRendering(const OwnRendering&) = delete;
    OwnRendering& operator=(const OwnRendering&) = delete;
    /// False when the process has begun to end.
    bool allowed() const { return allowed_; }

  private:
    bool allowed_;
};

} // namespace kor::gl

#endif

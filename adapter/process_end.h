#ifndef KOR_ADAPTER_PROCESS_END_H
#define KOR_ADAPTER_PROCESS_END_H

#include <atomic>

namespace kor::adapter {

extern std::atomic<bool> processEndBegun;

/// True once the process has begun to end. The driver's destructors come next, and exit handlers of
/// the application's may call GLX after them: nothing of the adapter's is rendered any more.
inline bool processEnds() {
    return __builtin_expect(processEndBegun.load(std::memory_order_relaxed), 0);
}

/// To be called when the driver has been used for the first time: handlers at the end run in the
/// reverse order of their registration.
void noteEndAheadOfDriver();

} // namespace kor::adapter

#endif

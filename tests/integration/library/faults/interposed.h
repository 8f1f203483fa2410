#ifndef KOR_TESTS_LIBRARY_FAULTS_INTERPOSED_H
#define KOR_TESTS_LIBRARY_FAULTS_INTERPOSED_H

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

/// The calls that the library makes of Xlib and of the system, led through this program (see
/// CMakeLists.txt): each can be made to fail, and the ones of the painter are recorded.
namespace kor::test {

/// Lets the next calls of one function fail. What is not armed passes through. Any thread.
class Fault {
  public:
    /// The next calls fail, after those that are let through.
    void arm(int times = 1, int letThrough = 0) {
        times_ = times;
        letThrough_ = letThrough;
    }
    /// True when this call has to fail.
    bool strikes() { return !takesOne(letThrough_) && takesOne(times_); }
    bool spent() const { return times_ == 0; }

  private:
    static bool takesOne(std::atomic<int>& count) {
        int left = count.load();
        while (left > 0 && !count.compare_exchange_weak(left, left - 1)) {
        }
        return left > 0;
    }

    std::atomic<int> times_{0};
    std::atomic<int> letThrough_{0};
};

extern Fault initExtension, openDisplay;
extern Fault createGc, getVisualInfo, createImage, getImage;
extern Fault shmQueryExtension, shmCreateImage, shmAttach, shmPutImage;
extern Fault shmGet, shmAt;
extern Fault queryFont, getFontProperty, getAtomName, loadQueryFont;
extern Fault setSpecific, keyCreate;

/// malloc of exactly this size fails; 0: none.
extern std::atomic<size_t> failingAllocation;
/// operator new of exactly this size throws; 0: none.
extern std::atomic<size_t> throwingAllocation;

/// Counts down with each allocation that the library makes (operator new, malloc, calloc, strdup);
/// the one that takes it to 0 fails. Those of this thread count while countsAllocations is set,
/// those of other threads always.
extern std::atomic<int> allocationsToFailure;
extern thread_local bool countsAllocations;

/// Called with the connection before XCreateImage and XShmAttach have their effect.
extern std::function<void(Display*)> beforeCreateImage;
extern std::function<void(XShmSegmentInfo*)> beforeShmAttach;
/// Called with each connection that is closed, on the closing thread, while it is still open.
extern std::function<void(Display*)> beforeCloseDisplay;
/// Called with each call that can be recorded, on its thread, before it has its effect. Set while
/// no other thread is at work.
extern std::function<void(const std::string&)> onCall;

/// The fonts that XQueryFont gives have no properties.
extern std::atomic<bool> queryFontWithoutProperties;

/// The id of every visual that XGetVisualInfo gives; 0: its own.
extern std::atomic<VisualID> visualIdGiven;

/// XGetVisualInfo gives as many entries as there are depths here, each with a visual of its own;
/// none: its own.
extern std::vector<int> depthsGiven;
extern std::vector<Visual> visualsGiven;
/// The visual that XCreateImage was called with last.
extern std::atomic<Visual*> visualOfImage;
/// XGetVisualInfo looks at every screen, whichever it is asked about.
extern std::atomic<bool> visualsOfEveryScreen;

/// What gettimeofday tells instead of the time, once it is set; microseconds since 1970.
extern std::atomic<int64_t> timeOfDay;

/// The recorded calls since recording began: names, and of arguments what matters.
void record();
std::vector<std::string> recorded();

/// The microseconds of every usleep that a thread has begun, in order.
std::vector<unsigned> sleepsOf(pid_t thread);

/// What a resolver knows: official name and aliases by name asked for. While it is set, it answers
/// instead of the system's; what it lacks is unknown. Addresses are asked for as "a.b.c.d".
struct Host {
    std::string name;
    std::vector<std::string> aliases;
};
extern const std::map<std::string, Host>* resolver;
/// What gethostname tells; null: the system's. The empty text makes it fail.
extern const char* hostName;
/// The names and addresses that were asked for.
extern std::vector<std::string> lookups;

/// Called on every thread after a mutex was taken, and before it is released.
extern std::atomic<void (*)(pthread_mutex_t*)> afterLock;
extern std::atomic<void (*)(pthread_mutex_t*)> beforeUnlock;

} // namespace kor::test

#endif

#ifndef KOR_TESTS_UNIT_SUPPORT_FAULTS_INTERPOSED_H
#define KOR_TESTS_UNIT_SUPPORT_FAULTS_INTERPOSED_H

#include <ctime>
#include <optional>
#include <string>
#include <sys/time.h>

namespace kor::test {

/// Lets the next calls of one system function fail. What is not armed passes through.
class Fault {
  public:
    void arm(int error, int times = 1) {
        error_ = error;
        times_ = times;
    }
    void disarm() { times_ = 0; }
    bool spent() const { return times_ == 0; }
    /// True when this call has to fail; its error is error().
    bool strikes() {
        if (times_ == 0)
            return false;
        --times_;
        return true;
    }
    int error() const { return error_; }

  private:
    int error_ = 0;
    int times_ = 0;
};

extern Fault mutexInit, mutexDestroy, mutexLock, mutexUnlock;
extern Fault semInit, semDestroy, semWait, semPost, semTrywait, semTimedwait;
extern Fault threadCreate, copyText, openFile;

/// The time of day that gettimeofday tells instead of the real one.
extern std::optional<timeval> timeOfDay;
/// The deadline that sem_timedwait was given last.
extern timespec lastDeadline;
/// Whether what was made last was given attributes (mutexes, threads) or shared between processes
/// (semaphores).
extern bool mutexHadAttributes, threadHadAttributes, semaphoreWasShared;
/// What fopen of /proc/self/cmdline yields instead.
extern std::optional<std::string> commandLineFile;
/// What readlink answers instead: its result, and the bytes that it stores.
extern std::optional<std::string> linkText;
extern bool linkUnreadable;
/// What the last joined thread returned.
extern void* threadResult;

} // namespace kor::test

#endif

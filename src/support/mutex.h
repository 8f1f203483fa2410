#ifndef KOR_SUPPORT_MUTEX_H
#define KOR_SUPPORT_MUTEX_H

#include "support/undisturbed.h"
#include "support/where_info.h"

#include <pthread.h>

namespace kor {

/// A plain pthread mutex: not recursive, no error checking. Failures are logged at DEBUG and give
/// false; nothing throws.
class Mutex {
  public:
    Mutex();
    ~Mutex();
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    bool lock(const korWhereInfo& /*where*/) {
        const int error = pthread_mutex_lock(&mutex_);
        return __builtin_expect(error == 0, 1) || lockFailed(error);
    }
    bool unlock(const korWhereInfo& /*where*/) {
        const int error = pthread_mutex_unlock(&mutex_);
        return __builtin_expect(error == 0, 1) || unlockFailed(error);
    }

    /// For the time of a fork: these two are no hold of the thread's, and nothing is logged. False
    /// when the lock cannot be had in so many milliseconds.
    bool lockWithin(unsigned milliseconds);
    void unlockWithin() { pthread_mutex_unlock(&mutex_); }

  private:
    static bool lockFailed(int error);
    static bool unlockFailed(int error);

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER; // usable even where its set-up failed
};

/// Holds a Mutex for a scope; unlock() ends the hold early, lock() takes it again. Meanwhile the
/// thread is Undisturbed.
class Lock {
  public:
    explicit Lock(Mutex& mutex) : mutex_(mutex) { lock(); }
    ~Lock() {
        if (held_)
            unlock();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void lock() {
        // What could not be locked must not be unlocked: it may be another thread's.
        held_ = mutex_.lock(korWhereInfo{});
        if (held_)
            Undisturbed::enter();
    }
    void unlock() {
        const bool wasHeld = held_;
        held_ = false;
        mutex_.unlock(korWhereInfo{});
        if (wasHeld)
            Undisturbed::leave();
    }

  private:
    Mutex& mutex_;
    bool held_ = false;
};

} // namespace kor

#endif

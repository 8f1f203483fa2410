#ifndef KOR_SUPPORT_THREAD_H
#define KOR_SUPPORT_THREAD_H

#include "support/failures.h"

#include <atomic>
#include <cstdint>
#include <pthread.h>

namespace kor {

/// The thread of a worker object T: it runs entry(target) once. Nothing is ever detached; a thread
/// whose function has returned is not joined, on purpose (see join()).
template <typename T> class Thread {
  public:
    using Entry = bool (*)(T*);

    Thread() = default;
    virtual ~Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts entry(target) unless the running count says that it runs, or its thread is still on
    /// the way there. False when the system has no thread to give; the next call tries again.
    bool start(T* target, Entry entry) {
        if (runningCount_.load() != 0 || (started_ && !entered_.load()))
            return true;
        started_ = false;
        entered_ = false;
        target_ = target;
        entry_ = entry;
        if (pthread_create(&handle_, nullptr, svc, this) != 0)
            return false;
        id_ = handle_;
        state_ = 0;
        started_ = true;
        return true;
    }

    /// True once start() has made a thread, whether or not it still runs.
    bool started() const { return started_; }
    /// True when there is no thread, or its function has returned.
    bool ended() const { return !started_ || (entered_.load() && runningCount_.load() == 0); }
    /// True when called by the thread itself.
    bool isCaller() const { return started_ && pthread_equal(handle_, pthread_self()) != 0; }
    int runningCount() const { return runningCount_.load(); }

    /// Joins the thread when its function runs at this moment; one whose function has already
    /// returned is deliberately not joined. A thread that was created but has not reached its
    /// function yet counts as running: its owner must not go before it.
    void join() {
        if (!started_)
            return;
        entered_.wait(false);
        if (runningCount_.load() != 0)
            pthread_join(handle_, nullptr);
        started_ = false;
    }

  private:
    static void* svc(void* thread) {
        auto* self = static_cast<Thread*>(thread);
        ++self->runningCount_;
        self->entered_ = true;
        self->entered_.notify_all();
        const bool result = self->run();
        --self->runningCount_;
        return reinterpret_cast<void*>(static_cast<uintptr_t>(result));
    }

    bool run() try { return entry_(target_); }
    KOR_OTHERWISE(false)

    pthread_t handle_ = 0;
    pthread_t id_ = 0;
    int state_ = 0; // only ever set to 0; kept for debuggers
    std::atomic<int> runningCount_{0};
    std::atomic<bool> entered_{false};
    T* target_ = nullptr;
    Entry entry_ = nullptr;
    bool started_ = false;
};

} // namespace kor

#endif

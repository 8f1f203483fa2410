#ifndef KOR_SUPPORT_FORKED_CHILD_H
#define KOR_SUPPORT_FORKED_CHILD_H

#include <atomic>
#include <new>
#include <pthread.h>

namespace kor {

/// Something that a child made by fork() does before anything else: it has the memory of its
/// parent, but none of its threads, and must not wait for what they held. Only for objects with
/// static storage, which register themselves when the library is loaded. A hook must neither wait
/// nor free: it forgets what is the parent's, and leaves it alone.
class ForkedChildHook {
  public:
    using Run = void (*)(ForkedChildHook&);

    explicit ForkedChildHook(Run run) noexcept : run_(run), next_(last_) {
        if (last_ == nullptr)
            pthread_atfork(nullptr, nullptr, runAll);
        last_ = this;
    }
    ForkedChildHook(const ForkedChildHook&) = delete;
    ForkedChildHook& operator=(const ForkedChildHook&) = delete;

  private:
    static void runAll() {
        for (ForkedChildHook* hook = last_; hook != nullptr; hook = hook->next_)
            hook->run_(*hook);
    }

    Run run_;
    ForkedChildHook* next_;
    static inline ForkedChildHook* last_ = nullptr;
};

/// The same for a function without arguments.
class InForkedChild : ForkedChildHook {
  public:
    explicit InForkedChild(void (*run)()) noexcept : ForkedChildHook(callIt), call_(run) {}

  private:
    static void callIt(ForkedChildHook& hook) { static_cast<InForkedChild&>(hook).call_(); }

    void (*call_)();
};

/// One T per process: made by the first caller of get(), never destroyed, and made anew by the
/// first caller in a forked child, whatever the parent's threads were doing with theirs; what that
/// one holds is left as it is, for calls of the forking thread that still refer to it. The making
/// throws what T's does, and std::bad_alloc; the next caller tries again. Has static
/// storage, at namespace level: a local static has a lock of its own, which a child may find held.
template <typename T> class PerProcess : ForkedChildHook {
  public:
    PerProcess() noexcept : ForkedChildHook(forget) {}

    T& get() {
        T* made = made_.load(std::memory_order_acquire);
        return __builtin_expect(made != nullptr, 1) ? *made : make();
    }
    T& operator*() { return get(); }
    T* operator->() { return &get(); }

  private:
    /// Takes the lock of the making for a scope: T's constructor may throw.
    struct Making {
        explicit Making(pthread_mutex_t& mutex) : mutex(mutex) { pthread_mutex_lock(&mutex); }
        ~Making() { pthread_mutex_unlock(&mutex); }
        Making(const Making&) = delete;
        Making& operator=(const Making&) = delete;
        pthread_mutex_t& mutex;
    };

    T& make() {
        const Making making(mutex_);
        T* made = made_.load(std::memory_order_relaxed);
        if (made == nullptr) {
            made = new T;
            made_.store(made, std::memory_order_release);
        }
        return *made;
    }
    static void forget(ForkedChildHook& hook) {
        auto& self = static_cast<PerProcess&>(hook);
        new (&self.mutex_) pthread_mutex_t(PTHREAD_MUTEX_INITIALIZER);
        self.made_.store(nullptr, std::memory_order_relaxed);
    }

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<T*> made_{nullptr};
};

} // namespace kor

#endif

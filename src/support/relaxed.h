#ifndef KOR_SUPPORT_RELAXED_H
#define KOR_SUPPORT_RELAXED_H

#include <atomic>

namespace kor {

/// A value that several threads read and write without a lock by design: every access is a
/// relaxed atomic one, so a reader sees some whole value, old or new, and nothing is ordered.
/// It has the size of T.
template <typename T> class Relaxed {
  public:
    Relaxed(T value = T()) : value_(value) {}
    Relaxed(const Relaxed& other) : value_(other.load()) {}
    Relaxed& operator=(const Relaxed& other) {
        store(other.load());
        return *this;
    }
    Relaxed& operator=(T value) {
        store(value);
        return *this;
    }
    operator T() const { return load(); }
    T load() const { return value_.load(std::memory_order_relaxed); }
    /// Replaces the value if it is the expected one; false otherwise.
    bool replace(T expected, T value) {
        return value_.compare_exchange_strong(expected, value, std::memory_order_relaxed);
    }
    void store(T value) { value_.store(value, std::memory_order_relaxed); }

  private:
    std::atomic<T> value_;
    // Of a pointer, too, the size of itself is meant.
    static_assert(sizeof(std::atomic<T>) == sizeof(T)); // NOLINT(bugprone-sizeof-expression)
};

} // namespace kor

#endif

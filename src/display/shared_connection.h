#ifndef KOR_DISPLAY_SHARED_CONNECTION_H
#define KOR_DISPLAY_SHARED_CONNECTION_H

#include <X11/Xlib.h>
#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace kor::gl {

/// A connection to the local display, and who counts on it. It is paired with the application
/// displays that it was opened for (display/local_display.cpp), and pinned by whoever is about to
/// make a call on it or has made something there that must last: an entry point, a context's or a
/// window's record, a readback worker. Wanted closed, it is closed by the one who takes the last
/// pin away, and pinned no more from then on.
class SharedConnection : public std::enable_shared_from_this<SharedConnection> {
  public:
    SharedConnection(Display* display, Display* appDpy) : display(display), openedFor(appDpy) {}
    SharedConnection(const SharedConnection&) = delete;
    SharedConnection& operator=(const SharedConnection&) = delete;

    Display* const display;
    Display* const openedFor; // told in the log; it may be closed by now
    int opens = 1;            // times that it was got from openConnection; under the map's lock

    /// False when it has ended.
    bool pin() {
        if ((state_.fetch_add(1, std::memory_order_acquire) & ended) == 0)
            return true;
        state_.fetch_sub(1, std::memory_order_relaxed);
        return false;
    }
    /// For one who has a pin already.
    void pinAgain() { state_.fetch_add(1, std::memory_order_relaxed); }
    /// With no lock held: the last one may close the connection.
    void unpin() {
        if (state_.fetch_sub(1, std::memory_order_acq_rel) == (wantedClosed | 1))
            lastPinGone(this);
    }

    /// Ends it if nobody has a pin; otherwise the one who takes the last one away is called upon.
    bool endUnlessPinned();
    void keepOpen() { state_.fetch_and(~wantedClosed); }
    bool hasEnded() const { return (state_.load(std::memory_order_acquire) & ended) != 0; }

  private:
    static constexpr uint32_t ended = 1U << 31;
    static constexpr uint32_t wantedClosed = 1U << 30;

    /// The object may be gone by now.
    static void lastPinGone(SharedConnection* connection);

    std::atomic<uint32_t> state_{0}; // the two flags, and the count of pins
};

/// A pin on a local connection, or none. To be given back with no lock held.
class LocalDisplay {
  public:
    LocalDisplay() = default;
    /// None when the connection is null or has ended.
    explicit LocalDisplay(SharedConnection* connection)
        : connection_(connection != nullptr && connection->pin() ? connection : nullptr) {}
    LocalDisplay(const LocalDisplay& other) : connection_(other.connection_) {
        if (connection_ != nullptr)
            connection_->pinAgain();
    }
    LocalDisplay(LocalDisplay&& other) noexcept
        : connection_(std::exchange(other.connection_, nullptr)) {}
    LocalDisplay& operator=(LocalDisplay other) noexcept {
        std::swap(connection_, other.connection_);
        return *this;
    }
    ~LocalDisplay() {
        if (connection_ != nullptr)
            connection_->unpin();
    }

    explicit operator bool() const { return connection_ != nullptr; }
    Display* get() const { return connection_ != nullptr ? connection_->display : nullptr; }
    /// For one who only wants to ask later whether it is still there.
    std::shared_ptr<SharedConnection> connection() const {
        return connection_ != nullptr ? connection_->shared_from_this() : nullptr;
    }

  private:
    SharedConnection* connection_ = nullptr;
};

} // namespace kor::gl

#endif

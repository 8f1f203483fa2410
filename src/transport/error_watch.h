#ifndef KOR_TRANSPORT_ERROR_WATCH_H
#define KOR_TRANSPORT_ERROR_WATCH_H

#include <X11/Xlib.h>
#include <memory>
#include <vector>

namespace kor::gl {

/// Hears the X errors that answer the requests of one thread on a connection of its own, while the
/// object lives, before all others: before the connection's other watchers, which may drop them,
/// and before the error handler. Errors that come late are those of earlier requests: they are left
/// to the others.
class ErrorWatch {
  public:
    /// What becomes of an error that was heard: others hear it too, or not.
    enum Manner { Listen, Keep };

    ErrorWatch(Display* display, Manner manner);
    ~ErrorWatch();
    ErrorWatch(const ErrorWatch&) = delete;
    ErrorWatch& operator=(const ErrorWatch&) = delete;

    /// The errors that have arrived since the last call, eight at the most.
    std::vector<XErrorEvent> take();
    /// True when that request was answered with an error (one of the first eight).
    bool refused(unsigned long serial) const;

  private:
    struct State; // of Xlib's, which this header spares the others
    std::unique_ptr<State> state_;
};

} // namespace kor::gl

#endif

#ifndef KOR_SUPPORT_FAILURES_H
#define KOR_SUPPORT_FAILURES_H

#include <exception>

/// No exception leaves the library: those who call it, and the frames of C libraries between, know
/// of none. The ones that can come about tell that no memory is left. Inside they are let through,
/// by code that leaves everything whole on the way; whatever is called from outside, or is the
/// first function of a thread, is written as
///
///   Result kor_function(...) try {
///       ...
///   }
///   KOR_OTHERWISE(failure)
///
/// and gives that failure then (nothing: of a function without result). Exceptions of other kinds
/// are no business of ours: the end of a thread (pthread_cancel, pthread_exit) is one of them.
#define KOR_OTHERWISE(failure)                                                                     \
    catch (const std::exception&) {                                                                \
        return failure;                                                                            \
    }

namespace kor {

/// Takes something back when the scope is left by an exception.
template <typename Undo> class OnFailure {
  public:
    explicit OnFailure(Undo undo) : undo_(undo) {}
    ~OnFailure() {
        if (std::uncaught_exceptions() > before_)
            undo_();
    }
    OnFailure(const OnFailure&) = delete;
    OnFailure& operator=(const OnFailure&) = delete;

  private:
    Undo undo_;
    int before_ = std::uncaught_exceptions();
};

} // namespace kor

#endif

#ifndef KOR_SUPPORT_SINGLETON_H
#define KOR_SUPPORT_SINGLETON_H

#include <pthread.h>

namespace kor {

/// One T per process, made by the first caller of instance() and never destroyed: a library that
/// lives in other people's processes cannot know when its last user is gone. A forked child has its
/// parent's, unless T lets it forget().
template <typename T> class Singleton {
  public:
    static T* instance() {
        pthread_once(&control_, doInit);
        return instance_;
    }

  protected:
    /// In a forked child: lets the next caller make another.
    static void forget() {
        instance_ = nullptr;
        control_ = PTHREAD_ONCE_INIT;
    }

  private:
    static void doInit() { instance_ = new T; }

    static inline T* instance_ = nullptr;
    static inline pthread_once_t control_ = PTHREAD_ONCE_INIT;
};

} // namespace kor

#endif

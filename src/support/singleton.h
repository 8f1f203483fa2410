#ifndef KOR_SUPPORT_SINGLETON_H
#define KOR_SUPPORT_SINGLETON_H

#include <pthread.h>

namespace kor {

/// One T per process, made by the first caller of instance() and never destroyed: a library that
/// lives in other people's processes cannot know when its last user is gone.
template <typename T> class Singleton {
  public:
    static T* instance() {
        pthread_once(&control_, doInit);
        return instance_;
    }

  private:
    static void doInit() { instance_ = new T; }

    static inline T* instance_ = nullptr;
    static inline pthread_once_t control_ = PTHREAD_ONCE_INIT;
};

} // namespace kor

#endif

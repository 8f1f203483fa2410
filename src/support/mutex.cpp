#include "support/mutex.h"

#include "support/log.h"

#include <cstring>

namespace kor {

Mutex::Mutex() {
    if (const int error = pthread_mutex_init(&mutex_, nullptr))
        KOR_SUPPORT_DEBUG("Cannot initialize mutex (%s)\n", strerror(error));
}

Mutex::~Mutex() {
    if (const int error = pthread_mutex_destroy(&mutex_))
        KOR_SUPPORT_DEBUG("Cannot destroy mutex (%s)\n", strerror(error));
}

bool Mutex::lock(const korWhereInfo&) {
    if (const int error = pthread_mutex_lock(&mutex_)) {
        KOR_SUPPORT_DEBUG("Mutex lock operation failed (%s)\n", strerror(error));
        return false;
    }
    return true;
}

bool Mutex::unlock(const korWhereInfo&) {
    if (const int error = pthread_mutex_unlock(&mutex_)) {
        KOR_SUPPORT_DEBUG("Mutex unlock operation failed (%s)\n", strerror(error));
        return false;
    }
    return true;
}

} // namespace kor

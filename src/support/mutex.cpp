#include "support/mutex.h"

#include "support/log.h"

#include <cstring>
#include <ctime>

namespace kor {

Mutex::Mutex() {
    if (const int error = pthread_mutex_init(&mutex_, nullptr))
        KOR_SUPPORT_DEBUG("Cannot initialize mutex (%s)\n", strerror(error));
}

Mutex::~Mutex() {
    if (const int error = pthread_mutex_destroy(&mutex_))
        KOR_SUPPORT_DEBUG("Cannot destroy mutex (%s)\n", strerror(error));
}

// Looks now and then: the thread sanitizer does not know of pthread_mutex_clocklock.
bool Mutex::lockWithin(unsigned milliseconds) {
    constexpr unsigned looksPerMillisecond = 4;
    for (unsigned looks = milliseconds * looksPerMillisecond; pthread_mutex_trylock(&mutex_) != 0;
         --looks) {
        if (looks == 0)
            return false;
        const timespec pause{0, 1'000'000 / looksPerMillisecond};
        nanosleep(&pause, nullptr);
    }
    return true;
}

namespace {
void logFailure(const char* function, const char* message, int error) {
    KOR_LOG_AT("KOR", LogDebug, "DEBUG", function, false, message, strerror(error));
}
} // namespace

bool Mutex::lockFailed(int error) {
    logFailure("bool kor::Mutex::lock(const korWhereInfo&)", "Mutex lock operation failed (%s)\n",
               error);
    return false;
}

bool Mutex::unlockFailed(int error) {
    logFailure("bool kor::Mutex::unlock(const korWhereInfo&)",
               "Mutex unlock operation failed (%s)\n", error);
    return false;
}

} // namespace kor

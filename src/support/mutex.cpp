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

bool Mutex::lockWithin(unsigned milliseconds) {
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_sec += milliseconds / 1000;
    end.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (end.tv_nsec >= 1000000000) {
        end.tv_nsec -= 1000000000;
        ++end.tv_sec;
    }
    return pthread_mutex_clocklock(&mutex_, CLOCK_MONOTONIC, &end) == 0;
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

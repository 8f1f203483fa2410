#include "support/semaphore.h"

#include "support/log.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace kor {

namespace {

constexpr int32_t microsecondsPerSecond = 1000000;

/// The absolute wall-clock time timeoutMs from now. The sum is kept in 32 bits, and exactly one
/// second is left uncarried: both are wanted. The system rejects such a deadline as invalid, and
/// tryP() then reports a failure instead of waiting.
timespec deadlineAfter(uint32_t timeoutMs) {
    timeval now{};
    gettimeofday(&now, nullptr);
    auto microseconds =
        static_cast<int32_t>(timeoutMs * 1000U + static_cast<uint32_t>(now.tv_usec));
    timespec deadline{};
    deadline.tv_sec = now.tv_sec;
    if (microseconds > microsecondsPerSecond) {
        deadline.tv_sec += microseconds / microsecondsPerSecond;
        microseconds %= microsecondsPerSecond;
    }
    deadline.tv_nsec = static_cast<long>(int64_t{microseconds} * 1000);
    return deadline;
}

} // namespace

Semaphore::Semaphore(uint32_t value) {
    if (sem_init(&semaphore_, 0, value) != 0)
        KOR_SUPPORT_DEBUG("Cannot initialize semaphore (%s)\n", strerror(errno));
}

Semaphore::~Semaphore() {
    if (sem_destroy(&semaphore_) != 0)
        KOR_SUPPORT_DEBUG("Cannot destroy semaphore (%s)\n", strerror(errno));
}

bool Semaphore::P(const korWhereInfo&) {
    while (sem_wait(&semaphore_) != 0) {
        if (errno == EINTR)
            continue;
        KOR_SUPPORT_DEBUG("Semaphore wait operation failed (%s)\n", strerror(errno));
        return false;
    }
    return true;
}

bool Semaphore::V(const korWhereInfo&) {
    if (sem_post(&semaphore_) != 0) {
        KOR_SUPPORT_DEBUG("Semaphore post operation failed (%s)\n", strerror(errno));
        return false;
    }
    return true;
}

bool Semaphore::tryP(uint32_t timeoutMs, const korWhereInfo&) {
    if (timeoutMs == 0) {
        if (sem_trywait(&semaphore_) == 0)
            return true;
        KOR_SUPPORT_DEBUG("Semaphore wait operation failed (%s)\n", strerror(errno));
        return false;
    }
    const timespec deadline = deadlineAfter(timeoutMs);
    while (sem_timedwait(&semaphore_, &deadline) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != ETIMEDOUT)
            KOR_SUPPORT_DEBUG("Semaphore wait operation failed (%s)\n", strerror(errno));
        return false;
    }
    return true;
}

} // namespace kor

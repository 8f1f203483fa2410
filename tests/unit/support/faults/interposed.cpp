// The linker sends every call of these functions that this program's objects make to __wrap_NAME
// (see CMakeLists.txt), so that each can be made to fail.
#include "interposed.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

namespace kor::test {

Fault mutexInit, mutexDestroy, mutexLock, mutexUnlock;
Fault semInit, semDestroy, semWait, semPost, semTrywait, semTimedwait;
Fault threadCreate, copyText, openFile;
std::optional<timeval> timeOfDay;
timespec lastDeadline;
bool mutexHadAttributes, threadHadAttributes, semaphoreWasShared;
std::optional<std::string> commandLineFile;
std::optional<std::string> linkText;
bool linkUnreadable;
void* threadResult;

/// For functions that return their error code.
#define FAIL_WITH_CODE(fault)                                                                      \
    if ((fault).strikes())                                                                         \
        return (fault).error();

/// For functions that return -1 and leave the code in errno.
#define FAIL_WITH_ERRNO(fault)                                                                     \
    if ((fault).strikes()) {                                                                       \
        errno = (fault).error();                                                                   \
        return -1;                                                                                 \
    }

extern "C" {

int __real_pthread_mutex_init(pthread_mutex_t*, const pthread_mutexattr_t*);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    mutexHadAttributes = attributes != nullptr;
    FAIL_WITH_CODE(mutexInit)
    return __real_pthread_mutex_init(mutex, attributes);
}

int __real_pthread_mutex_destroy(pthread_mutex_t*);
int __wrap_pthread_mutex_destroy(pthread_mutex_t* mutex) {
    FAIL_WITH_CODE(mutexDestroy)
    return __real_pthread_mutex_destroy(mutex);
}

int __real_pthread_mutex_lock(pthread_mutex_t*);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    FAIL_WITH_CODE(mutexLock)
    return __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    FAIL_WITH_CODE(mutexUnlock)
    return __real_pthread_mutex_unlock(mutex);
}

int __real_sem_init(sem_t*, int, unsigned);
int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value) {
    semaphoreWasShared = shared != 0;
    FAIL_WITH_ERRNO(semInit)
    return __real_sem_init(semaphore, shared, value);
}

int __real_sem_destroy(sem_t*);
int __wrap_sem_destroy(sem_t* semaphore) {
    FAIL_WITH_ERRNO(semDestroy)
    return __real_sem_destroy(semaphore);
}

int __real_sem_wait(sem_t*);
int __wrap_sem_wait(sem_t* semaphore) {
    FAIL_WITH_ERRNO(semWait)
    return __real_sem_wait(semaphore);
}

int __real_sem_post(sem_t*);
int __wrap_sem_post(sem_t* semaphore) {
    FAIL_WITH_ERRNO(semPost)
    return __real_sem_post(semaphore);
}

int __real_sem_trywait(sem_t*);
int __wrap_sem_trywait(sem_t* semaphore) {
    FAIL_WITH_ERRNO(semTrywait)
    return __real_sem_trywait(semaphore);
}

int __real_sem_timedwait(sem_t*, const timespec*);
int __wrap_sem_timedwait(sem_t* semaphore, const timespec* deadline) {
    lastDeadline = *deadline;
    FAIL_WITH_ERRNO(semTimedwait)
    return __real_sem_timedwait(semaphore, deadline);
}

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    threadHadAttributes = attributes != nullptr;
    FAIL_WITH_CODE(threadCreate)
    return __real_pthread_create(thread, attributes, start, argument);
}

int __real_pthread_join(pthread_t, void**);
int __wrap_pthread_join(pthread_t thread, void** result) {
    const int code = __real_pthread_join(thread, &threadResult);
    if (result != nullptr)
        *result = threadResult;
    return code;
}

char* __real_strdup(const char*);
char* __wrap_strdup(const char* text) {
    return copyText.strikes() ? nullptr : __real_strdup(text);
}

int __real_gettimeofday(timeval*, void*);
int __wrap_gettimeofday(timeval* now, void* zone) {
    if (!timeOfDay)
        return __real_gettimeofday(now, zone);
    *now = *timeOfDay;
    return 0;
}

FILE* __real_fopen(const char*, const char*);
FILE* __wrap_fopen(const char* name, const char* mode) {
    if (openFile.strikes()) {
        errno = openFile.error();
        return nullptr;
    }
    if (commandLineFile && strcmp(name, "/proc/self/cmdline") == 0)
        name = commandLineFile->c_str();
    return __real_fopen(name, mode);
}

ssize_t __real_readlink(const char*, char*, size_t);
ssize_t __wrap_readlink(const char* name, char* buffer, size_t size) {
    if (linkUnreadable) {
        errno = EACCES;
        return -1;
    }
    if (!linkText)
        return __real_readlink(name, buffer, size);
    const size_t length = std::min(size, linkText->size());
    std::copy_n(linkText->data(), length, buffer);
    return static_cast<ssize_t>(length);
}
}

} // namespace kor::test
